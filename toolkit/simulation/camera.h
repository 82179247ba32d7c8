#pragma once

#include "common/lens_distortion.h"
#include "simulation/camera_motion.h"
#include "simulation/world.h"

#include <cmath>
#include <cstdint>
#include <vector>

#include <Eigen/Geometry>

namespace framehold::simulation {

/// Camera with a rolling shutter, a pinhole unless it has a lens. Pixel (width / 2, height / 2) is on the optical axis, and
/// row y of a frame is read at the frame's time + readout * y / height.
struct CameraModel {
    int width = 1280;
    int height = 720;
    double focal = 1000.0;    // pixels
    double readout = 0.0299;  // seconds
    LensDistortion lens{};
    double lensShift = 0.0;  // pixels that the lens moves the picture to any side

    /// Shift of the picture by the lens, to the right and down, in pixels.
    Eigen::Vector2d lensShiftAt(double time) const {
        constexpr double kAcross = 2.0 * 3.14159265358979323846 * 3.7;  // rad/s
        constexpr double kDown = 2.0 * 3.14159265358979323846 * 5.3;
        return lensShift * Eigen::Vector2d(std::sin(kAcross * time), std::sin(kDown * time + 1.0));
    }

    /// Time at which row y of a frame is read, in seconds.
    double rowTime(double frameTime, double y) const { return frameTime + readout * y / height; }

    /// Direction in device coordinates seen at a pixel, not normalised. The picture's x axis is
    /// device -y, its y axis device -x, and the camera looks along device -z.
    Eigen::Vector3d ray(double x, double y) const {
        const Eigen::Vector2d at((x - width / 2) / focal, (y - height / 2) / focal);
        if (lens.isNone()) return {-at.y(), -at.x(), -1.0};
        const double angle = lens.angle(at.norm());
        const double scale = at.norm() > 0.0 ? std::sin(angle) / at.norm() : 1.0;
        return {-at.y() * scale, -at.x() * scale, -std::cos(angle)};
    }

    /// Pixel that sees a direction in device coordinates in front of the camera.
    Eigen::Vector2d project(const Eigen::Vector3d& device) const {
        double depth = -device.z();
        const double across = std::hypot(device.x(), device.y());
        if (!lens.isNone() && across > 0.0) {
            depth = across / lens.at(std::atan2(across, depth)).radius;
        }
        return {width / 2 - focal * device.y() / depth, height / 2 - focal * device.x() / depth};
    }
};

/// Two-plane 4:2:0 picture without padding, limited range.
struct Picture {
    int width;
    int height;
    std::vector<uint8_t> luma;
    std::vector<uint8_t> chroma;

    Picture(int width_, int height_);
};

/// Renders a frame of a camera in motion, each row at its own time.
Picture renderFrame(const World& world, const CameraModel& camera, const CameraMotion& motion,
                    double frameTime);

}  // namespace framehold::simulation
