#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace framehold {

/// The middle of some values, which it reorders; of an even number the upper one. 0 if there are
/// none.
inline double median(std::vector<double>& values) {
    if (values.empty()) return 0.0;
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace framehold
