// Telemetry in videos and messages of phone recorders: every kind, and broken ones.
#include "common/library_constants.h"
#include "common/text_fields.h"
#include "media/metadata_types.h"
#include "motion/formats/telemetry_formats.h"
#include "motion/motion_log_reader.h"
#include "support/temporary_folder.h"
#include "toolkit/sample_logs.h"
#include "toolkit/telemetry_builder.h"

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

using namespace framehold;
using namespace zpr_test;

namespace {

TEST(Gpmf, SamplesHaveUnitsAxesAndEvenTimes) {
    // Packets come a little early or late; the third is missing.
    const std::vector<TelemetryPacket> packets = {{1.0, 0.1, gpmfPacket(10)},
                                                  {1.102, 0.098, gpmfPacket(20)},
                                                  {1.3, 0.1, gpmfPacket(40)},
                                                  {1.398, 0.1, gpmfPacket(50)}};
    const MotionLog log = parseGpmf("clip.mp4", packets);
    EXPECT_EQ(log.format, "GPMF");
    ASSERT_EQ(log.rates.size(), 40u);
    ASSERT_EQ(log.gravity.size(), 40u);
    EXPECT_TRUE(log.notes.empty());
    expectNear(log.rates[3].value, {0.05, 0.2, 0.103}, 1e-12, "rate");  // Z, X, Y
    expectNear(log.gravity[3].value, {4.905, 0.33, 0.4}, 1e-12, "gravity");
    EXPECT_NEAR(log.rates[0].time, 1.0, 2e-3);
    for (size_t i = 1; i < 40; ++i) {
        const double step = log.rates[i].time - log.rates[i - 1].time;
        EXPECT_NEAR(step, i == 20 ? 0.11 : 0.01, i == 20 ? 1e-3 : 1e-4) << i;
    }
    const std::string matrix = gpmf("MTRX", 's', 2, shorts({0, 0, 1, 0, -1, 0, 1, 0, 0}));
    expectNear(parseGpmf("", {{0.0, 1.0, gpmfPacket(10, matrix)}}).rates[3].value,
               {0.05, 0.2, 0.103}, 1e-12, "by matrix");
    const MotionLog bare = parseGpmf("", {{2.0, 1.0, gpmfPacket(10, "")}});
    EXPECT_EQ(bare.notes.size(), 2u);
    expectNear(bare.rates[0].value, {0.1, -0.2, 0.05}, 1e-12, "as it is");
    EXPECT_NEAR(bare.rates[9].time, 2.9, 1e-9);  // spread over the packet
}

/// Big-endian floats.
std::string floats(const std::vector<float>& values) {
    std::string bytes;
    for (const float v : values) {
        uint32_t bits;
        std::memcpy(&bits, &v, sizeof bits);
        bytes += bytesOf(bits, 4, true);
    }
    return bytes;
}

std::string longs(const std::vector<int>& values) {
    std::string bytes;
    for (const int v : values) bytes += bytesOf(static_cast<uint64_t>(v), 4, true);
    return bytes;
}

std::string device(const std::vector<std::string>& streams) {
    std::string records = gpmf("DVID", 'L', 4, longs({1}));
    for (const std::string& stream : streams) records += gpmfInside("STRM", stream);
    return gpmfInside("DEVC", records);
}

TEST(Gpmf, EveryGenerationOfCameras) {
    // All hold rates whose Z, X, Y are these.
    const Vec3 rate = {0.1, -0.2, 0.05};
    const std::string scale = gpmf("SCAL", 's', 2, shorts({1000}));
    const std::string unit = gpmf("SIUN", 'c', 5, "rad/s");
    const std::string oldest = scale + gpmf("GYRO", 's', 6, shorts({100, -200, 50}));
    const std::string newer =
        gpmf("STMP", 'J', 8, bytesOf(123456, 8, true)) + gpmf("TSMP", 'L', 4, longs({1})) + unit;
    const std::string toZxy = gpmf("MTRX", 'f', 36, floats({0, 0, 1, 0, -1, 0, 1, 0, 0}));
    const std::string toXyz = gpmf("MTRX", 'f', 36, floats({0, -1, 0, 1, 0, 0, 0, 0, 1}));
    const std::string turned = scale + gpmf("GYRO", 's', 6, shorts({50, 200, 100}));
    const std::string temperature = gpmf("TMPC", 'f', 4, floats({40.0F}));
    const std::string rest =
        gpmf("SCAL", 's', 2, shorts({32767})) + gpmf("CORI", 's', 8, shorts({32767, 0, 0, 0}));
    const std::string broken = gpmf("CORI", 's', 8, shorts({0, 0, 0, 0}));
    const std::string bent = gpmf("IORI", 'f', 16, floats({0.96F, 0.28F, 0.0F, 0.0F}));
    const std::tuple<const char*, std::string, size_t, const char*> kCases[] = {
        {"oldest", device({oldest}), 2, "GYRO: SIUN is missing: taken for rad/s"},
        {"ORIN", device({newer + gpmf("ORIN", 'c', 1, "YxZ") + turned}), 0, ""},
        {"MTRX", device({newer + toZxy + temperature + turned}), 0, ""},
        {"MTRX and ORIO",
         device(
             {newer + gpmf("ORIN", 'c', 1, "YxZ") + gpmf("ORIO", 'c', 1, "ZXY") + toZxy + turned}),
         0, ""},
        {"to X, Y, Z", device({newer + gpmf("ORIO", 'c', 1, "XYZ") + toXyz + turned}), 0, ""},
        {"l", device({newer + scale + gpmf("GYRO", 'l', 12, longs({100, -200, 50}))}), 1,
         "GYRO: neither MTRX nor ORIN names the axes: taken for Z, X, Y"},
        {"f", device({newer + gpmf("GYRO", 'f', 12, floats({0.1F, -0.2F, 0.05F}))}), 1, ""},
        {"two devices", device({temperature, oldest}) + device({turned}), 2, ""},
        {"with CORI", device({oldest, rest}), 3,
         "CORI: the camera's own orientations are not used beside GYRO"},
        {"broken CORI", device({oldest, broken}), 3, "not used: CORI: is no rotation"},
        {"IORI", device({oldest, bent}), 3,
         "IORI: the camera has turned its pictures by up to 32.5 degrees, to stabilize them "
         "itself: "
         "they do not move as the log says"},
    };
    for (const auto& [name, packet, notes, note] : kCases) {
        SCOPED_TRACE(name);
        const MotionLog log = parseGpmf("clip.mp4", {{1.0, 0.1, packet}, {1.1, 0.1, packet}});
        ASSERT_EQ(log.rates.size(), 2u);
        expectNear(log.rates[0].value, rate, 1e-6, "rate");
        EXPECT_EQ(log.notes.size(), notes);
        if (note[0] == '\0') continue;
        EXPECT_NE(std::find(log.notes.begin(), log.notes.end(), note), log.notes.end());
    }
}

TEST(Gpmf, TheCamerasOwnOrientationsStandInForReadings) {
    // The camera stands with the picture's top up, and turns about that axis, its Z.
    std::vector<TelemetryPacket> packets;
    for (int i = 0; i < 20; ++i) {
        const auto half = static_cast<float>(0.02 * i);
        const std::string orientation =
            gpmf("CORI", 'f', 16, floats({std::cos(half), 0.0F, 0.0F, std::sin(half)}));
        const std::string down = gpmf("GRAV", 'f', 12, floats({0.0F, 0.0F, -1.0F}));
        packets.push_back({0.1 * i, 0.1, device({orientation, down})});
    }
    const MotionLog log = parseGpmf("clip.mp4", packets);
    EXPECT_EQ(log.notes.size(), 2u);
    ASSERT_EQ(log.orientations.size(), 20u);
    ASSERT_EQ(log.gravity.size(), 20u);
    const std::vector<MotionSample> rates = log.angularRates();
    ASSERT_EQ(rates.size(), 19u);
    for (const MotionSample& sample : rates) {
        expectNear(sample.value, {0.4, 0.0, 0.0}, 1e-5, "rate");
    }
    for (const MotionSample& sample : log.gravity) {
        expectNear(sample.value, {kStandardGravity, 0.0, 0.0}, 1e-6, "gravity");
    }
    for (const OrientationSample& q : log.orientations) {
        // Device x, in the world.
        expectNear({1.0 - 2.0 * (q.y * q.y + q.z * q.z), 2.0 * (q.x * q.y + q.w * q.z),
                    2.0 * (q.x * q.z - q.w * q.y)},
                   {0.0, 0.0, 1.0}, 1e-6, "up");
    }
}

TEST(Gpmf, ErrorsNamePacketAndKey) {
    const std::string good = gpmfPacket(10);
    std::string manyRecords;
    for (int i = 0; i < 10001; ++i) manyRecords += gpmf("NONE", 'b', 1, "");
    const auto with = [&](const std::string& from, const std::string& to) {
        std::string bytes = good;
        return bytes.replace(bytes.find(from), to.size(), to);
    };
    const std::pair<std::string, const char*> kCases[] = {
        {good.substr(0, 100), "DEVC: 268 bytes reach beyond the end"},
        {good.substr(0, 6), "ends inside the head of a record"},
        {with("rad/s", "rpm\0\0"), "SIUN: 'rp"},
        {with("YxZ", "YyZ"), "ORIN: 'YyZ' names one axis twice"},
        {with(shorts({1000}), shorts({0})), "SCAL: is not one or three numbers other than 0"},
        {with("GYROs", "GYROc"), "GYRO: type 'c' of 6 bytes is not one of numbers"},
        {gpmfInside("DEVC", gpmfInside("STRM", gpmf("GYRO", 's', 4, shorts({1, 2})))),
         "GYRO: 2 values in a sample where 3 are expected"},
        {gpmfInside("DEVC", gpmfInside("STRM", gpmf("GYRO", 'b', 3, "abc"))),
         "GYRO: numbers of 8 bits where sensors have 16 or more"},
        {manyRecords, "more than 10000 records in one"},
        {gpmfInside("DEVC", gpmfInside("STRM", gpmf("GYRO", 'f', 12, std::string(12, '\xFF')))),
         "GYRO: holds a value that is not finite"},
        {with("TSMPL", "TSMPc"), "TSMP: type 'c' of 4 bytes is not one of numbers"},
    };
    for (const auto& [bytes, message] : kCases) {
        const std::vector<TelemetryPacket> packets = {{0.0, 0.1, good}, {0.1, 0.1, bytes}};
        const std::string error = errorOf([&] { parseGpmf("clip.mp4", packets); });
        EXPECT_EQ(error.find(std::string("clip.mp4: GPMF packet 2: ") + message), 0u) << error;
    }
}

TEST(Camm, ReadsTypesAndNamesWhatIsWrong) {
    const std::string exposure =
        camm(1, {}) + bytesOf(8000000, 4, false) + bytesOf(21000000, 4, false);
    const std::vector<TelemetryPacket> packets = {
        {0.5, 0.0, camm(3, {0.4F, 9.78F, 0.3F})},
        {0.5, 0.0, camm(2, {0.1F, -0.2F, 0.05F}) + exposure},
        {0.51, 0.0, camm(0, {0.0F, 0.0F, static_cast<float>(M_PI / 3.0)})},
        {0.52, 0.0, camm(7, {1.0F, 2.0F, 3.0F}) + camm(4, {1.0F, 2.0F, 3.0F})},
        {0.53, 0.0, camm(5, std::vector<float>(6)) + camm(6, std::vector<float>(14))}};
    const MotionLog log = parseCamm("clip.mp4", packets);
    ASSERT_EQ(log.rates.size(), 1u);
    ASSERT_EQ(log.gravity.size(), 1u);
    ASSERT_EQ(log.orientations.size(), 1u);
    EXPECT_EQ(log.rates[0].time, 0.5);
    expectNear(log.rates[0].value, kFirstRate, 1e-7, "rate");
    expectNear(log.gravity[0].value, kFirstGravity, 1e-6, "gravity");
    EXPECT_EQ(log.orientations[0].time, 0.51);
    EXPECT_NEAR(log.orientations[0].w, std::cos(M_PI / 6.0), 1e-7);
    EXPECT_NEAR(log.orientations[0].z, std::sin(M_PI / 6.0), 1e-7);
    EXPECT_NEAR(*log.readoutTime, 0.021, 1e-12);
    ASSERT_EQ(log.frames.size(), 1u);
    EXPECT_EQ(log.frames[0].time, 0.5);
    EXPECT_NEAR(log.frames[0].exposure.value(), 0.008, 1e-12);
    EXPECT_NEAR(log.frames[0].readout.value(), 0.021, 1e-12);
    EXPECT_EQ(log.notes,
              std::vector<std::string>{
                  "CAMM: 1 positions (type 4), 1 places by satellite (type 5), 1 places "
                  "by satellite with their accuracy (type 6), 1 magnetic fields (type 7) "
                  "are there and not used"});

    const std::pair<std::string, const char*> kCases[] = {
        {camm(9, {}), "CAMM packet 1: type 9 is not one of 0 to 7"},
        {camm(2, {1.0F}), "CAMM packet 1: type 2: 4 bytes where 12 are expected"},
        {camm(3, {1.0F, NAN, 2.0F}), "CAMM packet 1: type 3: holds a value that is not finite"},
        {"abc", "CAMM packet 1: ends before its type"},
        {camm(3, {1.0F, 2.0F, 2.0F}), "its CAMM telemetry has no packets of type 0 or 2"},
    };
    for (const auto& [bytes, message] : kCases) {
        const std::vector<TelemetryPacket> wrong = {{0.0, 0.0, bytes}};
        EXPECT_EQ(errorOf([&] { parseCamm("clip.mp4", wrong); }),
                  std::string("clip.mp4: ") + message);
    }
}

/// A field of a message: a whole number, or bytes.
std::string field(int number, uint64_t value) {
    std::string bytes(1, static_cast<char>(number << 3));
    for (; value >= 128; value >>= 7) bytes += static_cast<char>((value & 127) | 128);
    return bytes + static_cast<char>(value);
}

std::string field(int number, const std::string& value) {
    return static_cast<char>(number << 3 | 2) + field(0, value.size()).substr(1) + value;
}

TEST(Sessions, HoldFramesAndLensShifts) {
    for (const char* file : {"sessions/whole.pb3", "sessions/stream.pb3"}) {
        SCOPED_TRACE(file);
        const MotionLog log = readMotionLog(kSampleLogs + file);
        EXPECT_EQ(log.lensShiftWidth, 4032.0);
        ASSERT_EQ(log.frames.size(), 3u);
        ASSERT_EQ(log.lensShifts.size(), 3u);
        for (size_t i = 0; i < 3; ++i) {
            const double number = static_cast<double>(i);
            EXPECT_NEAR(log.frames[i].time.value(), 0.1 + 0.005 * number, 1e-12);
            EXPECT_NEAR(log.frames[i].exposure.value(), 0.008, 1e-12);
            EXPECT_NEAR(log.frames[i].readout.value(), 0.021 + 1e-9 * number, 1e-12);
            EXPECT_EQ(log.frames[i].focalLength, 1500.0);
            EXPECT_EQ(log.frames[i].width, 1920.0);
            EXPECT_NEAR(log.lensShifts[i].time, 0.100001 + 0.005 * number, 1e-12);
            EXPECT_EQ(log.lensShifts[i].x, 1.5 * number);
            EXPECT_EQ(log.lensShifts[i].y, -0.5 * number);
        }
        // The last message is cut off where a recording ends.
        const std::string whole = readFile(kSampleLogs + file);
        for (size_t less = 1; less < 50; ++less) {
            const MotionLog cut = parseTextLog("cut", whole.substr(0, whole.size() - less));
            EXPECT_EQ(cut.rates.size() + cut.frames.size(), 12u) << less;
            EXPECT_EQ(cut.notes.back().find("cut off in its last message, or broken: the last "),
                      0u);
        }
    }
}

TEST(Sessions, ErrorsNameTheMessageAndTheField) {
    const std::string vector = camm(2, {0.1F, -0.2F, 0.05F}).substr(4);
    const std::string time = field(1, uint64_t{100'000'000});
    std::string good;
    while (good.size() < 5000) good += field(4, time + field(2, vector));
    const std::string nan = vector.substr(0, 8) + bytesOf(0x7FC00000, 4, false);
    const std::pair<std::string, const char*> kCases[] = {
        {field(4, time), "motion: field 2, the rates, is missing"},
        {field(4, time + field(2, vector.substr(4))),
         "motion: field 2: is not three numbers of 4 bytes"},
        {field(4, field(1, vector) + field(2, vector)), "motion: field 1: is no whole number"},
        {field(4, time + field(2, nan)), "motion: field 2: nan is not a number from -200 to 200"},
        {field(4, field(1, ~uint64_t{0}) + field(2, vector)),
         "motion: field 1: 1.84467e+10 s where at most 9.3e+09 are allowed"},
        {field(4, time + "\x12"), "motion: does not end with a field"},
        {field(5, field(3, uint64_t{5})), "frame: field 1, the time, is missing"},
        {field(5, time + field(10, field(2, uint64_t{1}))),
         "frame: field 10: lens shift: field 2: is no number of 4 bytes"},
        {field(9, time), "a message of number 9 is not known"},
        {field(2, field(12, field(1, uint64_t{1'000'000}))),
         "camera: field 12: 1000000 pixels are not a width"},
    };
    for (const auto& [bytes, message] : kCases) {
        const std::string session = good + bytes;
        EXPECT_EQ(errorOf([&] { parseTextLog("session.pb3", session); }),
                  std::string("session.pb3: ") + message);
    }
    std::string frames = good;
    while (frames.size() < 100'000) frames += field(5, field(1, uint64_t{1}));
    EXPECT_EQ(errorOf([&] { parseTextLog("session.pb3", frames); }),
              "session.pb3: there are more of them than messages of an app's size would be");
    EXPECT_EQ(errorOf([&] { parseTextLog("session.pb3", field(5, time) + field(5, time)); }),
              "session.pb3: its messages hold no readings of a gyroscope");
}

TEST(Mett, ErrorsNameThePacket) {
    const std::string reading = camm(0, {0.1F, -0.2F, 0.05F}).substr(4);
    const std::string nan = reading.substr(0, 8) + bytesOf(0x7FC00000, 4, true);
    const std::pair<std::string, const char*> kCases[] = {
        {reading.substr(1), "telemetry packet 2: 11 bytes where 12 or a multiple are expected"},
        {nan, "telemetry packet 2: holds a value that is not finite"}};
    for (const auto& [bytes, message] : kCases) {
        const std::vector<TelemetryPacket> packets = {{0.0, 0.1, reading}, {0.1, 0.1, bytes}};
        EXPECT_EQ(errorOf([&] { parseMett("clip.mp4", packets); }),
                  std::string("clip.mp4: ") + message);
    }
    EXPECT_EQ(errorOf([&] {
                  parseMett("clip.mp4", {{0.0, 0.1, reading, true}});
              }),
              "clip.mp4: its telemetry has no application/gyro track");
    // Whatever is in the file, its boxes are read to their end and no further.
    const TemporaryFolder folder;
    const std::string file = readFile(kSampleLogs + "timed-metadata.mp4");
    for (size_t size = 1; size < file.size(); size += 31) {
        const std::string path = folder.write("cut.mp4", file.substr(0, size));
        EXPECT_LE(metadataTypes(path).size(), 2u);
    }
    EXPECT_EQ(metadataTypes(kSampleLogs + "timed-metadata.mp4"),
              (std::map<int, std::string>{{1, "application/gyro"}, {2, "application/accel"}}));
}

TEST(VideoTelemetry, IsFoundByTheTypeOfItsTrack) {
    const TemporaryFolder folder;
    const std::string path = folder.path("clip.mov");
    writeTelemetryFile(path, {{0.0, 0.1, gpmfPacket(10)}, {0.1, 0.1, gpmfPacket(20)}});
    const MotionLog log = readMotionLog(path);
    EXPECT_EQ(log.format, "GPMF");
    ASSERT_EQ(log.rates.size(), 20u);
    EXPECT_NEAR(log.rates[19].time, 0.19, 1e-3);

    // The same file with the other type, which FFmpeg does not write, and other packets.
    writeTelemetryFile(
        path, {{0.0, 0.1, camm(2, {1.0F, 2.0F, 3.0F})}, {0.1, 0.1, camm(2, {4.0F, 5.0F, 6.0F})}});
    std::string bytes = readFile(path);
    for (size_t at; (at = bytes.find("gpmd")) != std::string::npos;) bytes.replace(at, 4, "camm");
    const MotionLog camm = readMotionLog(folder.write("camm.mov", bytes));
    EXPECT_EQ(camm.format, "CAMM");
    ASSERT_EQ(camm.rates.size(), 2u);
    EXPECT_NEAR(camm.rates[1].time, 0.1, 1e-6);
    expectNear(camm.rates[1].value, {4.0, 5.0, 6.0}, 0.0, "rate");

    for (size_t at; (at = bytes.find("camm")) != std::string::npos;) bytes.replace(at, 4, "abcd");
    const std::string none = folder.write("none.mov", bytes);
    EXPECT_EQ(errorOf([&] { readMotionLog(none); }),
              none + ": holds no motion telemetry (no GPMF, CAMM or mett track)");
}

}  // namespace
