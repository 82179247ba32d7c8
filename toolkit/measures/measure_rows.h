#pragma once

#include "measures/clip_measures.h"

#include <optional>
#include <vector>

namespace framehold {

/// One figure of a clip as it is shown to people and written for programs.
struct MeasureRow {
    const char* key;    // in JSON, with the unit
    const char* label;  // for people, with the unit
    int digits;         // after the point
    std::optional<double> (*value)(const ClipMeasures&);
    /// What may be divided by the original's, also between clips of different size; null where a
    /// ratio says nothing.
    double (*comparable)(const ClipMeasures&);
    const char* meaning;  // one sentence
};

const std::vector<MeasureRow>& measureRows();

/// What is left of the original's figure in another clip: 0.2 is a fifth. None where the ratio says
/// nothing or the original has nothing to compare with.
std::optional<double> remaining(const MeasureRow& row, const ClipMeasures& original,
                                const ClipMeasures& other);

}  // namespace framehold
