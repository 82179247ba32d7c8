#pragma once

#include "simulation/camera.h"
#include "simulation/camera_motion.h"
#include "simulation/world.h"

#include <cstdint>
#include <vector>

namespace framehold::simulation {

/// A two-plane 4:2:0 picture without padding.
struct Picture {
    int width;
    int height;
    std::vector<uint8_t> luma;
    std::vector<uint8_t> chroma;

    Picture(int width_, int height_);
};

/// Renders what a camera in motion sees of the world in a frame, each row at its own time.
Picture renderFrame(const World& world, const CameraModel& camera, const CameraMotion& motion,
                    double frameTime);

}  // namespace framehold::simulation
