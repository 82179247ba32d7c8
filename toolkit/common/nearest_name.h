#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace framehold {

/// The name that `word` was most likely meant to be: the one that the fewest inserted, left out,
/// changed or swapped characters lead to, as long as they are few for a word of that length. Empty
/// if there is none.
std::string nearestName(std::string_view word, const std::vector<std::string>& names);

}  // namespace framehold
