#include "sensors/fusion.h"
#include "sensors/gyroscope_sensor.h"
#include "sensors/rotational_sensor.h"
#include "sensors/sensor_hub.h"
#include "support/test_support.h"

#include <limits>

using namespace qlx::zpr_framehold;
using namespace zpr_test;

namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// Angle between the world's vertical and where a device vector comes to lie.
double tilt(const Quaternion& q, double x, double y, double z) {
    const Quaternion v = q * Quaternion(0.0, x, y, z) * q.inverse();
    return std::acos(v.z / std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z));
}

TEST(Fusion, StartsFromGravity) {
    const double s = std::sqrt(0.5);
    const std::pair<Vector3, Quaternion> kCases[] = {
        {{0, 0, 9.81}, {1, 0, 0, 0}},  {{9.81, 0, 0}, {s, 0, -s, 0}}, {{0, 9.81, 0}, {s, s, 0, 0}},
        {{0, 0, -9.81}, {1, 0, 0, 0}},  // Deliberate: upside down, too
        {{0, 0, 0}, {1, 0, 0, 0}},
    };
    for (const auto& [gravity, expected] : kCases) {
        Complementary fusion(1, 0);
        EXPECT_FALSE(fusion.isReady());
        fusion.addGravity(&gravity.x, 1.0);
        EXPECT_TRUE(fusion.isReady());
        EXPECT_LT(angleBetween(fusion.getOrientation(), expected), 1e-7);
    }
}

TEST(Fusion, IntegratesEachRateOverTheTimeBeforeIt) {
    Complementary fusion(1, 0);
    const double up[3] = {0.0, 0.0, 9.81}, turn[3] = {0.0, 0.0, 0.5};
    ASSERT_TRUE(fusion.addRate(turn, 0.5));  // before gravity: only time passes
    fusion.addGravity(up, 1.0);
    fusion.addRate(turn, 1.5);  // 0.5 s since the sample at 0.5, and 0.5 s up to gravity
    EXPECT_LT(angleBetween(fusion.getOrientation(), rotation(0.5, 0, 0, 1)), 1e-12);
    fusion.addRate(turn, 1.5);  // the same time again: nothing to integrate
    EXPECT_LT(angleBetween(fusion.getOrientation(), rotation(0.5, 0, 0, 1)), 1e-12);
    fusion.addRate(turn, 1.0);  // older: only moves the time back
    fusion.addRate(turn, 2.0);
    EXPECT_LT(angleBetween(fusion.getOrientation(), rotation(1.0, 0, 0, 1)), 1e-12);
}

TEST(Fusion, TakesATenthOfTheTiltFromTrustedGravity) {
    // Length of the sample, integration time before it (Deliberate: no correction from 0), and
    // share of the tilt that is left.
    const double kCases[][3] = {
        {9.81, 1.1, 0.9}, {10.0, 1.1, 0.9}, {10.3, 1.1, 1.0}, {9.42, 1.1, 1.0}, {9.81, 0, 1}};
    for (const auto& [length, startTime, kept] : kCases) {
        SCOPED_TRACE(testing::Message() << length << " from " << startTime);
        Complementary fusion(1, 0);
        const double angle = 0.2;
        const double flat[3] = {0.0, 0.0, 9.81}, still[3] = {0.0, 0.0, 0.0};
        const double tilted[3] = {0.0, length * std::sin(angle), length * std::cos(angle)};
        fusion.addGravity(flat, startTime - 0.1);
        fusion.addRate(still, startTime);
        if (startTime == 0.0) fusion.addGravity(flat, 1.0);
        fusion.addGravity(tilted, 1.15);
        fusion.addRate(still, 1.2);
        const Quaternion q = fusion.getOrientation();
        EXPECT_NEAR(tilt(q, tilted[0], tilted[1], tilted[2]), kept * angle, 1e-9);
        fusion.addRate(still, 1.3);  // no new gravity: no further correction
        EXPECT_LT(angleBetween(q, fusion.getOrientation()), 1e-7);
    }
}

/// A sensor with records at 1, 2, ... s, each turned by 0.1 rad more about z.
void addTurns(RotationVectorSensor& sensor, int first, int last) {
    for (int i = first; i <= last; ++i) {
        const Quaternion q = rotation(0.1 * i, 0, 0, 1);
        sensor.addSample(sample(5, i, q.x, q.y, q.z, q.w));
    }
}

TEST(OrientationRing, AnswersWithinItsSpan) {
    // Capacity, records, oldest and newest time. Later laps use other positions for an index.
    const int kCases[][4] = {{8, 1, 1, 1},   {8, 5, 1, 5},    {8, 8, 1, 8},      {8, 9, 2, 9},
                             {8, 16, 9, 16}, {8, 17, 10, 17}, {8, 100, 93, 100}, {0, 100, 1, 100}};
    for (const auto& [capacity, records, oldest, newest] : kCases) {
        SCOPED_TRACE(testing::Message() << capacity << " records for " << records);
        RotationVectorSensor sensor(capacity);
        addTurns(sensor, 1, records);
        Quaternion q(9, 9, 9, 9);
        EXPECT_FALSE(sensor.getOrientation(oldest - 1e-9, q));
        EXPECT_FALSE(sensor.getOrientation(newest + 1e-9, q));
        EXPECT_FALSE(sensor.getOrientation(kNan, q));
        EXPECT_EQ(q, Quaternion(9, 9, 9, 9));
        for (double t = oldest; t <= newest; t += 0.25) {
            ASSERT_TRUE(sensor.getOrientation(t, q)) << t;
            EXPECT_LT(angleBetween(q, rotation(0.1 * t, 0, 0, 1)), 1e-7) << t;
        }
        sensor.reset();
        EXPECT_FALSE(sensor.getOrientation(newest, q));
        addTurns(sensor, 1, 1);
        EXPECT_TRUE(sensor.getOrientation(1.0, q));
    }
}

TEST(OrientationRing, UnusableAnswersAreNone) {
    const Quaternion good = rotation(0.1, 1, 0, 0);
    const auto record = [&](double t, double scale) {
        return sample(5, t, scale * good.x, 0.0, 0.0, scale * good.w);
    };
    const std::vector<ZPR_SensorData> kBad[] = {
        {sample(5, 1.0, 0, 0, 0, 1), sample(5, 1.0, 1, 0, 0, 0)},  // one time, two orientations
        {record(1.0, 0.0), record(2.0, 0.0)},
        {record(1.0, 1e-300), record(2.0, 1e-300)},
        {record(1.0, 1e300), record(2.0, 1e300)},
    };
    for (const auto& records : kBad) {
        RotationVectorSensor sensor(256);
        for (const ZPR_SensorData& r : records) sensor.addSample(r);
        Quaternion q(7, 7, 7, 7);
        std::vector<Quaternion> list(3);
        EXPECT_FALSE(sensor.getOrientation(1.0, q));
        EXPECT_FALSE(sensor.getRelativeRotation(1.0, 1.0, q));
        EXPECT_EQ(q, Quaternion(7, 7, 7, 7));
        EXPECT_FALSE(sensor.getOrientations({1.0}, list));
        EXPECT_TRUE(list.empty());
        // Good records make the sensor answer again; one alone is answered as it is.
        for (int i = 3; i < 6; ++i) sensor.addSample(record(i, 1.0));
        EXPECT_TRUE(sensor.getOrientation(4.5, q));
        sensor.reset();
        sensor.addSample(record(6, 3.0));
        ASSERT_TRUE(sensor.getOrientation(6.0, q));
        EXPECT_EQ(q, good * 3.0);
    }
}

TEST(OrientationRing, ListsRepeatTheirEnds) {
    RotationVectorSensor sensor(4);
    addTurns(sensor, 1, 6);  // 3 to 6 are left
    std::vector<Quaternion> out;
    const std::vector<double> times = {1.0, 2.5, 3.0, 3.5, 4.0, 4.5, 5.0, 5.5, 6.0, 7.0, 8.0};
    const std::vector<double> expected = {3.0, 3.0, 3.0, 3.5, 4.0, 4.5, 5.0, 5.5, 6.0, 6.0, 6.0};
    ASSERT_TRUE(sensor.getOrientations(times, out));
    ASSERT_EQ(out.size(), times.size());
    for (size_t i = 0; i < out.size(); ++i) {
        EXPECT_LT(angleBetween(out[i], rotation(0.1 * expected[i], 0, 0, 1)), 1e-7) << i;
    }
    EXPECT_FALSE(sensor.getOrientations({6.5}, out));
    EXPECT_FALSE(sensor.getOrientations({1.0, 2.0}, out));
    EXPECT_FALSE(sensor.getOrientations({}, out));
    EXPECT_TRUE(out.empty());
}

TEST(OrientationRing, RelativeRotation) {
    RotationVectorSensor sensor(0);
    addTurns(sensor, 1, 4);
    double m[9];
    ASSERT_TRUE(sensor.getRelativeRotationMatrix(1.5, 3.5, m));
    EXPECT_NEAR(m[3], std::sin(0.2), 1e-9);
    ASSERT_TRUE(sensor.getRotationMatrix(3.0, m));
    EXPECT_NEAR(m[3], std::sin(0.3), 1e-9);
    EXPECT_FALSE(sensor.getRelativeRotationMatrix(0.5, 3.5, m));
    // Deliberate: a list moves on by one record a time, so that 6.5 s is reckoned from 3 s and 4 s.
    const Quaternion q = rotation(2.0, 0, 0, 1);
    sensor.addSample(sample(5, 7.0, q.x, q.y, q.z, q.w));
    std::vector<Quaternion> out;
    ASSERT_TRUE(sensor.getOrientations({1.0, 3.5, 6.5}, out));
    EXPECT_LT(angleBetween(out[2], rotation(0.65, 0, 0, 1)), 1e-7);
}

TEST(GyroscopeSensor, RecordsFromTheFirstGravityOn) {
    GyroscopeSensor sensor(5, 256);
    Quaternion q;
    sensor.addSample(sample(3, 1.0, 0, 0, 1));
    EXPECT_FALSE(sensor.getOrientation(1.0, q));
    sensor.addSample(sample(1, 1.5, 0, 0, 9.81));
    EXPECT_FALSE(sensor.getOrientation(1.5, q));
    sensor.addSample(sample(3, 2.0, 0, 0, 1));
    ASSERT_TRUE(sensor.getOrientation(2.0, q));
    sensor.addSample(sample(3, 2.5, 1e300, 0, 0));  // not taken: leaves no record
    EXPECT_FALSE(sensor.getOrientation(2.5, q));
    // Deliberate: after a reset the orientation goes on from where it was.
    sensor.reset();
    EXPECT_FALSE(sensor.getOrientation(2.0, q));
    sensor.addSample(sample(4, 3.0, 0, 0, 1));
    ASSERT_TRUE(sensor.getOrientation(3.0, q));
    EXPECT_LT(angleBetween(q, rotation(2.0, 0, 0, 1)), 1e-7);

    GyroscopeSensor alone(4, 256, nullptr);  // without a fusion it integrates by itself
    for (int i = 0; i < 4; ++i) alone.addSample(sample(4, 1.0 + i, 0.0, 0.25, 0.0));
    alone.addSample(sample(4, 5.0, 1e300, 0.0, 0.0));
    EXPECT_FALSE(alone.getOrientation(4.5, q));
    ASSERT_TRUE(alone.getOrientation(4.0, q));
    EXPECT_LT(angleBetween(q, rotation(0.75, 0, 1, 0)), 1e-12);
}

TEST(SensorHub, PrefersRotationVectorsAndLowerTypes) {
    // A mask, and the type that then answers queries, 0 if none.
    const std::pair<int, int> kCases[] = {{1, 0},  {2, 0},  {3, 0},  {4, 3},  {5, 3}, {10, 4},
                                          {16, 5}, {32, 6}, {48, 5}, {63, 5}, {47, 6}};
    const Quaternion kTurned = rotation(0.5, 0, 0, 1), kFive(0, 1, 0, 0), kSix(0, 0, 1, 0);
    for (const auto& [mask, answering] : kCases) {
        SCOPED_TRACE(mask);
        SensorHub hub(mask, 0.0);
        Quaternion q;
        EXPECT_FALSE(hub.getOrientation(1.0, q));
        for (int type = 2; type <= 4; ++type) EXPECT_EQ(hub.getSensor(type), hub.getSensor(1));
        hub.addSample(sample(1, 0.5, 0, 0, 9.81));
        for (const ZPR_SensorData& s : {sample(3, 1.0, 0, 0, 1), sample(4, 1.0, 0, 0, 1),
                                        sample(5, 1.0, 1, 0, 0), sample(6, 1.0, 0, 1, 0)}) {
            if (hub.isEnabled(s.type)) hub.addSample(s);
        }
        ASSERT_EQ(hub.getOrientation(1.0, q), answering != 0);
        if (answering == 0) continue;
        const Quaternion& expected = answering == 5 ? kFive : answering == 6 ? kSix : kTurned;
        EXPECT_LT(angleBetween(q, expected), 1e-7);
        hub.reset();
        EXPECT_FALSE(hub.getOrientation(1.0, q));
    }
}

TEST(SensorHub, RingReachesAsFarAsTheLookAheadNeeds) {
    for (const auto& [lookAhead, capacity] :
         {std::pair{0.0, 256}, {0.27, 256}, {0.3, 512}, {1.56, 512}, {1.6, 1024}}) {
        SCOPED_TRACE(lookAhead);
        SensorHub hub(16, lookAhead);
        for (int i = 0; i < 3000; ++i) hub.addSample(sample(5, i, 0, 0, 0, 1));
        Quaternion q;
        EXPECT_TRUE(hub.getOrientation(3000.0 - capacity, q));
        EXPECT_FALSE(hub.getOrientation(3000.0 - capacity - 1.0, q));
    }
    SensorHub endless(16, 1e9);
    EXPECT_THROW(endless.addSample(sample(5, 1.0, 0, 0, 0, 1)), std::bad_alloc);
}

TEST(SensorHub, DropsSamplesThatAreNotFinite) {
    for (const double bad : {kNan, kInfinity, -kInfinity}) {
        for (int position = 0; position < 5; ++position) {
            SensorHub hub(16, 0.0);
            for (const double t : {0.5, 1.0}) hub.addSample(sample(5, t, 0, 0, 0, 1));
            ZPR_SensorData orientation = sample(5, 1.0, 0, 0, 0, 1);
            (position == 4 ? orientation.timestamp : orientation.value[position]) = bad;
            hub.addSample(orientation);
            Quaternion q;
            EXPECT_TRUE(hub.getOrientation(0.75, q));
        }
        SensorHub hub(5, 0.0);  // the fourth value of a rate is not used
        for (const auto& s : {sample(1, 0.5, 0, 0, 9, bad), sample(3, 1, 0, 0, 0, bad)})
            hub.addSample(s);
        Quaternion q;
        EXPECT_TRUE(hub.getOrientation(1.0, q));
    }
}

}  // namespace
