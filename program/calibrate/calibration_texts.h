#pragma once

#include "calibrate/calibrate_clip.h"
#include "calibration/calibration.h"

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace framehold {

/// A table of what was found, for people.
std::string tableOf(const Calibration& calibration, const std::vector<ClipFiles>& clips);

/// The same with all numbers.
nlohmann::ordered_json jsonOf(const Calibration& calibration, const std::vector<ClipFiles>& clips);

/// Sentence about a lens for which `isDistorted` is true, without a full stop.
std::string distortionText(const Calibration& calibration);

/// A clip.json to be written to `path`, with what can be used. Of several clips it says what they
/// share: the time offset only if it is the same for all.
nlohmann::ordered_json presetOf(const Calibration& calibration, const std::vector<ClipFiles>& clips,
                                const std::string& path);

/// C functions that fill in a ZPR_Param and put a sensor's values in device axes.
std::string snippetOf(const Calibration& calibration);

}  // namespace framehold
