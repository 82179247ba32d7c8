#pragma once

#include "measures/clip_measures.h"

#include <optional>
#include <vector>

namespace framehold {

/// Figure of a clip as it is shown to people and written for programs.
struct MeasureRow {
    const char* key;    // in JSON, with the unit
    const char* label;  // for people, with the unit
    int digits;         // after the point
    std::optional<double> (*value)(const ClipMeasures&);
    /// Value whose ratio to the original's means something, also for clips of different size; null
    /// for figures without one.
    double (*comparable)(const ClipMeasures&);
    const char* meaning;  // one sentence
};

/// All figures, in the order in which they are shown.
const std::vector<MeasureRow>& measureRows();

/// Ratio of a clip's figure to the original's: 0.2 is a fifth of it. None for figures that have no
/// ratio, and where the original's is 0.
std::optional<double> remaining(const MeasureRow& row, const ClipMeasures& original,
                                const ClipMeasures& other);

}  // namespace framehold
