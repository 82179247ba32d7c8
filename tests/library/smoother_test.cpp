#include "smoothing/crop_bound.h"
#include "smoothing/iir_smoother.h"
#include "support/test_support.h"

#include <cstring>
#include <functional>

using namespace qlx::zpr_framehold;
using namespace zpr_test;

namespace {

// Access to the frame counts, as explicit instantiation gives it, so that a test needs not run for
// years. Defined for the base's protected members.
template <uint32_t Smoother::*kRead, uint32_t Smoother::*kWrite>
struct FrameCounts {
    friend void startCountsAt(Smoother& smoother, uint32_t count) {
        smoother.*kRead = count;
        smoother.*kWrite = count;
    }
};
void startCountsAt(Smoother& smoother, uint32_t count);
template struct FrameCounts<&Smoother::readCount_, &Smoother::writeCount_>;

constexpr double kFrame = 1.0 / 30.0;
const Quaternion kIdentity(1.0, 0.0, 0.0, 0.0);

/// A smoother whose measured orientations are given by a function of time.
class Fixture {
public:
    using Path = std::function<Quaternion(double)>;

    explicit Fixture(
        const ZPR_Param& param, Path path = [](double) { return kIdentity; })
        : param_(param), path_(std::move(path)), hub_(16, param.delayFrames / 30.0),
          smoother_(&param_, &hub_) {}

    /// Feeds orientation records up to `end`, 200 per second from 1 s on.
    void feedTo(double end) {
        for (; 1.0 + fed_ * 0.005 <= end; ++fed_) {
            const double t = 1.0 + fed_ * 0.005;
            const Quaternion q = path_(t);
            hub_.addSample(sample(5, t, q.x, q.y, q.z, q.w));
        }
    }

    /// Takes in a frame without asking for a correction.
    void fill(double t) {
        feedTo(t + kPastFrame);
        EXPECT_TRUE(smoother_.smoothFrame(t, nullptr));
    }

    /// Takes in a frame; the mesh of the oldest one, empty if that has no orientation.
    std::vector<MeshPoint> smooth(double t) {
        feedTo(t + kPastFrame);
        FrameCorrection correction;
        if (!smoother_.smoothFrame(t, &correction)) return {};
        return meshOf(correction);
    }

    std::vector<MeshPoint> fallback() {
        FrameCorrection correction;
        return meshOf(*smoother_.fallbackCorrection(&correction));
    }

    IIRSmoother& smoother() { return smoother_; }

private:
    static std::vector<MeshPoint> meshOf(const FrameCorrection& correction) {
        EXPECT_EQ(correction.size(), 1u);
        return {correction[0].mesh->begin(), correction[0].mesh->end()};
    }

    static constexpr double kPastFrame = 0.06;

    ZPR_Param param_;
    Path path_;
    SensorHub hub_;
    IIRSmoother smoother_;
    int fed_ = 0;
};

ZPR_Param rotationParam(int width, int height) {
    ZPR_Param param = makeParam(width, height);
    param.sensorMask = 16;
    param.fieldOfViewMode = ZPR_FOV_FOCAL_LENGTH;
    param.fieldOfView = 500.0;
    return param;
}

TEST(FallbackCorrection, IsTheCropAndZoom) {
    struct Case {
        int inWidth, inHeight, outWidth, outHeight, percent;
        size_t nodes;
        MeshPoint first;
        double scale;
    };
    const Case kCases[] = {
        {1920, 1080, 1920, 1080, 80, 160, {192, 108}, 0.8},
        {640, 480, 640, 480, 100, 30, {0, 0}, 1.0},
        // Deliberate: smaller outputs are shifted by the unscaled margin, here 100 and 75.
        {400, 300, 200, 150, 80, 9, {100 * 1.6 - 160 + 100, 75 * 1.6 - 120 + 75}, 1.6},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.outWidth);
        ZPR_Param param = rotationParam(c.inWidth, c.inHeight);
        param.outputImage.width = c.outWidth;
        param.outputImage.height = c.outHeight;
        param.cropPercent = c.percent;
        Fixture fixture(param);
        const auto mesh = fixture.fallback();
        ASSERT_EQ(mesh.size(), c.nodes);
        EXPECT_NEAR(mesh.front().x, c.first.x, 1e-9);
        EXPECT_NEAR(mesh.front().y, c.first.y, 1e-9);
        EXPECT_NEAR(mesh.back().x, c.first.x + c.scale * (c.outWidth - 1), 1e-9);
        EXPECT_NEAR(mesh.back().y, c.first.y + c.scale * (c.outHeight - 1), 1e-9);
        EXPECT_EQ(fixture.smoother().fallbackCorrection(nullptr), nullptr);
    }
}

TEST(IIRSmoother, ViewAngleAndFocalLengthAgree) {
    // f = span / 2 / tan(angle / 2), so these are all 500 pixels for 800 x 600.
    const auto angle = [](double tangent) { return 360.0 / M_PI * std::atan(tangent); };
    std::vector<MeshPoint> expected;
    for (const auto& [mode, view] :
         {std::pair{4, 500.0}, {1, angle(0.8)}, {2, angle(0.6)}, {3, angle(1.0)}}) {
        SCOPED_TRACE(mode);
        ZPR_Param param = rotationParam(800, 600);
        param.fieldOfViewMode = mode;
        param.fieldOfView = view;
        Fixture fixture(param, [](double t) { return rotation(0.05 * t, 0.6, 0.64, 0.48); });
        fixture.smooth(1.5);
        const auto mesh = fixture.smooth(1.7);
        if (expected.empty()) expected = mesh;
        EXPECT_GT(std::fabs(mesh[0].x - fixture.fallback()[0].x), 1.0);
        for (size_t i = 0; i < mesh.size(); ++i) {
            EXPECT_NEAR(std::hypot(mesh[i].x - expected[i].x, mesh[i].y - expected[i].y), 0.0, 1e-6)
                << i;
        }
    }
}

TEST(IIRSmoother, LevelSetsTheShareOfTheOldOrientation) {
    const std::pair<int, double> kCases[] = {{INT32_MIN, 0.8}, {0, 0.8},         {1, 0.8},
                                             {2, 0.82},        {9, 0.96},        {10, 0.98},
                                             {11, 0.98},       {INT32_MAX, 0.98}};
    for (const auto& [level, alpha] : kCases) {
        SCOPED_TRACE(level);
        const Quaternion turned = rotation(0.02, 0, 0, 1);
        Fixture fixture(rotationParam(800, 600),
                        [&](double t) { return t < 1.5 ? kIdentity : turned; });
        ZPR_Param update{};
        update.smoothingLevel = level;
        fixture.smoother().updateParams(update);
        fixture.smooth(1.2);
        fixture.smooth(1.8);
        EXPECT_NEAR(angleBetween(fixture.smoother().virtualOrientation(), turned), 0.02 * alpha,
                    1e-9);
        fixture.smoother().reset();                // starts from the next frame
        EXPECT_TRUE(fixture.smooth(0.5).empty());  // from before the first sample
        fixture.smooth(2.0);
        EXPECT_LT(angleBetween(fixture.smoother().virtualOrientation(), turned), 1e-9);
    }
}

TEST(IIRSmoother, DeliberateCatchUpKeepsNoLength) {
    // The device turns by 0.1 rad, then rests; the virtual camera is off it for a long time.
    ZPR_Param param = rotationParam(800, 600);
    param.smoothingLevel = 10;
    Fixture fixture(param, [](double t) { return rotation(t < 1.07 ? 0.0 : 0.1, 0, 0, 1); });
    const Quaternion target = rotation(0.1, 0, 0, 1);
    Quaternion virtualBefore = kIdentity, step = kIdentity;
    int stillFrames = 0;
    for (int i = 0; i < 12; ++i) {
        const double t = 1.05 + i * kFrame;
        ASSERT_FALSE(fixture.smooth(t).empty());
        // What follows from the state before, without crop limit and look-ahead taking part.
        Quaternion expected = i == 0 ? kIdentity : virtualBefore;
        stillFrames = i >= 2 ? stillFrames + 1 : 0;
        if (stillFrames > 4) expected = expected * (step * 0.8910065241883678);
        expected = slerp(i == 0 ? kIdentity : target, expected, 0.98);
        const Quaternion now = fixture.smoother().virtualOrientation();
        EXPECT_NEAR(now.w, expected.w, 1e-9) << i;
        EXPECT_NEAR(now.z, expected.z, 1e-9) << i;
        step = virtualBefore.inverse() * now;
        virtualBefore = now;
    }
}

TEST(IIRSmoother, OutputStaysInsideTheInputAndTurnsLess) {
    for (int run = 0; run < 8; ++run) {
        SCOPED_TRACE(run);
        ZPR_Param param = rotationParam(640, 480);
        param.delayFrames = run / 4 * 6;
        param.readoutTime = run % 2 == 0 ? 0.02 : 0.0;
        param.smoothingLevel = 10;
        const double size = run % 4 < 2 ? 0.015 : 0.1;
        const auto path = [&](double t) {
            return rotation(size * std::sin(19.0 * t + run), 1, 0, 0) *
                   rotation(size * std::sin(17.0 * t), 0, 1, 0) *
                   rotation(size * std::sin(15.0 * t), 0, 0, 1);
        };
        Fixture fixture(param, path);
        double turned = 0.0, turnedDevice = 0.0;
        for (int i = 0; i < 45; ++i) {
            const double t = 1.1 + i * kFrame;
            if (i < param.delayFrames) {
                fixture.fill(t);
                continue;
            }
            const Quaternion last = fixture.smoother().virtualOrientation();
            const auto mesh = fixture.smooth(t);
            ASSERT_FALSE(mesh.empty());
            for (const MeshPoint& p : mesh) {
                ASSERT_TRUE(p.x > -1e-6 && p.x < 639.0 + 1e-6) << p.x;
                ASSERT_TRUE(p.y > -1e-6 && p.y < 479.0 + 1e-6) << p.y;
            }
            if (i == param.delayFrames) continue;
            turned += angleBetween(last, fixture.smoother().virtualOrientation());
            turnedDevice += angleBetween(path(t - kFrame), path(t));
        }
        EXPECT_LT(turned, (size < 0.03 ? 0.2 : 1.0) * turnedDevice);
    }
}

TEST(IIRSmoother, LookAheadActsBeforeTheTurn) {
    // A sudden turn at 2 s that leads out of the crop. With coming frames known the virtual camera
    // moves before it.
    double lead[2];
    for (const int delay : {0, 10}) {
        ZPR_Param param = rotationParam(640, 480);
        param.delayFrames = delay;
        Fixture fixture(param, [](double t) {
            return rotation(t < 2.0 ? 0.0 : std::min(2.0 * (t - 2.0), 0.6), 1, 0, 0);
        });
        // The frame corrected last is at 1.92 s in both cases.
        for (int i = 0; i < 28 + delay; ++i) {
            const double t = 1.02 + i * kFrame;
            i < delay ? fixture.fill(t) : static_cast<void>(fixture.smooth(t));
        }
        lead[delay > 0] = angleBetween(fixture.smoother().virtualOrientation(), kIdentity);
    }
    EXPECT_LT(lead[0], 1e-7);
    EXPECT_GT(lead[1], 1e-3);
}

TEST(IIRSmoother, GoesOnAsBeforeWhenFrameCountsEnd) {
    for (const int delay : {1, 2, 4, 6, 30}) {
        const auto run = [&](uint32_t start) {
            ZPR_Param param = rotationParam(1280, 720);
            param.delayFrames = delay;
            Fixture fixture(param, [](double t) {
                return rotation(0.1 * std::sin(9.0 * t) + 0.05 * std::sin(23.0 * t), 0.6, 0.8, 0.0);
            });
            startCountsAt(fixture.smoother(), start);
            std::vector<std::vector<MeshPoint>> meshes;
            double t = 1.1;
            for (int i = 0; i < delay; ++i, t += kFrame) fixture.fill(t);
            for (int i = 0; i < 60; ++i, t += kFrame) meshes.push_back(fixture.smooth(t));
            return meshes;
        };
        const auto usual = run(0);
        EXPECT_FALSE(usual.back().empty());
        // Multiples of the ring's size, so that the frames lie in the same entries.
        const auto ring = static_cast<uint32_t>(delay) + 1;
        for (const uint64_t end : {uint64_t{1} << 31, uint64_t{1} << 32}) {
            const auto start = static_cast<uint32_t>((end - 39 - ring) / ring * ring);
            const auto late = run(start);
            ASSERT_EQ(late.size(), usual.size());
            for (size_t i = 0; i < usual.size(); ++i) {
                ASSERT_EQ(late[i].size(), usual[i].size());
                EXPECT_EQ(std::memcmp(late[i].data(), usual[i].data(),
                                      usual[i].size() * sizeof(MeshPoint)),
                          0)
                    << "delay " << delay << ", from count " << start << ", frame " << i;
            }
        }
    }
}

TEST(CropBound, HoldsForASteadyHandOnly) {
    const double nan = std::nan("");
    struct Case {
        const char* name;
        double turn, offX, offZ;  // of the device in rad/s, of the virtual camera in rad
        int percent;
        double time, readout, scale;  // of the frame; of the records
        bool holds;
    };
    // A crop of 80 percent leaves 192 pixels at the sides, 0.128 rad at the focal length of 1500.
    const Case kCases[] = {
        {"steady", 0.2, 0.02, 0.01, 80, 1.5, 0.03, 1.0, true},
        {"all rows at once", 0.2, 0.02, 0.01, 80, 1.5, 0.0, 1.0, true},
        {"more than the margin", 0.2, 0.14, 0.0, 80, 1.5, 0.03, 1.0, false},
        {"rolled far", 0.0, 0.0, 0.2, 80, 1.5, 0.03, 1.0, false},
        {"fast", 8.0, 0.0, 0.0, 80, 1.5, 0.03, 1.0, false},
        {"no margin", 0.0, 0.0, 0.0, 100, 1.5, 0.03, 1.0, false},
        {"not yet known", 0.2, 0.02, 0.01, 80, 1.99, 0.03, 1.0, false},
        {"before the records", 0.2, 0.02, 0.01, 80, 0.99, 0.03, 1.0, false},
        {"single precision", 0.2, 0.02, 0.01, 80, 1.5, 0.03, 1.0 + 1e-7, false},
        {"no orientation", 0.2, nan, 0.01, 80, 1.5, 0.03, 1.0, false},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        ZPR_Param param = rotationParam(1920, 1080);
        param.fieldOfView = 1500.0;
        param.cropPercent = c.percent;
        SensorHub hub(16, 0.0);
        const auto deviceAt = [&](double t) { return rotation(c.turn * (t - 1.5), 0, 1, 0); };
        for (int i = 0; i <= 200; ++i) {
            const Quaternion q = deviceAt(1.0 + 0.005 * i) * c.scale;
            hub.addSample(sample(5, 1.0 + 0.005 * i, q.x, q.y, q.z, q.w));
        }
        const Quaternion off = rotation(c.offX, 1, 0, 0) * rotation(c.offZ, 0, 0, 1);
        const CropBound bound{ViewGeometry(param)};
        EXPECT_EQ(
            bound.provesInside(hub, deviceAt(c.time) * off, {c.time, c.readout, 1080.0, true}),
            c.holds);
    }
}

TEST(CorrectionMesh, DeliberateClampTakesTheRowCountForAColumn) {
    // The whole input is shown, shifted out of it by the unscaled margin: nodes on the right edge
    // lie beyond the last input pixel. Only a square mesh has its last column clamped.
    for (const auto& [width, height] : {std::pair{256, 256}, {384, 256}, {256, 384}}) {
        SCOPED_TRACE(testing::Message() << width << 'x' << height);
        ZPR_Param param = rotationParam(width * 10 / 8, height * 10 / 8);
        param.outputImage.width = width;
        param.outputImage.height = height;
        param.cropPercent = 100;
        Fixture fixture(param);
        const auto mesh = fixture.smooth(1.5), plain = fixture.fallback();
        ASSERT_EQ(mesh.size(), plain.size());
        const double right = param.inputImage.width - 1, bottom = param.inputImage.height - 1;
        for (size_t j = 1; j <= static_cast<size_t>(width) / 128 + 1; ++j) {
            EXPECT_LE(mesh[mesh.size() - j].y, bottom);
            EXPECT_EQ(plain[plain.size() - j].x > right, j == 1);
            EXPECT_EQ(mesh[mesh.size() - j].x > right, j == 1 && width != height) << j;
        }
    }
}

TEST(CorrectionMesh, FailedRowIsCompletedAndLaterRowsKept) {
    // Frames out of order turn on per-row timing for a frame whose lower rows have no data yet.
    // The picture is rolled, so that one row of the mesh reaches later input rows on its left.
    ZPR_Param param = rotationParam(512, 512);
    param.delayFrames = 2;
    param.readoutTime = 0.0296;
    Fixture fixture(param, [](double t) { return rotation(t < 1.3 ? 0.0 : -0.06, 0.1, 0, 0.995); });
    fixture.feedTo(1.5151);
    IIRSmoother& smoother = fixture.smoother();
    FrameCorrection correction;
    for (const double t : {1.2, 1.5}) smoother.smoothFrame(t, nullptr);
    smoother.smoothFrame(1.2, &correction);
    const auto kept = fixture.fallback();
    ASSERT_TRUE(smoother.smoothFrame(1.25, &correction));
    const SharedArray<MeshPoint>& mesh = *correction[0].mesh;
    ASSERT_EQ(mesh.size(), kept.size());
    std::string rows;
    for (uint32_t i = 0; i < mesh.size(); ++i) {
        rows += mesh[i].x == kept[i].x && mesh[i].y == kept[i].y ? 'k' : 'm';
        if (i % 5 == 4) rows += ' ';
    }
    EXPECT_EQ(rows, "mmmmm mmmmm kkmmm kkkkk kkkkk ");
}

}  // namespace
