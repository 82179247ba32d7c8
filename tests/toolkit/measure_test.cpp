// The figures of `framehold measure` against what is known of made-up clips.
#include "common/angles.h"
#include "measures/clip_measures.h"
#include "measures/cropping_ratio.h"
#include "measures/measure_rows.h"
#include "measures/path_filters.h"
#include "media/video_writer.h"
#include "simulation/camera.h"
#include "simulation/camera_motion.h"
#include "support/temporary_folder.h"

#include <algorithm>
#include <cmath>
#include <functional>

#include <gtest/gtest.h>

using namespace framehold;
using simulation::CameraModel;
using simulation::CameraPath;
using simulation::PathSettings;
using simulation::Picture;

namespace {

constexpr double kCutoff = 1.0;
constexpr int kRate = 30;
constexpr int kFrames = 60;

std::vector<double> sample(int count, const std::function<double(double)>& signal) {
    std::vector<double> values;
    for (int i = 0; i < count; ++i) values.push_back(signal(i / double{kRate}));
    return values;
}

TEST(HighPass, KeepsShakeAndDropsSlowMotion) {
    const std::vector<double> times = sample(300, [](double t) { return t; });
    const auto left = [&](const std::function<double(double)>& signal) {
        std::vector<double> rest = highPass(times, sample(300, signal), kCutoff);
        return rootMeanSquare({rest.begin() + 60, rest.end() - 60});
    };
    for (const double hertz : {0.3, 0.6, 1.0, 2.0, 8.0}) {
        const double u = 2.0 * std::pow(kPi * 0.354 * hertz / kCutoff, 2);
        EXPECT_NEAR(left([=](double t) { return 3.0 * std::sin(2.0 * kPi * hertz * t); }),
                    3.0 / std::sqrt(2.0) * (1.0 - std::exp(-u) * (1.0 + u)), 0.03)
            << hertz << " Hz";
    }
    std::vector<double> uneven;
    std::vector<double> parabola;
    for (int i = 0; i < 90; ++i) {
        const double t = (i + 0.4 * (i % 3)) / kRate;
        uneven.push_back(t);
        parabola.push_back(1e4 + 500.0 * t - 60.0 * t * t);
    }
    for (const double rest : highPass(uneven, parabola, kCutoff)) EXPECT_NEAR(rest, 0.0, 1e-6);
}

TEST(StabilityScore, IsTheShareOfTheFiveLowestFrequencies) {
    const auto wave = [](int periods) {
        return sample(
            200, [=](double t) { return 7.0 + std::sin(2 * kPi * periods * t * kRate / 200); });
    };
    EXPECT_NEAR(stabilityScore({wave(1)}), 1.0, 1e-9);
    EXPECT_NEAR(stabilityScore({wave(5)}), 1.0, 1e-9);
    EXPECT_NEAR(stabilityScore({wave(6)}), 0.0, 1e-9);
    EXPECT_NEAR(stabilityScore({wave(3), wave(50)}), 0.5, 1e-9);
    EXPECT_EQ(stabilityScore({std::vector<double>(100, 0.0)}), 1.0);
}

TEST(MeanDisplacement, IsThatOfAllPixels) {
    constexpr int kWidth = 64;
    constexpr int kHeight = 48;
    constexpr double kShift = 0.7;
    constexpr double kTurn = 0.01;
    constexpr double kGrowth = 0.02;
    double sum = 0.0;
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const double px = x - (kWidth - 1) / 2.0;
            const double py = y - (kHeight - 1) / 2.0;
            sum += std::pow(kShift + kGrowth * px - kTurn * py, 2) +
                   std::pow(kTurn * px + kGrowth * py, 2);
        }
    }
    EXPECT_NEAR(meanDisplacement(kShift, kTurn, kGrowth, kWidth, kHeight),
                std::sqrt(sum / (kWidth * kHeight)), 1e-3);
}

/// Writes made-up clips into a folder of its own.
class MadeUpClip : public testing::Test {
protected:
    MadeUpClip() {
        camera_.width = 480;
        camera_.height = 270;
        camera_.focal = 400.0;
        camera_.readout = 0.0;
    }

    std::string write(const std::string& name, int frames,
                      const std::function<Picture(int)>& make) const {
        VideoSettings settings;
        settings.width = camera_.width;
        settings.height = camera_.height;
        settings.timeBase = {1, kRate};
        settings.frameRate = {kRate, 1};
        settings.quality = 0;  // lossless
        settings.preset = "ultrafast";
        VideoWriter writer({folder_.path(name), true}, settings);
        for (int i = 0; i < frames; ++i) {
            const Picture picture = make(i);
            AvPtr<AVFrame> frame = makeNv12Frame(picture.width, picture.height);
            for (int y = 0; y < picture.height * 3 / 2; ++y) {
                const int plane = y < picture.height ? 0 : 1;
                const int row = plane == 0 ? y : y - picture.height;
                const auto& bytes = plane == 0 ? picture.luma : picture.chroma;
                std::copy_n(bytes.data() + ptrdiff_t{row} * picture.width, picture.width,
                            frame->data[plane] + ptrdiff_t{row} * frame->linesize[plane]);
            }
            frame->pts = i;
            frame->pkt_duration = 1;
            writer.write(*frame);
        }
        writer.finish();
        return folder_.path(name);
    }

    std::string film(const std::string& name, const CameraModel& camera, const CameraPath& path,
                     int frames = kFrames) const {
        return write(name, frames, [&](int i) {
            return renderFrame(simulation::Town(), camera, path, i / double{kRate});
        });
    }

    static ClipMeasures measure(const std::string& clip) {
        return measureClip(clip, kCutoff, [] {});
    }

    /// How far what is in the centre of the picture goes, added up from frame to frame.
    std::vector<Eigen::Vector2d> centrePath(const CameraPath& path) const {
        const Eigen::Vector2d centre(camera_.width / 2.0, camera_.height / 2.0);
        std::vector<Eigen::Vector2d> sums{Eigen::Vector2d::Zero()};
        for (int i = 1; i < kFrames; ++i) {
            const Eigen::Vector3d point =
                path.at((i - 1) / double{kRate}) * camera_.ray(centre.x(), centre.y());
            const Eigen::Vector3d seen = path.at(i / double{kRate}).inverse() * point;
            sums.push_back(sums.back() + camera_.project(seen) - centre);
        }
        return sums;
    }

    /// Root mean square of the fast part of a component of something followed.
    static double shakeOf(const std::vector<double>& values) {
        const auto times = sample(kFrames, [](double t) { return t; });
        return rootMeanSquare(highPass(times, values, kCutoff));
    }

    static PathSettings pathOf(double shake, double pan) {
        PathSettings settings;
        settings.shake = shake;
        settings.pan = pan;
        return settings;
    }

    CameraModel camera_;

private:
    zpr_test::TemporaryFolder folder_;
};

TEST_F(MadeUpClip, ShakeIsWhatTheCameraDid) {
    for (const double degrees : {0.15, 1.0}) {
        const CameraPath path(pathOf(degrees, 0.0));
        std::vector<double> x, y;
        for (const Eigen::Vector2d& at : centrePath(path)) {
            x.push_back(at.x());
            y.push_back(at.y());
        }
        const ClipMeasures clip = measure(film("shaky.mp4", camera_, path));
        const double expected = std::hypot(shakeOf(x), shakeOf(y));
        EXPECT_NEAR(clip.translation, expected, 0.03 * expected + 0.02) << degrees;
        EXPECT_EQ(clip.lostFrames, 0u);
        EXPECT_LT(clip.wobble, 0.05) << degrees;
        EXPECT_LT(clip.scale, 0.001) << degrees;
    }
}

TEST_F(MadeUpClip, RestAndSlowPansAreNoShake) {
    const ClipMeasures still = measure(film("still.mp4", camera_, CameraPath(pathOf(0.0, 0.0))));
    EXPECT_LT(still.translation, 0.01);
    EXPECT_LT(still.wobble, 0.01);
    EXPECT_EQ(still.pictures.border, 0.0);

    PathSettings pan = pathOf(0.0, 20.0);
    pan.panPeriod = 20.0;
    const ClipMeasures panned = measure(film("pan.mp4", camera_, CameraPath(pan)));
    EXPECT_GT(std::fabs(panned.path.x.back()), 100.0);
    EXPECT_LT(panned.translation, 0.2);
    EXPECT_LT(panned.rotation, 1e-3);
}

TEST_F(MadeUpClip, PathOfAPictureWithoutTextureIsUnknown) {
    const ClipMeasures grey = measure(write("grey.mp4", kFrames, [&](int) {
        Picture picture(camera_.width, camera_.height);
        std::fill(picture.luma.begin(), picture.luma.end(), uint8_t{120});
        return picture;
    }));
    EXPECT_FALSE(grey.isPathKnown());
    for (const MeasureRow& row : measureRows()) {
        const std::string key = row.key;
        const bool isOfPixels = key == "fidelity_db" || key.find("border") != std::string::npos;
        EXPECT_EQ(row.value(grey).has_value(), isOfPixels) << key;
        EXPECT_FALSE(remaining(row, grey, grey)) << key;
    }
}

TEST_F(MadeUpClip, WobbleIsWhatRowsDoBeyondThePicture) {
    constexpr double kShear = 4.0;  // pixels from the first to the last row
    constexpr double kHertz = 2.0;
    const Picture steady =
        renderFrame(simulation::Town(), camera_, CameraPath(pathOf(0.0, 0.0)), 0.0);
    const std::string clip = write("sheared.mp4", kFrames, [&](int i) {
        Picture picture = steady;
        const double shear = kShear * std::sin(2.0 * kPi * kHertz * i / kRate);
        for (int y = 0; y < picture.height; ++y) {
            const uint8_t* from = steady.luma.data() + ptrdiff_t{y} * picture.width;
            uint8_t* to = picture.luma.data() + ptrdiff_t{y} * picture.width;
            for (int x = 0; x < picture.width; ++x) {
                const double source = std::clamp(x - shear * (y / double(picture.height) - 0.5),
                                                 0.0, picture.width - 1.001);
                const int left = static_cast<int>(source);
                const double share = source - left;
                to[x] =
                    static_cast<uint8_t>(from[left] * (1.0 - share) + from[left + 1] * share + 0.5);
            }
        }
        return picture;
    });
    const ClipMeasures sheared = measure(clip);
    const double expected = 0.19 * kShear / std::sqrt(2.0);
    EXPECT_NEAR(sheared.wobble, expected, 0.2 * expected);
    EXPECT_LT(sheared.translation, 0.25 * expected);

    // A hand that leaves less than 0.05 pixels with a global shutter, as tested above.
    camera_.readout = 0.03;
    EXPECT_GT(measure(film("rolling.mp4", camera_, CameraPath(pathOf(1.0, 0.0)))).wobble, 0.2);
}

TEST_F(MadeUpClip, CroppingRatioIsOfTheOriginalsArea) {
    const CameraPath path(pathOf(0.3, 0.0));
    const std::string original = film("original.mp4", camera_, path, 24);
    CameraModel closer = camera_;
    closer.focal /= 0.8;
    EXPECT_NEAR(croppingRatio(original, film("closer.mp4", closer, path, 20), 0).value(), 0.64,
                0.01);
    EXPECT_NEAR(croppingRatio(original, original, 0).value(), 1.0, 0.01);
    const std::string blank =
        write("blank.mp4", 12, [this](int) { return Picture(camera_.width, camera_.height); });
    EXPECT_FALSE(croppingRatio(original, blank, 0).has_value());
}

TEST_F(MadeUpClip, FidelityAndBorderAreThoseOfThePixels) {
    constexpr int kBar = 48;  // columns, a tenth of the picture, in every second frame
    constexpr int kStep = 10;
    const std::string clip = write("bars.mp4", 12, [this](int i) {
        Picture picture(camera_.width, camera_.height);
        std::fill(picture.chroma.begin(), picture.chroma.end(), uint8_t{128});
        for (size_t p = 0; p < picture.luma.size(); ++p) {
            const bool isBar = i % 2 == 1 && p % static_cast<size_t>(picture.width) < kBar;
            picture.luma[p] = static_cast<uint8_t>(isBar ? 16 : 100 + kStep * (i % 2));
        }
        return picture;
    });
    const PictureMeasures measures = measurePictures(clip, std::vector<GlobalMotion>(11), [] {});
    const double squares = 0.9 * kStep * kStep + 0.1 * 84.0 * 84.0;
    EXPECT_NEAR(measures.fidelity, 10.0 * std::log10(255.0 * 255.0 / squares), 1e-6);
    EXPECT_NEAR(measures.alignedFidelity, measures.fidelity, 1e-6);
    EXPECT_NEAR(measures.border, 0.05, 1e-9);
    EXPECT_NEAR(measures.largestBorder, 0.1, 1e-9);
    EXPECT_EQ(measure(clip).lostFrames, 11u);  // bars have no corners to follow
    EXPECT_THROW(measure(write("short.mp4", 3,
                               [this](int) { return Picture(camera_.width, camera_.height); })),
                 MediaError);
}

}  // namespace
