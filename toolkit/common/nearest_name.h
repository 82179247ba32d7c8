#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace framehold {

/// Name that `word` was most likely meant to be: the one at the smallest edit distance (characters
/// inserted, left out, changed or swapped; 1 for names that start with `word`), if that is at most a
/// third of the word's length, or 1. Empty if there is none.
std::string nearestName(std::string_view word, const std::vector<std::string>& names);

}  // namespace framehold
