#pragma once

#include "motion/clip_metadata.h"
#include "zpr_framehold.h"

#include <string>

namespace framehold {

/// C statements that fill a parameter record as `param` is, for an application that uses the
/// library. Rows are taken to have no padding.
std::string parameterSnippet(const ZPR_Param& param);

/// C functions for an application that uses a camera: one that sets focal length, readout and time
/// offset in a parameter record, one that brings what the sensor reports to the device's axes.
/// Comments stand for what `camera` lacks. camera: with its width; height: of its pictures, pixels.
std::string cameraSnippet(const ClipMetadata& camera, int height);

}  // namespace framehold
