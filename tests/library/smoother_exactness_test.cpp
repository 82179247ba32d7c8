// The smoother and the sensors against their plain formulas: whatever is remembered, shared or
// left out on the way, every result is the same to the last bit.
#include "library/plain_smoother.h"
#include "sensors/rotational_sensor.h"
#include "sensors/sensor_hub.h"
#include "smoothing/iir_smoother.h"

#include <cstring>

using namespace qlx::zpr_framehold;
using namespace zpr_test;

namespace {

/// Compares bit by bit; all that is not a number counts as equal.
bool isSame(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

bool isSame(const Quaternion& a, const Quaternion& b) {
    return isSame(a.w, b.w) && isSame(a.x, b.x) && isSame(a.y, b.y) && isSame(a.z, b.z);
}

/// Samples of a hand-held device: shaking, panning and resting by turns, from sensors that may
/// drop, repeat and disorder what they deliver.
class Device {
public:
    Device(Random& random, int mask) : random_(random), mask_(mask) {
        period_ = 1.0 / std::array{50.0, 100.0, 200.0, 200.0, 500.0}[random.bits() % 5];
        orderly_ = random.integer(0, 2) > 0;
        single_ = random.integer(0, 1) > 0;
        shake_ = random.uniform(0.0, random.integer(0, 1) == 0 ? 0.1 : 0.6);
        pan_ = random.uniform(0.0, 3.0);
        for (double& p : phase_) p = random.uniform(0.0, 6.0);
    }

    template <class Sink>
    void deliverTo(double end, Sink&& sink) {
        while (time_ < end) {
            double step = period_, stamp = time_;
            if (!orderly_) {
                const int event = random_.integer(0, 400);
                if (event == 0) step = random_.uniform(0.0, 0.2);
                if (event == 1) step = 0.0;
                if (event == 2) stamp -= 0.012;
                if (event == 3) stamp = std::nan("");
                if (event < 20) stamp += random_.uniform(0.0, 0.4) * period_;
            }
            advance(step);
            send(stamp, sink);
            time_ += step;
        }
    }

private:
    void advance(double step) {
        if (time_ >= nextTurn_) {
            isPanning_ = random_.integer(0, 4) == 0;
            if (random_.integer(0, 3) == 0) restUntil_ = time_ + random_.uniform(0.3, 0.8);
            nextTurn_ = time_ + random_.uniform(0.2, 1.0);
            for (double& d : direction_) d = random_.uniform(-1.0, 1.0);
        }
        for (int k = 0; k < 3; ++k) {
            rate_[k] = shake_ * std::sin((17.0 + 5.0 * k) * time_ + phase_[k]) +
                       (isPanning_ ? pan_ * direction_[k] : 0.05);
            if (time_ < restUntil_) rate_[k] = 0.0;
        }
        orientation_ *= Quaternion::fromRotationVector(rate_, step);
    }

    template <class Sink>
    void send(double stamp, Sink& sink) {
        const auto rounded = [&](double v) { return single_ ? static_cast<float>(v) : v; };
        const Quaternion& q = orientation_;
        for (const int type : {5, 6}) {
            if ((mask_ & (1 << (type - 1))) == 0) continue;
            sink(sample(type, stamp, rounded(q.x), rounded(q.y), rounded(q.z), rounded(q.w)));
        }
        if ((mask_ & 4) == 0) return;
        const Quaternion up = q.inverse() * Quaternion(0.0, 0.0, 0.0, 9.81) * q;
        if (random_.integer(0, 1) == 0) sink(sample(1, stamp, up.x, up.y, up.z));
        sink(sample(3, stamp, rounded(rate_[0]), rounded(rate_[1]), rounded(rate_[2])));
    }

    Random& random_;
    int mask_;
    bool orderly_, single_;
    double period_, shake_, pan_;
    double phase_[3], direction_[3]{}, rate_[3]{};
    bool isPanning_ = false;
    double time_ = 0.9, nextTurn_ = 0.9, restUntil_ = 0.0;
    Quaternion orientation_{1.0, 0.0, 0.0, 0.0};
};

ZPR_Param randomParam(Random& random) {
    const int kSizes[][2] = {{1920, 1080}, {640, 480}, {360, 640}, {1080, 1920},
                             {256, 256},   {514, 130}, {64, 2},    {1280, 720}};
    const auto& size = kSizes[random.bits() % 8];
    ZPR_Param param = makeParam(size[0], size[1]);
    if (random.integer(0, 7) == 0) {
        param.outputImage.width = size[0] * random.integer(8, 9) / 10;
        param.outputImage.height = size[1] * random.integer(8, 9) / 10 + 1;
    }
    param.fieldOfViewMode = ZPR_FOV_FOCAL_LENGTH;
    param.fieldOfView = random.uniform(0.4, 2.0) * std::max(size[0], size[1]);
    param.cropPercent = std::array{50, 70, 80, 90, 95, 100}[random.bits() % 6];
    param.smoothingLevel = random.integer(-1, 11);
    param.delayFrames = random.integer(0, 1) * random.integer(0, 40);
    param.readoutTime = random.integer(0, 4) == 0 ? 0.0 : random.uniform(0.005, 0.033);
    param.sensorMask = std::array{5, 5, 5, 16, 32, 53, 3}[random.bits() % 7];
    return param;
}

/// The smoother and the plain formulas, fed the same.
class Comparison {
public:
    Comparison(const ZPR_Param& param, Branches& branches)
        : param_(param), hub_(param.sensorMask, lookAhead()), smoother_(&param_, &hub_),
          plainSensors_(param.sensorMask, ringCapacity()), plain_(param_, plainSensors_, branches) {
    }

    void addSample(const ZPR_SensorData& s) {
        if (!hub_.isEnabled(s.type)) return;
        hub_.addSample(s);
        plainSensors_.addSample(s);
    }

    /// time: negative for no new frame. With `output`, the oldest frame is corrected.
    void smoothFrame(double time, bool output) {
        FrameCorrection correction;
        const bool corrected = smoother_.smoothFrame(time, output ? &correction : nullptr);
        ASSERT_EQ(corrected, plain_.smoothFrame(time, output));
        ASSERT_EQ(smoother_.rollingShutter(), plain_.rollingShutter());
        if (!output || !corrected) return;
        ASSERT_TRUE(isSame(smoother_.virtualOrientation(), plain_.smoothed));
        const SharedArray<MeshPoint>& mesh = *correction[0].mesh;
        ASSERT_EQ(mesh.size(), plain_.mesh.size());
        for (uint32_t k = 0; k < mesh.size(); ++k) {
            ASSERT_TRUE(isSame(mesh[k].x, plain_.mesh[k].x) && isSame(mesh[k].y, plain_.mesh[k].y))
                << "node " << k;
        }
    }

    void setLevel(int level) {
        ZPR_Param update = param_;
        update.smoothingLevel = level;
        smoother_.updateParams(update);
        plain_.setLevel(level);
    }

    void reset() {
        hub_.reset();
        plainSensors_.reset();
        smoother_.reset();
        plain_.reset();
    }

private:
    double lookAhead() const { return param_.delayFrames / 30.0; }

    uint32_t ringCapacity() const {
        uint32_t capacity = 256;
        while (capacity < lookAhead() * 200.0 + 200.0) capacity *= 2;
        return capacity;
    }

    ZPR_Param param_;
    SensorHub hub_;
    IIRSmoother smoother_;
    PlainSensors plainSensors_;
    PlainSmoother plain_;
};

/// One recording on the smoother and on the plain formulas.
void compareRecording(Random& random, Branches& branches) {
    const ZPR_Param param = randomParam(random);
    Comparison comparison(param, branches);
    Device device(random, param.sensorMask);

    double t = 1.0;
    int waiting = 0;
    const int frames = random.integer(10, 40) + param.delayFrames;
    for (int i = 0; i < frames || waiting > 0; ++i) {
        SCOPED_TRACE(i);
        const bool draining = i >= frames;
        device.deliverTo(t + random.uniform(-0.01, 0.09),
                         [&](const ZPR_SensorData& s) { comparison.addSample(s); });
        const bool output = draining || waiting == param.delayFrames;
        const double time = draining                     ? -1.0
                            : random.integer(0, 60) == 0 ? t - random.uniform(0.0, 0.3)
                                                         : t;
        ASSERT_NO_FATAL_FAILURE(comparison.smoothFrame(time, output));
        waiting += (draining ? 0 : 1) - (output ? 1 : 0);
        t += random.integer(0, 40) == 0 ? 0.2 : random.uniform(0.032, 0.035);
        if (random.integer(0, 25) == 0) comparison.setLevel(random.integer(1, 10));
        if (random.integer(0, 60) == 0) {
            comparison.reset();
            waiting = 0;
        }
    }
}

/// Frames in any order near the end of the samples, which lies within the readout of some and not
/// of others.
void compareReadoutEnds(Random& random, Branches& branches) {
    ZPR_Param param = randomParam(random);
    param.delayFrames = random.integer(0, 5);
    param.readoutTime = 0.03;
    Comparison comparison(param, branches);
    Device device(random, param.sensorMask);

    double end = 1.0;
    int waiting = 0;
    bool draining = false;
    for (int i = 0; i < 120; ++i) {
        SCOPED_TRACE(i);
        if (random.integer(0, 3) == 0) end += random.uniform(0.0, 0.1);
        device.deliverTo(end, [&](const ZPR_SensorData& s) { comparison.addSample(s); });
        if (random.integer(0, 40) == 0) draining = true;
        if (waiting == 0) draining = false;
        const bool output = draining || waiting == param.delayFrames;
        const double time = draining ? -1.0 : end - random.uniform(0.0, 0.07);
        ASSERT_NO_FATAL_FAILURE(comparison.smoothFrame(time, output));
        waiting += (draining ? 0 : 1) - (output ? 1 : 0);
        if (random.integer(0, 60) == 0) {
            comparison.reset();
            waiting = 0;
        }
    }
}

struct Count {
    const char* name;
    int count, least;
};

void expectAtLeast(std::initializer_list<Count> counts) {
    for (const Count& c : counts) {
        testing::Test::RecordProperty(c.name, c.count);
        EXPECT_GE(c.count, c.least) << c.name;
    }
}

TEST(Exactness, RingMatchesThePlainSearch) {
    TestRandom random(2);
    for (int capacity = 1; capacity < 40; ++capacity) {
        SCOPED_TRACE(capacity);
        RotationVectorSensor sensor(capacity);
        PlainSensors plain(16, static_cast<uint32_t>(capacity));
        double time = 0.0;
        for (int i = 0; i < 12 * capacity + 60; ++i) {
            // Now and then out of order, for longer than the ring reaches back, then in order.
            const bool disorder = i / (2 * capacity) % 3 == 0 && random.integer(0, 3) == 0;
            time += disorder ? random.integer(-3, 0) : random.integer(1, 2);
            const Quaternion q = rotation(0.1 * random.uniform(0.0, 1.0), 1, 0, 0);
            sensor.addSample(sample(5, time, q.x, q.y, q.z, q.w));
            plain.addSample(sample(5, time, q.x, q.y, q.z, q.w));
            double asked = time - random.uniform(-2.0, 2.0 * capacity);
            for (int k = 0; k < 8; ++k, asked += 0.5 * random.integer(-2, 4)) {
                Quaternion a(9, 9, 9, 9), b = a;
                ASSERT_EQ(sensor.getOrientation(asked, a), plain.orientationAt(asked, b));
                ASSERT_TRUE(isSame(a, b)) << "record " << i << " asked for " << asked;
            }
        }
    }
}

TEST(Exactness, SmootherMatchesThePlainFormulas) {
    constexpr int kRecordings = 250;
    TestRandom random(1);
    Branches branches;
    for (int recording = 0; recording < kRecordings; ++recording) {
        SCOPED_TRACE(recording);
        ASSERT_NO_FATAL_FAILURE(compareRecording(random, branches));
    }
    // The recordings reach the branches in which results depend on earlier ones.
    expectAtLeast({{"corrected", branches.corrected, 5000},
                   {"lost", branches.lost, 200},
                   {"caughtUp", branches.caughtUp, 50},
                   {"pulled", branches.pulled, 500},
                   {"lookedAhead", branches.lookedAhead, 500},
                   {"atOnce", branches.atOnce, 300},
                   {"cutMesh", branches.cutMesh, 5}});
}

TEST(Exactness, RowTimingMatchesAsReadoutEndsComeAndGo) {
    constexpr int kRecordings = 50;
    TestRandom random(3);
    Branches branches;
    for (int recording = 0; recording < kRecordings; ++recording) {
        SCOPED_TRACE(recording);
        ASSERT_NO_FATAL_FAILURE(compareReadoutEnds(random, branches));
    }
    expectAtLeast({{"atOnce", branches.atOnce, 500},
                   {"switched", branches.switched, 300},
                   {"carried", branches.carried, 50},
                   {"resetAtOnce", branches.resetAtOnce, 10}});
}

}  // namespace
