#pragma once

#include "stabilize/batch_plan.h"

#include <functional>
#include <optional>

namespace framehold {

/// Saves the settings. found: well determined values of the camera, from a calibration with a
/// single clip; none without one.
using SettingsSaver = std::function<void(const std::optional<ClipMetadata>& found)>;

/// Stabilizes all clips. One that fails does not stop the others. save: called once, before the
/// first clip, but after a single one that --auto calibrates with, and only if that succeeds.
/// Throws as planBatch does; what went wrong if there is one clip; std::runtime_error if some of
/// several failed; DoneWithLosses; Interrupted.
void stabilizeAll(const BatchOptions& options, const SettingsSaver& save = {});

}  // namespace framehold
