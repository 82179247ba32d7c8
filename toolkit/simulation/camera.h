#pragma once

#include <Eigen/Geometry>

namespace framehold::simulation {

/// A pinhole camera with a rolling shutter. Pixel (width / 2, height / 2) looks straight ahead, and
/// row y of a frame is read at the frame's time + readout * y / height.
struct CameraModel {
    int width = 1280;
    int height = 720;
    double focal = 1000.0;    // pixels
    double readout = 0.0299;  // seconds

    double rowTime(double frameTime, double y) const { return frameTime + readout * y / height; }

    /// Direction in device coordinates seen at a pixel, not normalised. The picture's x axis is
    /// device -y, its y axis device -x, and the camera looks along device -z.
    Eigen::Vector3d ray(double x, double y) const {
        return {-(y - height / 2) / focal, -(x - width / 2) / focal, -1.0};
    }

    /// Pixel that sees a direction in device coordinates in front of the camera.
    Eigen::Vector2d project(const Eigen::Vector3d& device) const {
        const double depth = -device.z();
        return {width / 2 - focal * device.y() / depth, height / 2 - focal * device.x() / depth};
    }
};

}  // namespace framehold::simulation
