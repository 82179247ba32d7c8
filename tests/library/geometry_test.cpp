// The whole library against a simulated camera whose truth is known. The simulation has axes,
// rotations and projection of its own, so that a wrong sign or a swapped axis in the library shows.
#include "simulation/camera.h"
#include "simulation/camera_motion.h"
#include "smoothing/iir_smoother.h"
#include "support/test_support.h"

#include <algorithm>
#include <cmath>

using namespace framehold::simulation;
using Eigen::Quaterniond;
using Eigen::Vector2d;
using Eigen::Vector3d;
using namespace zpr_test;

namespace fh = qlx::zpr_framehold;

namespace {

constexpr double kFps = 30.0;
constexpr int kPitch = 560;  // of the input

/// Directions in the world of the spots that the camera sees: a field wide enough for all pans.
std::vector<Vector3d> spotField() {
    std::vector<Vector3d> spots;
    for (int i = -9; i < 10; ++i) {
        for (int j = -3; j < 4; ++j) {
            // Every other row is moved, so that rows and columns cannot be mistaken.
            const double azimuth = 0.17 * i + (j % 2 == 0 ? 0.07 : 0.0);
            spots.push_back({std::sin(azimuth), std::cos(azimuth), 0.17 * j});
        }
    }
    return spots;
}

/// Draws the spots as a rolling shutter sees them: each row where they are at its own time.
void drawSpots(const CameraModel& camera, const CameraPath& path, double time,
               const std::vector<Vector3d>& spots, Frame& frame) {
    constexpr double kSigma = 2.0, kReach = 4 * kSigma;  // pixels
    frame.fill(16);
    for (int y = 0; y < camera.height; ++y) {
        uint8_t* row = frame.image.plane[0] + ptrdiff_t{y} * kPitch;
        const Quaterniond toDevice = path.at(camera.rowTime(time, y)).conjugate();
        for (const Vector3d& spot : spots) {
            const Vector3d device = toDevice * spot;
            const Vector2d p = camera.project(device);
            if (device.z() > -0.1 || std::fabs(p.y() - y) > kReach) continue;
            const int last = std::min(camera.width - 1, static_cast<int>(p.x() + kReach));
            for (int x = std::max(0, static_cast<int>(p.x() - kReach)); x <= last; ++x) {
                const double level =
                    200.0 * std::exp(-(Vector2d(x, y) - p).squaredNorm() / (2 * kSigma * kSigma));
                row[x] = static_cast<uint8_t>(std::min(255L, row[x] + std::lround(level)));
            }
        }
    }
}

/// The centre of the light near a position, and how much light there is.
double centroid(const Frame& frame, const Vector2d& near, Vector2d& centre) {
    constexpr int kReach = 9;
    double light = 0.0;
    centre = Vector2d::Zero();
    for (int i = -kReach; i <= kReach; ++i) {
        for (int j = -kReach; j <= kReach; ++j) {
            const int x = static_cast<int>(near.x()) + i, y = static_cast<int>(near.y()) + j;
            const double level =
                frame.image.plane[0][ptrdiff_t{y} * frame.image.pitch[0] + x] - 16.0;
            light += level;
            centre += level * Vector2d(x, y);
        }
    }
    centre /= light;
    return light;
}

Quaterniond toEigen(const fh::Quaternion& q) { return Quaterniond(q.w, q.x, q.y, q.z); }

/// Position at which an output pixel's content is shown: the last column of the mesh sits on the
/// last pixel, but counts as the edge of its block, one pixel further on.
double stretched(double x, int width) {
    const double block = width - 128;
    return x < block ? x : block + (x - block) * 128.0 / 127.0;
}

struct Movement {
    const char* name;
    double shake, pan, roll, readout;
    int delay;
    double rate;  // of the sensors
};

void PrintTo(const Movement& m, std::ostream* out) { *out << m.name; }

class Geometry : public testing::TestWithParam<Movement> {};

TEST_P(Geometry, TrackedPointsFollowTheVirtualCamera) {
    const Movement& m = GetParam();
    const CameraModel camera{512, 360, 420.0, m.readout};
    const CameraPath path({m.shake, m.pan, 2.6, m.roll, 1});  // half way through a pan at 1.3 s

    ZPR_Param param = zpr_test::makeParam(camera.width, camera.height);
    param.fieldOfViewMode = ZPR_FOV_FOCAL_LENGTH;
    param.fieldOfView = camera.focal;
    param.readoutTime = camera.readout;
    param.timeOffset = 0.01;
    param.delayFrames = m.delay;
    param.inputImage.pitch[0] = kPitch;
    const Instance instance(param);
    // A smoother of our own, fed the same, tells the orientation of the virtual camera.
    fh::SensorHub hub(param.sensorMask, param.delayFrames / kFps);
    fh::IIRSmoother smoother(&param, &hub);

    const auto readings = readSensors(path, {m.rate, 0.0, 0.0, 1}, 1.0, 3.0);
    const std::vector<Vector3d> spots = spotField();
    Frame input(camera.width, camera.height, kPitch, kPitch), output(camera.width, camera.height);
    size_t fed = 0;
    Quaterniond worldToLibrary = Quaterniond::Identity();
    double worst = 0.0, moved = 0.0;
    int found = 0;
    for (int i = 0; i < 17 + m.delay; ++i) {
        // Of the first row; the timestamp is earlier. The first frame has none that can be used.
        const double time = i == 0 ? 0.0 : 1.1 + i / kFps;
        while (fed < readings.size() &&
               (fed == 0 || readings[fed - 1].time < time + camera.readout)) {
            const SensorReading& r = readings[fed++];
            for (const ZPR_SensorData& s :
                 {sample(ZPR_SENSOR_GRAVITY_1, r.time, r.gravity.x(), r.gravity.y(), r.gravity.z()),
                  sample(ZPR_SENSOR_RATE_1, r.time, r.rate.x(), r.rate.y(), r.rate.z())}) {
                ASSERT_EQ(ZPR_SetSensorData(instance, &s), ZPR_OK);
                hub.addSample(s);
            }
            if (fed == 2) {
                // Gravity says nothing of the heading: where the library's world is turned to.
                fh::Quaternion q;
                ASSERT_TRUE(hub.getOrientation(r.time, q));
                worldToLibrary = toEigen(q) * path.at(r.time).conjugate();
                EXPECT_NEAR((worldToLibrary * Vector3d::UnitZ()).z(), 1.0, 1e-4);
            }
        }
        drawSpots(camera, path, time, spots, input);
        if (m.delay > 0) input.image.pitch[0] = 1;  // not looked at where the frame is copied
        const int code = ZPR_Stabilize(instance, i == 0 ? -3.0 : time - param.timeOffset,
                                       &input.image, &output.image, nullptr);
        fh::FrameCorrection correction;
        if (i < m.delay) {
            ASSERT_EQ(code, ZPR_FRAME_BUFFERED);
            smoother.smoothFrame(time, nullptr);
            continue;
        }
        ASSERT_EQ(code, ZPR_OK);
        ASSERT_EQ(smoother.smoothFrame(time, &correction), i > m.delay);
        if (i == m.delay) continue;
        const Quaterniond toVirtual =
            toEigen(smoother.virtualOrientation()).conjugate() * worldToLibrary;
        const Quaterniond toReal = path.at(time - m.delay / kFps).conjugate();
        const Vector2d principal(camera.width / 2, camera.height / 2);
        for (const Vector3d& spot : spots) {
            const Vector2d seen = camera.project(toVirtual * spot);
            Vector2d zoomed = (seen - principal) * (100.0 / param.cropPercent) + principal;
            zoomed.x() = stretched(zoomed.x(), camera.width);
            const auto inner = [](double v, int size) { return v > 20.0 && v < size - 20.0; };
            if (!inner(zoomed.x(), camera.width) || !inner(zoomed.y(), camera.height)) continue;
            Vector2d centre;
            const double light = centroid(output, zoomed, centre);
            ASSERT_GT(light, 2000.0) << "frame " << i << ": no spot near " << zoomed.transpose();
            worst = std::max(worst, (centre - zoomed).norm());
            moved = std::max(moved, (camera.project(toReal * spot) - seen).norm());
            ++found;
        }
    }
    EXPECT_GT(found, 200);
    EXPECT_LT(worst, 0.5) << "pixels off";
    EXPECT_GT(moved, 10.0) << "pixels: else there was nothing to follow";
    std::printf("%s: %d points, at most %.3f pixels off, moved by up to %.1f pixels\n", m.name,
                found, worst, moved);
}

// A frame loses its orientation when the ring of samples is too short for delay and rate, and then
// shows the plain crop: so the rates that the header names are tried, too.
const Movement kMovements[] = {{"shake_global_shutter", 1.0, 0, 0, 0.0, 0, 200},
                               {"shake_rolling_shutter", 1.0, 0, 0, 0.03, 0, 3500},
                               {"shake_delay_8", 1.0, 0, 0, 0.03, 8, 750},
                               {"shake_delay_15", 1.0, 0, 0, 0.03, 15, 900},
                               {"shake_delay_30", 1.0, 0, 0, 0.03, 30, 450},
                               {"pan_right", 0.3, 2, 0, 0.03, 0, 400},
                               {"pan_left", 0.3, -2, 0, 0.03, 0, 400},
                               {"pan_global_shutter", 0.3, 2, 0, 0.0, 0, 400},
                               {"roll_clockwise", 0.3, 0, 25, 0.03, 0, 400},
                               {"roll_anticlockwise", 0.3, 0, -25, 0.0, 0, 400}};
INSTANTIATE_TEST_SUITE_P(Movements, Geometry, testing::ValuesIn(kMovements),
                         [](const testing::TestParamInfo<Movement>& m) { return m.param.name; });

}  // namespace
