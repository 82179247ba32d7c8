#include "compare/measured_clips.h"

#include "cli/run_files.h"
#include "common/angles.h"
#include "common/interruption.h"
#include "common/output_file.h"
#include "common/progress.h"
#include "common/text_fields.h"
#include "measures/cropping_ratio.h"
#include "measures/measure_rows.h"
#include "media/video_reader.h"

#include <cmath>
#include <filesystem>

#include <fmt/format.h>

#include <nlohmann/json.hpp>

namespace framehold {

namespace {

void printTable(const std::vector<ClipMeasures>& clips) {
    constexpr int kColumn = 17;
    const auto printRow = [&](const std::string& label, const auto& cell) {
        fmt::print("{:<32}", label);
        for (const ClipMeasures& clip : clips) fmt::print("{:>{}}", cell(clip), kColumn);
        fmt::print("\n");
    };
    printRow("", [](const ClipMeasures& clip) {
        const std::string name = std::filesystem::path(clip.video).filename().string();
        return escaped(name.size() < kColumn ? name : "~" + name.substr(name.size() - kColumn + 2));
    });
    printRow("size", [](const ClipMeasures& clip) {
        return fmt::format("{}x{}", clip.width, clip.height);
    });
    printRow("frames", [](const ClipMeasures& clip) { return clip.times.size(); });
    for (const MeasureRow& row : measureRows()) {
        printRow(row.label, [&row, &clips](const ClipMeasures& clip) {
            const auto value = row.value(clip);
            const char* none = clip.isPathKnown() ? "-" : "unknown";
            std::string text = value ? fmt::format("{:.{}f}", *value, row.digits) : none;
            const auto ratio = &clip == &clips[0] ? std::nullopt : remaining(row, clips[0], clip);
            return ratio ? text + fmt::format(" ({:.0f} %)", 100.0 * *ratio) : text;
        });
    }
    if (clips.size() > 1) fmt::print("(in brackets: what is left of the first clip's)\n");
}

void printJson(const std::vector<ClipMeasures>& clips, double cutoff) {
    nlohmann::ordered_json all;
    all["cutoff_hz"] = cutoff;
    for (const ClipMeasures& clip : clips) {
        nlohmann::ordered_json one;
        one["video"] = clip.video;
        one["width"] = clip.width;
        one["height"] = clip.height;
        one["frames"] = clip.times.size();
        one["lost_frames"] = clip.lostFrames;
        for (const MeasureRow& row : measureRows()) {
            if (const auto value = row.value(clip)) one[row.key] = *value;
        }
        for (const MeasureRow& row : measureRows()) {
            if (&clip == &clips[0]) break;
            if (const auto r = remaining(row, clips[0], clip)) one["remaining"][row.key] = *r;
        }
        all["clips"].push_back(one);
    }
    fmt::print("{}\n", all.dump(1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

std::string pathTable(const std::vector<ClipMeasures>& clips) {
    std::string table =
        "video,frame,time_s,x_px,y_px,rotation_deg,scale,"
        "shake_x_px,shake_y_px,shake_rotation_deg,shake_scale\n";
    const auto add = [&table](const PicturePath& part, size_t i) {
        table += fmt::format(",{:.4f},{:.4f},{:.6f},{:.8f}", part.x[i], part.y[i],
                             toDegrees(part.rotation[i]), std::exp(part.logScale[i]));
    };
    for (size_t clip = 0; clip < clips.size(); ++clip) {
        for (size_t i = 0; i < clips[clip].times.size(); ++i) {
            table += fmt::format("{},{},{:.6f}", clip, i, clips[clip].times[i]);
            add(clips[clip].path, i);
            add(clips[clip].shake, i);
            table += '\n';
        }
    }
    return table;
}

}  // namespace

std::vector<ClipMeasures> measureClips(const std::vector<std::string>& videos,
                                       const MeasureSettings& settings) {
    std::vector<ClipMeasures> clips;
    for (const std::string& video : videos) {
        Progress progress("measuring", 2 * VideoReader(video).expectedFrames(), !settings.quiet);
        clips.push_back(measureClip(video, settings.cutoff, [&progress] {
            throwIfInterrupted();
            progress.advance();
        }));
        if (clips.size() > 1) {
            clips.back().croppingRatio = croppingRatio(videos[0], video, settings.delay);
        }
    }
    return clips;
}

void printMeasures(const MeasureOptions& options) {
    RunFiles files;
    for (const std::string& video : options.videos) files.addInput(video);
    files.addOutput("--csv", options.csv);
    files.check(options.overwrites, options.settings.quiet);
    const std::vector<ClipMeasures> clips = measureClips(options.videos, options.settings);
    if (!options.csv.empty()) writeFile({options.csv, options.overwrites}, pathTable(clips));
    if (options.json) {
        printJson(clips, options.settings.cutoff);
    } else {
        printTable(clips);
    }
    for (const ClipMeasures& clip : clips) {
        if (clip.lostFrames == 0) continue;
        fmt::print(stderr, "warning: {}: the motion of {} of {} frames could not be found\n",
                   escaped(clip.video), clip.lostFrames, clip.times.size());
    }
    std::vector<std::string> losses;
    for (const ClipMeasures& clip : clips) {
        losses.insert(losses.end(), clip.losses.begin(), clip.losses.end());
    }
    reportLosses(losses);
}

}  // namespace framehold
