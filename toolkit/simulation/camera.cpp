#include "simulation/camera.h"

#include <cmath>

namespace framehold::simulation {

namespace {

// Limited-range levels.
uint8_t lumaLevel(double luma) { return static_cast<uint8_t>(std::lround(16.0 + 219.0 * luma)); }
uint8_t chromaLevel(double c) { return static_cast<uint8_t>(std::lround(128.0 + 224.0 * c)); }

}  // namespace

Picture::Picture(int width_, int height_)
    : width(width_), height(height_),
      luma(static_cast<size_t>(width) * static_cast<size_t>(height)), chroma(luma.size() / 2) {}

Picture renderFrame(const World& world, const CameraModel& camera, const CameraMotion& motion,
                    double frameTime) {
    Picture picture(camera.width, camera.height);
    const double footprint = 1.0 / camera.focal;
    uint8_t* luma = picture.luma.data();
    uint8_t* chroma = picture.chroma.data();
    for (int y = 0; y < camera.height; ++y) {
        const double time = camera.rowTime(frameTime, y);
        const Eigen::Matrix3d toWorld = motion.at(time).toRotationMatrix();
        const Eigen::Vector3d from = motion.positionAt(time);
        const Eigen::Vector2d shift = camera.lensShiftAt(time);
        for (int x = 0; x < camera.width; ++x) {
            const Colour c = world.look(from, toWorld * camera.ray(x - shift.x(), y - shift.y()),
                                        footprint, time);
            *luma++ = lumaLevel(c.luma);
            if (x % 2 == 0 && y % 2 == 0) {
                *chroma++ = chromaLevel(c.cb);
                *chroma++ = chromaLevel(c.cr);
            }
        }
    }
    return picture;
}

}  // namespace framehold::simulation
