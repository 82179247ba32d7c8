#include "convert/convert_log.h"

#include "cli/run_files.h"
#include "common/interruption.h"
#include "common/output_file.h"
#include "common/progress.h"
#include "common/text_fields.h"
#include "motion/motion_log_reader.h"
#include "motion/motion_log_writer.h"

#include <cstdio>
#include <filesystem>

#include <fmt/format.h>

#include <CLI/CLI.hpp>

namespace framehold {

namespace {

LogFormat formatFor(const ConvertOptions& o) {
    const std::string ending = lowerCase(std::filesystem::path(o.output).extension().string());
    if (o.format == "gcsv" || (o.format.empty() && ending == ".gcsv")) return LogFormat::kGcsv;
    if (o.format == "csv" || (o.format.empty() && ending == ".csv")) return LogFormat::kCsv;
    const bool isMovie = ending == ".mp4" || ending == ".mov";
    if (isMovie && (o.format.empty() || o.format == "mp4")) return LogFormat::kCamm;
    throw CLI::ValidationError(
        "--output",
        o.format.empty()
            ? fmt::format("'{}': ends in none of .gcsv, .csv, .mp4 and .mov; give --format",
                          o.output)
            : fmt::format("'{}': --format mp4 takes a name in .mp4 or .mov", o.output));
}

/// "1200 rates and 1200 accelerations"
std::string contentOf(const MotionLog& log) {
    std::string text;
    for (const auto& [count, noun] :
         {std::pair(log.rates.size(), "rate"), std::pair(log.gravity.size(), "acceleration"),
          std::pair(log.orientations.size(), "orientation")}) {
        if (count > 0) text += (text.empty() ? "" : ", ") + counted(count, noun);
    }
    return text;
}

}  // namespace

void convertLog(const ConvertOptions& o) {
    const LogFormat format = formatFor(o);
    if (format != LogFormat::kCamm && !o.video.empty()) {
        throw CLI::ValidationError("--video", "goes with .mp4 and .mov only");
    }
    const MotionLog log = readMotionLog(o.log);
    RunFiles files;
    for (const std::string& file : log.files) files.addInput(file);
    files.addInput(o.video);
    files.addOutput("--output", o.output);
    files.check(o.overwrites, o.quiet);

    std::vector<std::string> losses = lossesOf(log, format);
    const size_t readings = log.rates.size() + log.gravity.size() + log.orientations.size();
    Progress progress("converting", static_cast<int64_t>(readings), !o.quiet);
    const auto advance = [&progress] {
        throwIfInterrupted();
        progress.advance();
    };
    if (format == LogFormat::kCamm) {
        TelemetryTrack track{TelemetryKind::kCamm, cammPackets(log, o.timeOffset.value_or(0.0)),
                             log.orientation.letters()};
        const auto lost = writeMotionTrack({o.output, o.overwrites}, o.video, track, advance);
        losses.insert(losses.end(), lost.begin(), lost.end());
    } else {
        OutputFile file({o.output, o.overwrites});
        writeTextLog(log, format, file.stream(), advance);
        file.commit();
    }
    progress.clear();
    if (!o.quiet) {
        for (const std::string& note : log.notes) fmt::print(stderr, "{}\n", escaped(note));
        fmt::print(stderr, "written: {} ({}, from {})\n", escaped(writtenName(o.output)),
                   contentOf(log), escaped(log.format));
    }
    reportLosses(losses);
}

}  // namespace framehold
