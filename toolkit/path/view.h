#pragma once

#include "path/pinhole_camera.h"

#include <Eigen/Geometry>

namespace framehold {

/// Virtual camera at a frame.
struct View {
    Eigen::Quaterniond orientation = Eigen::Quaterniond::Identity();  // device -> world
    double zoom = 1.0;  // factor of the output camera's focal length

    /// The output camera as the view has it.
    PinholeCamera zoomed(PinholeCamera output) const {
        output.focal *= zoom;
        return output;
    }
};

}  // namespace framehold
