#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace framehold {

/// Median; of an even number of values the upper one of the two in the middle. 0 if there are none.
inline double median(std::vector<double> values) {
    if (values.empty()) return 0.0;
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace framehold
