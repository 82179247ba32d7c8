#include "compare/side_by_side.h"

#include "cli/run_files.h"
#include "common/interruption.h"
#include "common/progress.h"
#include "media/still_picture.h"
#include "media/upright_frame.h"
#include "media/video_reader.h"
#include "media/video_writer.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

VideoSettings settingsFor(const VideoReader& left, const VideoReader& right, int turns) {
    const FrameArea before = turned(sizeOf(left), turns);
    const FrameArea after = turned(sizeOf(right), turns);
    VideoSettings settings;
    settings.width = before.width + kDivider + after.width;
    settings.height = before.height;
    settings.timeBase = left.timeBase();
    settings.frameRate = left.frameRate();
    return settings;
}

}  // namespace

AvPtr<AVFrame> sideBySide(const AVFrame& left, const AVFrame& right) {
    const Levels levels = levelsOf(left);
    AvPtr<AVFrame> both = makeNv12Frame(left.width + kDivider + right.width, left.height);
    for (int plane = 0; plane < 2; ++plane) {
        const int rightRows = right.height >> plane;
        const uint8_t white = plane == 0 ? levels.white : Levels::kNoChroma;
        const uint8_t black = plane == 0 ? levels.black : Levels::kNoChroma;
        for (int y = 0; y < both->height >> plane; ++y) {
            const auto row = [&](const AVFrame& frame) {
                return frame.data[plane] + ptrdiff_t{y} * frame.linesize[plane];
            };
            uint8_t* out = std::copy_n(row(left), left.width, row(*both));
            out = std::fill_n(out, kDivider, white);
            if (y < rightRows) {
                std::copy_n(row(right), right.width, out);
            } else {
                std::fill_n(out, right.width, black);
            }
        }
    }
    both->color_range = left.color_range;
    both->colorspace = left.colorspace;
    both->pts = right.pts;
    both->pkt_duration = right.pkt_duration;
    return both;
}

void compareClips(const CompareOptions& options) {
    RunFiles files;
    files.addInput(options.before);
    files.addInput(options.after);
    files.addOutput("--video", options.video);
    files.addOutput("--picture", options.picture);
    files.check(options.overwrites, options.quiet);
    VideoReader before(options.before);
    VideoReader after(options.after);
    before.acceptCutInput();
    after.acceptCutInput();
    const int turns = quarterTurns(before);
    std::optional<VideoWriter> writer;
    if (!options.video.empty()) {
        writer.emplace(OutputName{options.video, options.overwrites},
                       settingsFor(before, after, turns));
    }
    MeanFrame mean;
    Progress progress("comparing", before.expectedFrames(), !options.quiet);
    const int64_t end = int64_t{options.firstFrame} + options.frames;
    while (writer || progress.done() < end) {
        throwIfInterrupted();
        const AVFrame* left = before.next();
        const AVFrame* right = after.next();
        if (left == nullptr || right == nullptr) break;
        AvPtr<AVFrame> both = sideBySide(*turned(*left, turns), *turned(*right, turns));
        both->pts = left->pts;
        if (writer) writer->write(*both);
        if (progress.done() >= options.firstFrame && progress.done() < end) mean.add(*both);
        progress.advance();
    }
    if (writer) writer->finish();
    std::vector<std::string> losses;
    const auto frames = static_cast<size_t>(progress.done());
    for (const std::string& loss : before.losses(frames))
        losses.push_back(options.before + ": " + loss);
    for (const std::string& loss : after.losses(frames))
        losses.push_back(options.after + ": " + loss);
    if (options.picture.empty()) return reportLosses(losses);
    if (mean.isEmpty()) {
        throw std::runtime_error(fmt::format("--from {}: the clips have only {} frames in common",
                                             options.firstFrame, progress.done()));
    }
    writePng({options.picture, options.overwrites}, *mean.mean());
    reportLosses(losses);
}

}  // namespace framehold
