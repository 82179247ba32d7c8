// Tracks that pictures refine, from features that are made up: no video is decoded.

#include "path/picture_refinement.h"

#include "path/rotation_vector.h"
#include "support/random.h"

#include <cmath>
#include <ostream>
#include <vector>

#include <gtest/gtest.h>

namespace framehold {
namespace {

constexpr double kFramesPerSecond = 30.0;
constexpr int kFrames = 120;
constexpr double kLogRate = 400.0;  // Hz
constexpr double kFocal = 500.0;    // pixels

struct RefinementCase {
    const char* name;
    bool isLogged;
    double missing;            // radians, amplitude of shake that the log does not hold
    double bias;               // rad/s, of the log
    double pan;                // rad/s
    double readout;            // seconds
    double noise;              // pixels, of a feature's position
    double moving;             // share of the features
    double zoom;               // growth of the picture per frame, as a share
    double largestStepError;   // pixels, root mean square over pairs of frames
    double largestTotalError;  // radians, of the rotation from the first to the last frame
    bool findsReadout = false;
    double jitter = 0.0;     // pixels, of all features together from frame to frame
    double vibration = 0.0;  // rad/s, noise of the log
    double steps = 0.0;      // amplitude of the picture's size, by steps back and forth
};

std::ostream& operator<<(std::ostream& stream, const RefinementCase& c) { return stream << c.name; }

/// A camera in a scene of features far away, and its log.
class Scene {
public:
    explicit Scene(const RefinementCase& c)
        : case_(c), camera_{640, 360, kFocal, c.readout}, hand_(ratesOf(c.pan, 0.0)) {}

    const PinholeCamera& camera() const { return camera_; }

    OrientationTrack logged() const {
        if (!case_.isLogged) return {};
        std::vector<MotionSample> rates = ratesOf(case_.pan, case_.bias);
        zpr_test::Random random(3);
        for (MotionSample& rate : rates) {
            for (double& r : rate.value) r += random.uniform(-case_.vibration, case_.vibration);
        }
        return OrientationTrack(GyroPath(rates));
    }

    /// Orientation of the camera.
    Eigen::Quaterniond at(double time) const {
        const Eigen::Vector3d step(std::sin(9.0 * time), std::cos(14.0 * time),
                                   std::sin(11.0 * time));
        return hand_.at(time) * rotationBy(case_.missing * step);
    }

    /// Logarithm of the size of far things, but for the even growth.
    double logSize(double time) const { return case_.steps * std::sin(12.0 * time); }

    std::vector<FeatureMotion> motions(double from, double to, zpr_test::Random& random) const {
        const Eigen::Vector2d centre(camera_.width / 2.0, camera_.height / 2.0);
        const Eigen::Vector2d half(0.5, 0.5);  // the first pixel's centre is (0, 0) for features
        const double noise = std::sqrt(3.0) * case_.noise;
        const double jitter = std::sqrt(3.0) * case_.jitter;
        const Eigen::Vector2d shift(random.uniform(-jitter, jitter),
                                    random.uniform(-jitter, jitter));
        const double growth = (1.0 + case_.zoom) * std::exp(logSize(to) - logSize(from));
        std::vector<FeatureMotion> result;
        for (int i = 0; i < 250; ++i) {
            const bool moves = random.uniform(0.0, 1.0) < case_.moving;
            // Moving features are in one half of the picture, as those of a car are.
            const Eigen::Vector2d start(random.uniform(0.0, moves ? 0.5 : 1.0) * camera_.width,
                                        random.uniform(0.0, 1.0) * camera_.height);
            const Eigen::Vector3d direction =
                at(camera_.rowTime(from, start.y())) * camera_.ray(start);
            Eigen::Vector2d end = start;
            for (int round = 0; round < 8; ++round) {
                end = camera_.project(at(camera_.rowTime(to, end.y())).conjugate() * direction);
            }
            end = centre + growth * (end - centre);
            if (moves) end += Eigen::Vector2d(random.uniform(5.0, 7.0), -3.0);
            end += shift;
            end += Eigen::Vector2d(random.uniform(-noise, noise), random.uniform(-noise, noise));
            const Eigen::Vector2f a = (start - half).cast<float>();
            const Eigen::Vector2f b = (end - half).cast<float>();
            result.push_back({a.x(), a.y(), b.x(), b.y()});
        }
        return result;
    }

private:
    static std::vector<MotionSample> ratesOf(double pan, double bias) {
        std::vector<MotionSample> rates;
        for (int i = 0; i < kLogRate * (kFrames / kFramesPerSecond + 1.0); ++i) {
            const double t = i / kLogRate;
            rates.push_back({t,
                             {pan + bias + 0.2 * std::sin(20.0 * t), 0.3 * std::cos(13.0 * t),
                              bias + 0.1 * std::sin(17.0 * t)}});
        }
        return rates;
    }

    RefinementCase case_;
    PinholeCamera camera_;
    GyroPath hand_;
};

class PictureRefinementTest : public testing::TestWithParam<RefinementCase> {};

TEST_P(PictureRefinementTest, FollowsTheCamera) {
    const RefinementCase& c = GetParam();
    const Scene scene(c);
    zpr_test::Random random(7);
    PinholeCamera known = scene.camera();
    if (c.findsReadout) known.readout = 0.0;
    PictureRefinement refinement(known, scene.logged());
    const auto frameTime = [](int frame) { return 0.2 + frame / kFramesPerSecond; };
    for (int i = 0; i + 1 < kFrames; ++i) {
        refinement.add(frameTime(i), frameTime(i + 1),
                       scene.motions(frameTime(i), frameTime(i + 1), random));
    }
    if (c.findsReadout) {
        EXPECT_NEAR(refinement.findReadout(), c.readout, 0.002);
    }
    const OrientationTrack track = refinement.refined();
    const auto turn = [&](const auto& path, int from, int to) {
        const double middle = c.readout / 2.0;
        return Eigen::Quaterniond(path.at(frameTime(from) + middle).conjugate() *
                                  path.at(frameTime(to) + middle));
    };
    double sum = 0.0;
    for (int i = 0; i + 1 < kFrames; ++i) {
        sum += turn(scene, i, i + 1).angularDistance(turn(track, i, i + 1)) *
               turn(scene, i, i + 1).angularDistance(turn(track, i, i + 1));
    }
    EXPECT_LT(kFocal * std::sqrt(sum / (kFrames - 1)), c.largestStepError);
    EXPECT_LT(turn(scene, 0, kFrames - 1).angularDistance(turn(track, 0, kFrames - 1)),
              c.largestTotalError);
    std::vector<double> times;
    for (int i = 0; i < kFrames; ++i) times.push_back(frameTime(i));
    const std::vector<double> zooms = refinement.zooms(times, 1.0);
    ASSERT_EQ(zooms.size(), times.size());
    const double largestByChance = c.jitter > 0.0 ? 5e-4 : 0.0;
    double seen = 0.0;  // of the steps
    for (size_t i = 0; i < times.size(); ++i) {
        seen += std::pow(std::log(zooms[i]) + scene.logSize(times[i]), 2.0) / kFrames;
        // Even growth and what the log lacks are no reason for a zoom.
        if (c.steps == 0.0) {
            EXPECT_NEAR(zooms[i], 1.0, largestByChance) << i;
        }
    }
    if (c.steps > 0.0) {
        EXPECT_LT(std::sqrt(seen), 0.2 * c.steps);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Clips, PictureRefinementTest,
    testing::Values(
        // Name, log, missing, bias, pan, readout, noise, moving, zoom; step and total error.
        RefinementCase{"perfect log", true, 0, 0, 0.5, 0.03, 0, 0, 0, 1e-4, 1e-5},
        RefinementCase{"perfect log, noise", true, 0, 0, 0.5, 0.03, 0.2, 0, 0, 0.01, 2e-3},
        RefinementCase{"missing shake", true, 0.01, 0, 0, 0.03, 0.1, 0, 0, 0.04, 3e-3},
        RefinementCase{"near things", true, 0, 0, 0, 0.03, 0.1, 0, 0, 0.1, 3e-3, false, 0.5},
        RefinementCase{"vibration", true, 0, 0, 0, 0.03, 0.1, 0, 0, 0.25, 3e-3, false, 0, 0.1},
        RefinementCase{"bias", true, 0, 0.02, 0, 0.03, 0.2, 0, 0, 0.03, 3e-3},
        RefinementCase{"moving things", true, 0.01, 0, 0, 0.03, 0.1, 0.3, 0, 0.04, 3e-3},
        RefinementCase{"no log", false, 0.01, 0, 0, 0, 0.1, 0.3, 0, 0.05, 3e-3},
        RefinementCase{"no log, rows", false, 0.01, 0, 0, 0.03, 0.1, 0.3, 0, 0.08, 3e-3},
        RefinementCase{"readout", false, 0.01, 0, 0, 0.02, 0.1, 0.3, 0, 0.08, 3e-3, true},
        RefinementCase{"no readout", false, 0.01, 0, 0, 0, 0.1, 0.3, 0, 0.05, 3e-3, true},
        RefinementCase{"no log, forward", false, 0.01, 0, 0, 0, 0.1, 0, 0.02, 0.05, 3e-3},
        RefinementCase{"steps", true, 0.01, 0, 0, 0.03, 0.1, 0.3, 0.002, 0.04, 3e-3, false, 0, 0,
                       0.004},
        RefinementCase{"steps, no log", false, 0.01, 0, 0, 0.03, 0.1, 0, 0, 0.08, 3e-3, false, 0, 0,
                       0.004},
        // 3.1 rad in 4 s.
        RefinementCase{"no log, pan", false, 0, 0, 0.8, 0, 0.1, 0, 0, 0.05, 5e-3}),
    [](const auto& tested) {
        std::string name;
        for (const char* c = tested.param.name; *c != '\0'; ++c) {
            if (std::isalnum(static_cast<unsigned char>(*c)) != 0) name += *c;
        }
        return name;
    });

}  // namespace
}  // namespace framehold
