// What a report is made from.
#include "common/angles.h"
#include "common/text_fields.h"
#include "media/embedded_video.h"
#include "report/camera_angles.h"
#include "report/page_data.h"
#include "report/parameter_snippet.h"
#include "report/report_page.h"
#include "report/run_record.h"
#include "report/verdict.h"
#include "support/temporary_folder.h"
#include "support/test_support.h"

#include <random>

using namespace framehold;
using zpr_test::Quaternion;
using zpr_test::rotation;

namespace {

TEST(CameraAngles, AreThoseThePhotographerSees) {
    const Quaternion start = rotation(0.7, 0.36, 0.48, 0.8);
    // Device x is the picture's upward direction, y its left, z points at the photographer.
    const auto turned = [&](double pan, double tilt, double roll) {
        return start * rotation(-toRadians(pan), 1, 0, 0) * rotation(-toRadians(tilt), 0, 1, 0) *
               rotation(-toRadians(roll), 0, 0, 1);
    };
    const CameraAngles kCases[] = {{0, 0, 0},  {30, 0, 0},     {0, 20, 0},
                                   {0, 0, 10}, {-80, 60, -45}, {170, -15, 100}};
    for (const CameraAngles& c : kCases) {
        const auto angles = cameraAngles({turned(c.pan, c.tilt, c.roll)}, start)[0];
        EXPECT_NEAR(angles->pan, c.pan, 1e-9);
        EXPECT_NEAR(angles->tilt, c.tilt, 1e-9);
        EXPECT_NEAR(angles->roll, c.roll, 1e-9);
    }
    std::vector<std::optional<Quaternion>> twice;
    for (int pan = 0; pan <= 720; pan += 40) twice.emplace_back(turned(pan, 5, 0));
    twice.insert(twice.begin() + 3, std::nullopt);
    const auto angles = cameraAngles(twice, start);
    EXPECT_FALSE(angles[3].has_value());
    EXPECT_NEAR(angles.back()->pan, 720.0, 1e-9);
}

RunRecord makeRun() {
    RunRecord run;
    run.input = "walk.mp4";
    run.motionLog = "logs/walk.gcsv";
    run.param = zpr_test::makeParam(640, 360);
    run.remedy = "--axes XYZ";
    run.shake = ShakeAmounts{0.004, 0.002};
    run.param.fieldOfView = 503.5;
    run.param.fieldOfViewMode = ZPR_FOV_FOCAL_LENGTH;
    run.choosesSmoothing = true;
    run.meanSmoothingLevel = 7.25;
    run.notes = {"a </script> <!-- note & \xE2\x80\xA8"};
    const Quaternion none(1, 0, 0, 0);
    run.frames.push_back({1.5, none, rotation(0.1, 0, 1, 0), 0.25, 2.5});
    for (int i = 0; i < 2; ++i) run.frames.push_back({1.6, std::nullopt, std::nullopt, 0.0, 1.0});
    run.frames.push_back({1.7, none, none, 0.75, 2.0});
    return run;
}

TEST(RunRecord, IsTheSameAfterAFile) {
    const zpr_test::TemporaryFolder folder;
    const std::string path = folder.path("run.json");
    const RunRecord run = makeRun();
    saveRunRecord({path}, run);
    const RunRecord read = loadRunRecord(path);
    EXPECT_EQ(read.input, run.input);
    EXPECT_EQ(read.notes, run.notes);
    EXPECT_TRUE(read.choosesSmoothing);
    EXPECT_EQ(read.meanSmoothingLevel, 7.25);
    EXPECT_EQ(read.param.fieldOfView, 503.5);
    EXPECT_EQ(read.param.sensorMask, run.param.sensorMask);
    ASSERT_EQ(read.frames.size(), 4u);
    EXPECT_EQ(*read.frames[0].corrected, *run.frames[0].corrected);
    EXPECT_FALSE(read.frames[1].measured);
    EXPECT_EQ(read.frames[3].marginUsed, 0.75);
    EXPECT_EQ(read.shake->after, 0.002);
    EXPECT_EQ(read.remedy, "--axes XYZ");

    const std::pair<const char*, const char*> kCases[] = {
        {"[]", "is not what stabilize --save-run writes"},
        {R"({"kind": "framehold run"})", "input"},
        {"{", "not JSON"}};
    for (const auto& [text, message] : kCases) {
        const std::string bad = folder.write("bad.json", text);
        const std::string error = zpr_test::errorOf([&] { loadRunRecord(bad); });
        EXPECT_NE(error.find(message), std::string::npos) << error;
    }
}

/// A run of 100 frames, of which `atLimit` use up the margin.
RunRecord runWith(const char* engine, std::optional<ShakeAmounts> shake, int atLimit, int crop) {
    RunRecord run;
    run.engine = engine;
    run.motionLog = "walk.gcsv";
    run.shake = shake;
    run.param.cropPercent = crop;
    run.param.smoothingLevel = 9;
    const Quaternion none(1, 0, 0, 0);
    for (int i = 0; i < 100; ++i) {
        run.frames.push_back({i / 30.0, none, none, i < atLimit ? 0.98 : 0.4, 1.0});
    }
    return run;
}

TEST(Verdict, NamesWhatHoldsTheResultBack) {
    using Kind = Verdict::Kind;
    const RunRecord good = runWith("offline", ShakeAmounts{4e-3, 6e-4}, 0, 80);
    const RunRecord usedUp = runWith("offline", ShakeAmounts{4e-3, 2.4e-3}, 30, 97);
    const auto with = [](RunRecord run, auto change) {
        change(run);
        return run;
    };
    const struct {
        const char* name;
        RunRecord run;
        Kind kind;
        const char* sentence;
        const char* advice;  // its start; empty: none
    } kCases[] = {
        {"good", good, Kind::kSteady, "steady: 15 % of the shake", "--crop 90 "},
        {"good, margin touched once", runWith("offline", ShakeAmounts{4e-3, 6e-4}, 1, 80),
         Kind::kSteady, "steady: 15 %", ""},
        {"good, zooming out", with(good, [](RunRecord& run) { run.zoom = "dynamic"; }),
         Kind::kSteady, "steady: 15 %", ""},
        {"margin used up", usedUp, Kind::kPartly, "used up in 30 of 100", "--crop 80 "},
        {"margin used up by a small picture",
         with(usedUp, [](RunRecord& run) { run.param.cropPercent = 60; }), Kind::kPartly,
         "used up in 30 of 100", "--smoothing 7 "},
        {"pan that touches the border", runWith("live", ShakeAmounts{5e-4, 6.4e-3}, 60, 80),
         Kind::kShaky, "shakier than the source: the crop margin", "--crop 70 "},
        {"live", runWith("live", ShakeAmounts{4e-3, 2e-3}, 0, 80), Kind::kPartly, "50 %",
         "--engine offline"},
        {"wrong axes",
         with(runWith("live", ShakeAmounts{4e-3, 6e-3}, 50, 80),
              [](RunRecord& run) {
                  run.misfit = "its axes are XYZ";
                  run.remedy = "--axes XYZ";
              }),
         Kind::kShaky, "shakier than the source: the motion log does not fit", "--axes XYZ "},
        {"another clip's log", with(good, [](RunRecord& run) { run.misfit = "no axes fit"; }),
         Kind::kSteady, "15 %", "--no-motion "},
        {"log too short",
         with(usedUp,
              [](RunRecord& run) {
                  for (size_t i = 0; i < 20; ++i) run.frames[i].measured.reset();
              }),
         Kind::kPartly, "20 of 100 frames have no orientation", "start the motion log"},
        {"something else", runWith("offline", ShakeAmounts{4e-3, 3.6e-3}, 0, 80), Kind::kShaky,
         "hardly steadier, 90 %", "--auto "},
        {"tripod", runWith("offline", ShakeAmounts{2e-4, 2e-4}, 0, 95), Kind::kSteady,
         "steady already", ""},
        {"not measured", runWith("offline", std::nullopt, 0, 80), Kind::kUnknown,
         "could not be measured", ""},
        {"another program", runWith("", ShakeAmounts{4e-3, 2.4e-3}, 0, 0), Kind::kPartly, "60 %",
         ""},
    };
    for (const auto& c : kCases) {
        const Verdict verdict = verdictOf(c.run);
        EXPECT_EQ(verdict.kind, c.kind) << c.name;
        EXPECT_NE(verdict.sentence.find(c.sentence), std::string::npos)
            << c.name << ": " << verdict.sentence;
        EXPECT_EQ(verdict.advice.rfind(c.advice, 0), 0u) << c.name << ": " << verdict.advice;
        EXPECT_EQ(verdict.advice.empty(), std::string(c.advice).empty()) << verdict.advice;
    }
}

TEST(ParameterSnippet, NamesWhatItSets) {
    const std::string snippet = parameterSnippet(makeRun().param);
    for (const char* line :
         {"param.inputImage.width = 640;", "param.fieldOfView = 503.5;",
          "param.fieldOfViewMode = ZPR_FOV_FOCAL_LENGTH;", "ZPR_SENSOR_BIT(ZPR_SENSOR_GRAVITY_1) |",
          "ZPR_SENSOR_BIT(ZPR_SENSOR_RATE_1);"}) {
        EXPECT_NE(snippet.find(line), std::string::npos) << snippet;
    }
}

ReportContent makeContent() {
    ReportContent content;
    content.run = makeRun();
    for (ClipMeasures* clip : {&content.before, &content.after}) {
        clip->width = clip == &content.before ? 640 : 320;
        clip->times = {5.0, 5.1};
        clip->shake = {{1.0, -1.0}, {0.0, 0.0}, {0.0, 0.0}, {0.0, 0.0}};
        clip->displacement = 1.0;
    }
    return content;
}

TEST(PlayingClip, IsTheShakiestPart) {
    ClipMeasures calm;
    calm.width = 640;
    calm.height = 360;
    for (int i = 0; i < 100; ++i) calm.times.push_back(5.0 + 0.1 * i);
    const std::vector<double> small(100, 0.001);
    calm.shake = {small, small, small, small};
    const std::pair<size_t, std::pair<double, double>> kCases[] = {
        {0, {0.0, 0.0}}, {60, {4.05, 6.05}}, {99, {7.95, 8.05}}};
    for (const auto& [frame, start] : kCases) {
        for (const auto part :
             {&PicturePath::x, &PicturePath::y, &PicturePath::rotation, &PicturePath::logScale}) {
            ClipMeasures clip = calm;
            (clip.shake.*part)[frame] = -2.0;
            const double found = shakiestStart(clip, 2.0);
            EXPECT_GE(found, start.first) << frame;
            EXPECT_LE(found, start.second) << frame;
        }
    }
    EXPECT_EQ(shakiestStart(calm, 60.0), 0.0);
}

TEST(PlayingClip, StaysSmallWhateverItShows) {
    VideoSettings settings;
    settings.width = 320;
    settings.height = 180;
    settings.timeBase = {1, 30};
    constexpr int64_t kBitRate = 400'000;
    EmbeddedVideo video(settings, kBitRate);
    std::minstd_rand noise(7);
    for (int i = 0; i < 60; ++i) {
        const AvPtr<AVFrame> frame = makeNv12Frame(320, 180);
        std::fill_n(frame->data[1], 90 * frame->linesize[1], Levels::kNoChroma);
        std::generate_n(frame->data[0], 180 * frame->linesize[0],
                        [&noise] { return static_cast<uint8_t>(noise() >> 8); });
        frame->pts = i;
        video.write(*frame);
    }
    const std::string url = video.finish();
    EXPECT_EQ(url.rfind("data:video/", 0), 0u);
    // Two seconds and what may be ahead, with a fifth for the container; base64 takes 4 for 3.
    EXPECT_LT(static_cast<double>(url.size()), 1.2 * 3.0 * kBitRate / 8 * 4 / 3);
}

TEST(PageData, HasFramesWithoutOrientationAndOnePixelSize) {
    const auto data = pageData(makeContent());
    EXPECT_EQ(data["run"]["without"].dump(), "[[1,2]]");
    EXPECT_EQ(data["run"]["margin"].dump(), "[25.0,null,null,75.0]");
    EXPECT_EQ(data["run"]["time"].dump(), "[0.0,0.1,0.1,0.2]");
    EXPECT_EQ(data["shake"]["after"]["x"].dump(), "[2.0,-2.0]");
    EXPECT_EQ(data["measures"][0]["remaining"], 2.0);
    // Of the whole clips, not what the run measured in samples.
    EXPECT_EQ(data["verdict"]["kind"], "shaky");
    EXPECT_FALSE(data["run"].contains("zoom"));
    ReportContent zooming = makeContent();
    zooming.run->frames[3].zoom = 1.25;
    EXPECT_EQ(pageData(zooming)["run"]["zoom"].dump(), "[1.0,1.0,1.0,1.25]");
}

TEST(PageData, HasDirectionsOfTheUprightPicture) {
    ReportContent content = makeContent();
    content.before.shake.x = {3.0, 3.0};
    content.before.shake.y = {5.0, 5.0};
    content.run->frames[3].measured = rotation(toRadians(-10.0), 1, 0, 0);  // to the right
    struct Case {
        int turns;
        double x, y, pan, tilt;
    };
    constexpr Case kCases[] = {
        {0, 3, 5, 10, 0}, {1, -5, 3, 0, -10}, {2, -3, -5, -10, 0}, {3, 5, -3, 0, 10}};
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.turns);
        content.quarterTurns = c.turns;
        const auto data = pageData(content);
        EXPECT_EQ(data["shake"]["before"]["x"][0], c.x);
        EXPECT_EQ(data["shake"]["before"]["y"][0], c.y);
        EXPECT_NEAR(data["run"]["measured"]["pan"][3].get<double>(), c.pan, 1e-4);
        EXPECT_NEAR(data["run"]["measured"]["tilt"][3].get<double>(), c.tilt, 1e-4);
        EXPECT_EQ(data["width"] > data["height"], c.turns % 2 == 0);
    }
}

TEST(ReportPage, HoldsItsDataAndNothingFromOutside) {
    const zpr_test::TemporaryFolder folder;
    const std::string path = folder.path("page.html");
    if (pageAssets() == nullptr) {
        EXPECT_THROW(writeReport({path}, makeContent()), std::runtime_error);
        return;
    }
    writeReport({path}, makeContent());
    const std::string page = readFile(path);
    EXPECT_NE(page.find("a \\u003c/script\\u003e \\u003c!-- note \\u0026 \\u2028"),
              std::string::npos);
    EXPECT_EQ(page.find("<!--"), std::string::npos);
    for (const char* outside : {"src=\"http", "href=", "@import", "url("}) {
        EXPECT_EQ(page.find(outside), std::string::npos) << outside;
    }
}

}  // namespace
