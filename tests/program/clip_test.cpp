// Which files belong to a clip, and what is decided of it before it is stabilized.
#include "clip/clip_settings.h"
#include "support/temporary_folder.h"
#include "support/test_support.h"
#include "toolkit/telemetry_builder.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

using namespace framehold;
using namespace zpr_test;

namespace {

TEST(ClipFiles, FoldersGiveTheirVideos) {
    const TemporaryFolder folder;
    const std::string b = folder.write("b.MP4", "");
    const std::string a = folder.write("a.mov", "");
    folder.write("a-stable.mov", "");
    folder.write("a.gcsv", "");
    const std::string path = b.substr(0, b.rfind('/'));
    EXPECT_EQ(findClips({"-", path, b}), (std::vector<std::string>{"-", a, b, b}));
}

TEST(ClipFiles, MetadataAndLogAreFoundBesideTheVideo) {
    const auto found = [](const TemporaryFolder& folder, ClipFiles named = {}) {
        named.video = folder.write("walk.mp4", "");
        const ClipFiles files = findClipFiles(named).files;
        const auto name = [](const std::string& path) { return path.substr(path.rfind('/') + 1); };
        return name(files.metadata) + " " + name(files.motion);
    };
    const TemporaryFolder folder;
    EXPECT_EQ(found(folder), " ");
    folder.write("walk.csv", "");
    EXPECT_EQ(found(folder), " walk.csv");
    folder.write("walk.gcsv", "");
    EXPECT_EQ(found(folder), " walk.gcsv");
    folder.write("clip.json", "{}");
    EXPECT_EQ(found(folder), "clip.json walk.gcsv");
    folder.write("other.mp4", "");
    EXPECT_EQ(found(folder), " walk.gcsv") << "clip.json could be either video's";
    folder.write("clip.json", R"({"video": "walk.mp4", "imu": {"file": "imu.gcsv"}})");
    EXPECT_EQ(found(folder), "clip.json imu.gcsv");
    folder.write("clip.json", R"({"video": "other.mp4"})");
    EXPECT_EQ(found(folder), " walk.gcsv");
    folder.write("walk.json", "{}");
    EXPECT_EQ(found(folder), "walk.json walk.gcsv");
    EXPECT_EQ(found(folder, {"", "", "mine.csv", ""}), "walk.json mine.csv");
    const std::string other = folder.write("other.json", R"({"imu": {"file": "imu.gcsv"}})");
    EXPECT_EQ(found(folder, {"", other, "", ""}), "other.json imu.gcsv");
    EXPECT_EQ(found(folder, {"", folder.write("other.json", "{}"), "", ""}), "other.json ")
        << "a log beside the video is not that of metadata from elsewhere";
}

TEST(ClipFiles, LogsOfAppsComeWithTheTimesOfFrames) {
    const TemporaryFolder folder;
    ClipFiles named;
    named.video = folder.write("VID_1.mp4", "");
    const std::string log = folder.write("VID_1gyro.csv", "");
    const std::string times = folder.write("VID_1_timestamps.csv", "1000000000\n1040000000\n");
    const FoundClip found = findClipFiles(named);
    EXPECT_EQ(found.files.motion, log);
    EXPECT_EQ(found.files.frames, times);
    const std::vector<std::string> read = filesRead(named, found);
    EXPECT_NE(std::find(read.begin(), read.end(), times), read.end());
    named.frames = folder.write("mine.csv", "");
    EXPECT_EQ(findClipFiles(named).files.frames, named.frames);
    named.frames.clear();
    folder.write("VID_1_gyro.csv", "");
    EXPECT_NE(errorOf([&] { findClipFiles(named); }).find("several logs could be this video's"),
              std::string::npos);
    folder.write("VID_1.csv", "");
    EXPECT_EQ(findClipFiles(named).files.motion, folder.path("VID_1.csv"));
}

TEST(ClipInputs, TablesOfFramesThatAreOfSomethingElseAreNamed) {
    const TemporaryFolder folder;
    const std::string log = "timestamp,gx,gy,gz\n0,0.1,0,0\n0.01,0.1,0,0\n0.02,0.1,0,0\n";
    folder.write("gyro_accel.csv", log);
    const std::string video = folder.write("movie.mp4", "");
    const std::string table = folder.path("movie_metadata.csv");
    const auto load = [](const ClipFiles& files) {
        return loadClipInputs(findClipFiles(files), {800, 600, 30.0, 0});
    };
    const std::string unknown =
        "the first line names no exposure, readout or focal length in pixels";
    const std::pair<const char*, std::string> kCases[] = {
        {"time,exposure\n0,0.008\n", ""},
        {"time,brightness\n0,7\n", table + ": not used: " + unknown},
        {"", table + ": not used: " + unknown},
    };
    for (const auto& [text, warning] : kCases) {
        SCOPED_TRACE(text);
        folder.write("movie_metadata.csv", text);
        const ClipInputs clip = load({video, "", "", ""});
        EXPECT_EQ(clip.files.motion, folder.path("gyro_accel.csv"));
        EXPECT_EQ(clip.files.frameMetadata, warning.empty() ? table : "");
        EXPECT_EQ(clip.usualFrame.exposure.has_value(), warning.empty());
        const std::vector<std::string> expected(warning.empty() ? 0 : 1, warning);
        EXPECT_EQ(clip.metadata.warnings, expected);
    }
    const std::string named = folder.write("mine.csv", "frame,brightness\n0,7\n");
    EXPECT_EQ(errorOf([&] {
                  load({video, "", "", named});
              }),
              named + ":1: the first line is not frame,timestamp_s, and names no time first");
}

TEST(ClipInputs, WithoutALogTheVideosTelemetryIsTaken) {
    const TemporaryFolder folder;
    const std::string video = folder.path("clip.mov");
    writeTelemetryFile(video, {{0.0, 0.1, gpmfPacket(10)}, {0.1, 0.1, gpmfPacket(20)}});
    const std::string times = folder.write("times.csv", "frame,timestamp_s\n0,0.5\n");
    const auto load = [](const ClipFiles& files) {
        return loadClipInputs(findClipFiles(files), {800, 600, 30.0, 0});
    };
    const ClipInputs clip = load({video, "", "", times});
    EXPECT_EQ(clip.files.motion, video);
    EXPECT_EQ(clip.log.value().rates.size(), 20u);
    EXPECT_EQ(clip.metadata.frameTimes, std::vector<double>{0.5});
    EXPECT_EQ(load({"-", "", "", ""}).log, std::nullopt);
}

/// Everything that settings are made of, as if it had been read from files.
struct Sources {
    Sources() {
        clip.files = {"walk.mp4", "walk.json", "walk.gcsv", ""};
        clip.video = {800, 600, 30.0, 0};
        clip.log = MotionLog();
        for (int i = 0; i < 100; ++i) {
            clip.log->rates.push_back({0.01 * i, {1.0, 2.0, 3.0}});
            clip.log->gravity.push_back({0.01 * i, {0.0, 9.81, 0.0}});
        }
    }

    ClipSettings resolve() const { return resolveSettings(options, clip, found); }

    ClipOptions options;
    ClipInputs clip;
    ClipMetadata found;
};

TEST(CameraSettings, TheFirstSourceThatHasAValueGivesIt) {
    using Value = std::optional<double>;
    struct Row {
        const char* name;
        std::array<Value*, 4> places;  // in order of precedence; null: the source does not have it
        double otherwise;
        std::function<Setting<double>(const CameraSettings&)> setting;
    };
    Sources s;
    CameraOptions& options = s.options.camera;
    ClipMetadata& metadata = s.clip.metadata;
    MotionLog& log = *s.clip.log;
    ZPR_Param defaults{};
    ZPR_GetDefaultParam(&defaults);
    const Row kRows[] = {
        {"focal",
         {&options.focalLength, &metadata.focalLength, &s.found.focalLength, nullptr},
         defaults.fieldOfView,
         [](const CameraSettings& c) {
             const auto& [view, source, origin] = c.fieldOfView;
             EXPECT_EQ(view.mode == ZPR_FOV_FOCAL_LENGTH, source != Source::kDefault);
             return Setting<double>{view.size, source, origin};
         }},
        {"readout",
         {&options.readoutTime, &metadata.readoutTime, &s.found.readoutTime, &log.readoutTime},
         defaults.readoutTime,
         [](const CameraSettings& c) { return c.readoutTime; }},
        {"time-offset",
         {&options.timeOffset, &metadata.timeOffset, &s.found.timeOffset, nullptr},
         0.0,
         [](const CameraSettings& c) { return c.timeOffset; }},
        {"drift",
         {nullptr, &metadata.clockDrift, &s.found.clockDrift, nullptr},
         0.0,
         [](const CameraSettings& c) { return c.clockDrift; }},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        const std::string kOrigins[] = {std::string("--") + row.name, "walk.json",
                                        "found in the clip", "walk.gcsv"};
        for (size_t i = 0; i < 4; ++i) {
            if (row.places[i] != nullptr) *row.places[i] = 0.001 * static_cast<double>(i + 1);
        }
        for (size_t i = 0; i < 4; ++i) {
            if (row.places[i] == nullptr) continue;
            const Setting<double> setting = row.setting(s.resolve().camera);
            EXPECT_EQ(setting.value, **row.places[i]);
            EXPECT_EQ(setting.source, static_cast<Source>(i));
            EXPECT_EQ(setting.origin, kOrigins[i]);
            row.places[i]->reset();
        }
        const Setting<double> setting = row.setting(s.resolve().camera);
        EXPECT_EQ(setting.value, row.otherwise);
        EXPECT_EQ(setting.source, Source::kDefault);
    }
}

TEST(CameraSettings, FieldOfViewAndAxes) {
    Sources s;
    CameraOptions& options = s.options.camera;
    s.clip.metadata.focalLength = 300.0;
    s.clip.metadata.width = 400;
    EXPECT_EQ(s.resolve().camera.fieldOfView.value.size, 600.0) << "for twice the width";
    options.fieldOfView = 90.0;
    for (const auto& [side, mode, focal] : {std::tuple{"width", ZPR_FOV_WIDTH, 400.0},
                                            {"height", ZPR_FOV_HEIGHT, 300.0},
                                            {"diagonal", ZPR_FOV_DIAGONAL, 500.0}}) {
        options.fieldOfViewAcross = side;
        const Setting<FieldOfView> view = s.resolve().camera.fieldOfView;
        EXPECT_EQ(view.value.mode, mode);
        EXPECT_EQ(view.origin, "--fov");
        EXPECT_NEAR(focalLength(view.value, s.clip.video), focal, 1e-9);
        // Frames of 800 columns are padded to 896, those of 1280 are not.
        ZPR_Param param = paramOf(s.resolve());
        EXPECT_EQ(param.fieldOfViewMode, ZPR_FOV_FOCAL_LENGTH);
        EXPECT_NEAR(param.fieldOfView, focal, 1e-9);
        s.clip.video.width = 1280;
        param = paramOf(s.resolve());
        EXPECT_EQ(param.fieldOfViewMode, mode);
        EXPECT_EQ(param.fieldOfView, 90.0);
        s.clip.video.width = 800;
    }
    options.focalLength = 500.0;
    EXPECT_EQ(s.resolve().camera.fieldOfView.origin, "--focal");

    const auto axes = [&s] { return s.resolve().camera.axes.value.letters(); };
    s.clip.log->orientation = AxisMapping::fromLetters("YxZ");
    EXPECT_EQ(axes(), "YxZ");
    s.found.axes = AxisMapping::fromLetters("zXy");
    EXPECT_EQ(axes(), "zXy");
    s.clip.metadata.axes = AxisMapping::fromLetters("xyz");
    EXPECT_EQ(axes(), "xyz");
    options.axes = "ZYX";
    EXPECT_EQ(axes(), "ZYX");
    EXPECT_EQ(s.resolve().camera.axes.source, Source::kOption);
}

TEST(ClipSettings, SensorsFollowTheMaskAndTheLog) {
    struct Row {
        bool hasRates;
        bool hasOrientations;
        int mask;  // 0: not given
        int motion;
        int gravity;
        const char* refusal;
    };
    const Row kRows[] = {
        {true, false, 0, ZPR_SENSOR_RATE_1, ZPR_SENSOR_GRAVITY_1, ""},
        {true, false, 10, ZPR_SENSOR_RATE_2, ZPR_SENSOR_GRAVITY_2, ""},
        {true, true, 0, ZPR_SENSOR_RATE_1, ZPR_SENSOR_GRAVITY_1, ""},
        {true, true, 48, ZPR_SENSOR_ROTATION_1, 0, ""},
        {false, true, 0, ZPR_SENSOR_ROTATION_1, 0, ""},
        {false, true, 32, ZPR_SENSOR_ROTATION_2, 0, ""},
        {true, false, 1, 0, 0, "--sensor-mask: 1 enables neither type 3 nor type 4"},
        {true, false, 48, 0, 0, "--sensor-mask: 48 enables neither type 1 nor type 2"},
        {false, true, 5, 0, 0,
         "--sensor-mask: 5 enables neither type 5 nor type 6; a log of orientations needs one of "
         "them"},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.mask);
        Sources s;
        if (!row.hasRates) s.clip.log->rates.clear();
        if (row.hasOrientations) s.clip.log->orientations = {{0.0, 1.0, 0.0, 0.0, 0.0}};
        if (row.mask != 0) s.options.sensorMask = row.mask;
        if (*row.refusal != '\0') {
            EXPECT_EQ(errorOf([&] { s.resolve(); }).find(row.refusal), 0u);
            continue;
        }
        const ClipSettings settings = s.resolve();
        EXPECT_EQ(settings.motionType, row.motion);
        EXPECT_EQ(settings.gravityType, row.gravity);
        EXPECT_TRUE((settings.sensorMask & ZPR_SENSOR_BIT(row.motion)) != 0);
    }
}

TEST(ClipSettings, GravityIsMadeUpWhereItIsAskedForOrNotLogged) {
    Sources s;
    EXPECT_FALSE(s.resolve().gravity);
    s.clip.metadata.gravityHint = Vec3{0.0, 0.0, 9.81};
    EXPECT_FALSE(s.resolve().gravity) << "the log has its own";
    s.clip.log->gravity.clear();
    EXPECT_EQ(s.resolve().gravity->value, (Vec3{0.0, 0.0, 9.81}));
    EXPECT_EQ(s.resolve().gravity->origin, "walk.gcsv has no gravity; walk.json");
    s.options.gravity = {0.0, 9.8, 0.0};
    EXPECT_EQ(s.resolve().gravity->value, (Vec3{0.0, 9.8, 0.0}));
    s.options.gravity.clear();
    s.clip.metadata.gravityHint.reset();
    EXPECT_EQ(s.resolve().gravity->value, (Vec3{9.81, 0.0, 0.0})) << "the picture's top is up";
}

TEST(ClipSettings, AHorizonNeedsLoggedGravity) {
    Sources s;
    s.options.engine = Engine::kOffline;
    s.options.horizon = 100.0;
    EXPECT_EQ(s.resolve().horizon, 100.0);
    s.clip.log->gravity.clear();
    EXPECT_EQ(
        errorOf([&] { s.resolve(); }),
        "--horizon: walk.gcsv holds neither an accelerometer nor orientations, which tell what "
        "is level");
    s.clip.log->orientations = {{0.0, 1.0, 0.0, 0.0, 0.0}};
    EXPECT_EQ(s.resolve().horizon, 100.0);
    s.clip.log.reset();
    EXPECT_EQ(errorOf([&] { s.resolve(); }).find("--horizon needs a motion log"), 0u);
}

TEST(ClipSettings, SizesAndTheirWarnings) {
    struct Row {
        std::optional<PictureSize> output;
        int crop;
        const char* warning;
    };
    const Row kRows[] = {
        {{}, 80, ""},
        {{}, 100, "--crop 100 leaves no margin"},
        {{{640, 480}}, 100, "looks outside"},
        {{{640, 480}}, 70, "not the centre"},
        {{{700, 500}}, 70, "last 60 columns"},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.warning);
        Sources s;
        s.options.camera.focalLength = 500.0;
        s.options.outputSize = row.output;
        s.options.crop = row.crop;
        const ClipSettings settings = s.resolve();
        EXPECT_EQ(settings.input.width, row.output ? 800 : 896) << "a multiple of 128";
        EXPECT_EQ(settings.output.width, row.output ? row.output->width : 896);
        const std::string warnings = fmt::format("{}", fmt::join(settings.warnings, " "));
        EXPECT_NE(warnings.find(row.warning), std::string::npos) << warnings;
        EXPECT_EQ(warnings.empty(), *row.warning == '\0') << warnings;
    }
    Sources s;
    s.options.outputSize = PictureSize{802, 600};
    EXPECT_EQ(errorOf([&] { s.resolve(); }),
              "--output-size: 802x600 is not even and at most the input's 800x600");
}

TEST(ClipSettings, WarnsOfAndRefusesInputs) {
    Sources s;
    s.clip.metadata.warnings = {"one"};
    s.found.warnings = {"two"};
    s.clip.log->outOfOrder.rates = 3;
    const std::vector<std::string> warnings = s.resolve().warnings;
    ASSERT_EQ(warnings.size(), 4u);
    EXPECT_EQ(warnings[0] + warnings[1], "onetwo");
    EXPECT_NE(warnings[2].find("the focal length is not known"), std::string::npos);
    EXPECT_EQ(warnings[3], "walk.gcsv: 3 samples were out of order and have been sorted");
    s.clip.log.reset();
    EXPECT_EQ(errorOf([&] { s.resolve(); }).find("no motion log"), 0u);
}

}  // namespace
