// Logs that are found beside a video by the names that apps give to them, and times of frames.
#include "motion/log_pairing.h"

#include "common/text_fields.h"
#include "motion/clip_metadata.h"
#include "motion/frame_metadata.h"
#include "support/archives.h"
#include "support/temporary_folder.h"

#include <gtest/gtest.h>

using namespace framehold;
using namespace zpr_test;

namespace {

struct Pairing {
    const char* video;
    std::vector<const char*> others;  // files that are there too
    const char* motion;               // that is found; "": none; nullptr: an error lists `others`
    const char* frames = "";
    const char* metadata = "";
};

TEST(LogPairing, LogsAreFoundByTheirNamesAndFolders) {
    const Pairing kCases[] = {
        {"a.mp4", {"gyro.csv", "b_gyro.csv"}, ""},
        {"a.mp4", {"agyro.csv", "aaccel.csv", "a_timestamps.csv"}, "agyro.csv", "a_timestamps.csv"},
        {"a.mp4", {"A_Gyro.CSV"}, "A_Gyro.CSV"},
        {"VID_20231114_221320.mp4",
         {"20231114_221320/VID_20231114_221320gyro.csv", "VID_20231114_221320_timestamps.csv"},
         "20231114_221320/VID_20231114_221320gyro.csv"},
        {"VID_20231114_1.mp4",
         {"2023-11-14/VID_20231114_1gyro.csv"},
         "2023-11-14/VID_20231114_1gyro.csv"},
        {"VID_20231114_1.mp4", {"20231114/gyroscope.csv"}, "20231114/gyroscope.csv"},
        {"movie.mp4",
         {"gyro_accel.csv", "frame_timestamps.txt", "movie_metadata.csv"},
         "gyro_accel.csv",
         "frame_timestamps.txt",
         "movie_metadata.csv"},
        {"other.mp4", {"gyro_accel.csv"}, ""},
        {"a.mp4", {"Gyroscope.csv", "Accelerometer.csv", "a-stable.mp4"}, "Gyroscope.csv"},
        {"a.mp4", {"Gyroscope.csv", "b.mp4"}, ""},
        {"a.mp4", {"a/Gyroscope.csv", "b.mp4"}, "a/Gyroscope.csv"},
        {"20231114.mp4", {"2023-11-14/Gyroscope.csv", "2023-11-14/b.mp4"}, ""},
        {"clips/VID_...mp4", {"Gyroscope.csv", "clips/b.csv"}, ""},
        {"a.mp4", {"a.zip", "b.mp4"}, "a.zip"},
        {"a.mp4", {"a.zip", "session.zip"}, "a.zip"},
        {"a.mp4", {"session.zip"}, "session.zip"},
        {"a.mp4", {"session.zip", "b.mp4"}, ""},
        {"a.mp4", {"session.zip", "Gyroscope.csv"}, "Gyroscope.csv"},
        {"a.mp4", {"empty.zip", "text.csv"}, ""},
        {"a.mp4", {"monday.zip", "tuesday.zip"}, nullptr},
        {"a.mp4", {"agyro.csv", "a_gyro.csv"}, nullptr},
        {"a.mp4", {"agyro.csv", "a/agyro.csv"}, nullptr},
    };
    for (const Pairing& pairing : kCases) {
        SCOPED_TRACE(std::string(pairing.video) + " " + pairing.others[0]);
        const TemporaryFolder folder;
        const std::string video = folder.path(pairing.video);
        std::filesystem::create_directories(std::filesystem::path(video).parent_path());
        folder.write(pairing.video, "");
        for (const char* other : pairing.others) {
            const std::string path = folder.path(other);
            std::filesystem::create_directories(std::filesystem::path(path).parent_path());
            const bool isArchive = std::filesystem::path(other).extension() == ".zip";
            if (isArchive && std::string(other) != "empty.zip") {
                writeArchive(path, {{"x/Gyroscope.csv", "1"}});
            } else {
                folder.write(other, "");
            }
        }
        if (pairing.motion == nullptr) {
            const std::string error = errorOf([&] { findPairedLogs(video); });
            for (const char* other : pairing.others) {
                EXPECT_NE(error.find(folder.path(other)), std::string::npos) << error;
            }
            continue;
        }
        const auto pathOf = [&](const std::string& name) {
            return name.empty() ? name : folder.path(name);
        };
        const PairedLogs logs = findPairedLogs(video);
        EXPECT_EQ(logs.motion, pathOf(pairing.motion));
        EXPECT_EQ(logs.frames, pathOf(pairing.frames));
        EXPECT_EQ(logs.metadata, pathOf(pairing.metadata));
    }
}

TEST(LogPairing, TheDocumentHasTheTable) {
    const std::string text = readFile(FRAMEHOLD_TEST_DATA "/../../../docs/motion-logs.md");
    std::string rows, folders;
    const auto code = [](std::string_view name) { return "`" + std::string(name) + "`"; };
    for (const LogLayout& layout : kLogLayouts) {
        rows += "| " + (layout.video.empty() ? "any" : code(layout.video)) + " | " +
                code(layout.motion) + " | " +
                (layout.frames.empty() ? "" : code(layout.frames) + " ") + "| " +
                (layout.metadata.empty() ? "" : code(layout.metadata) + " ") + "|\n";
    }
    EXPECT_NE(text.find("|---|---|---|---|\n" + rows + "\n"), std::string::npos) << rows;
    for (const std::string_view folder : kLogFolders) {
        if (!folder.empty()) folders += (folders.empty() ? "" : ", ") + code(folder);
    }
    EXPECT_NE(text.find("a folder there: " + folders + "."), std::string::npos) << folders;
}

TEST(FrameTimes, AreReadAsAppsLogThem) {
    const TemporaryFolder folder;
    const std::pair<const char*, const char*> kCases[] = {
        {"frame,timestamp_s\n0,195.5\n1,195.54\n2,195.58\n", "none"},
        {"195500000000\n195540000000\n195580000000\n", "none"},
        {"Frame timestamp[nanosec],Unix time[nanosec]\n195500000000,1\n195540000000,2\n"
         "195580000000,3\n",
         "none"},
        {"# s\n195.5\n195.54\n195.58", "none"},
        {"1\n2\n2\n", ":3: timestamp: 2 is not above that of the frame before"},
        {"1\nx\n", ":2: timestamp: 'x' is not a finite number"},
        {"time\n", ":1: holds no times of frames"},
        {"frame,time\n0,1\n",
         ":1: the first line is not frame,timestamp_s, and names no time first"},
    };
    for (const auto& [text, error] : kCases) {
        SCOPED_TRACE(text);
        const std::string path = folder.write("frames", text);
        const bool isGood = std::string(error) == "none";
        EXPECT_EQ(errorOf([&] { readFrameTimes(path); }), isGood ? error : path + error);
        if (!isGood) continue;
        const std::vector<double> times = readFrameTimes(path);
        ASSERT_EQ(times.size(), 3u);
        for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(times[i], 195.5 + 0.04 * double(i), 1e-9);
    }
}

TEST(FrameMetadata, IsReadByColumnsInAnyUnit) {
    const TemporaryFolder folder;
    const std::pair<const char*, const char*> kCases[] = {
        {"Timestamp[nanosec],fx[px],fy[px],Frame No.,Exposure time[nanosec],"
         "Sensor frame duration[nanosec],Frame readout time[nanosec],ISO,Focal length,width\n"
         "195500000000,500,501,1,8000000,33333333,20000000,100,4.3,640\n"
         "195540000000,502,501,2,4000000,33333333,20000000,100,4.3,640\n",
         "none"},
        {"width;Rolling shutter skew;exposure_time_us;Focal length (pixels);Unix time (s);t_time\n"
         "640;20.0;8000;500;1;195500\n640;20.0;4000;502;1;195540\n640;20",
         "none"},
        {"exposure,readout,fx,width,exposure mode,time\n"
         "0.008,0.02,500,640,1,195.5\n0.004,,502,640,x,195.54\n",
         "none"},
        {"time,frame\n1,2\n",
         ":1: the first line names no exposure, readout or focal length in pixels"},
        {"time,exposure\n1,x\n", ":2: exposure: 'x' is not a finite number"},
        {"time,exposure\n1\n2,3\n", ":2: exposure is missing"},
    };
    for (const auto& [text, error] : kCases) {
        SCOPED_TRACE(text);
        const std::string path = folder.write("metadata.csv", text);
        const bool isGood = std::string(error) == "none";
        EXPECT_EQ(errorOf([&] { readFrameMetadata(path); }), isGood ? error : path + error);
        if (!isGood) continue;
        const std::vector<FrameMetadata> frames = readFrameMetadata(path);
        ASSERT_EQ(frames.size(), 2u);
        const FrameMetadata usual = usualMetadata(frames);
        EXPECT_NEAR(usual.readout.value(), 0.02, 1e-12);
        EXPECT_NEAR(usual.exposure.value(), 0.008, 1e-12);  // of two, the larger
        EXPECT_NEAR(usual.focalLength.value(), 502.0, 1e-9);
        EXPECT_EQ(usual.width.value(), 640.0);
        EXPECT_NEAR(frames[1].focalLength.value(), 502.0, 1e-9);
        std::vector<double> times = {195.5, 195.5404, 199.0};
        moveToMiddleOfExposure(frames, times);
        EXPECT_NEAR(times[0], 195.504, 1e-9);
        EXPECT_NEAR(times[1], 195.5424, 1e-9);
        EXPECT_NEAR(times[2], 199.004, 1e-9);  // of no frame that is logged: by the median
    }
}

}  // namespace
