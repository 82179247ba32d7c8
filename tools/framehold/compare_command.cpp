#include "common/interruption.h"
#include "common/progress.h"
#include "framehold/commands.h"
#include "framehold/side_by_side.h"
#include "media/picture_writer.h"
#include "media/video_reader.h"
#include "media/video_writer.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

#include <fmt/format.h>

#include <CLI/CLI.hpp>

namespace framehold {

namespace {

struct CompareOptions {
    std::string before;
    std::string after;
    std::string video;    // empty: none
    std::string picture;  // empty: none
    int firstFrame = 0;
    int frames = 30;
    bool quiet = false;
};

/// The mean of a number of frames: what moves is blurred.
class MeanFrame {
public:
    void add(const AVFrame& frame) {
        if (!mean_) {
            mean_ = makeNv12Frame(frame.width, frame.height);
            sums_.resize(static_cast<size_t>(frame.width) * static_cast<size_t>(frame.height) * 3 /
                         2);
        }
        auto sum = sums_.begin();
        visit(frame, [&](const uint8_t& byte) { *sum++ += byte; });
        ++count_;
    }

    const AVFrame& frame() {
        auto sum = sums_.begin();
        visit(*mean_,
              [&](uint8_t& byte) { byte = static_cast<uint8_t>((*sum++ + count_ / 2) / count_); });
        return *mean_;
    }

    bool isEmpty() const { return count_ == 0; }

private:
    template <class Visit>
    static void visit(const AVFrame& frame, Visit visit) {
        for (int plane = 0; plane < 2; ++plane) {
            for (int y = 0; y < frame.height >> plane; ++y) {
                uint8_t* row = frame.data[plane] + ptrdiff_t{y} * frame.linesize[plane];
                std::for_each(row, row + frame.width, visit);
            }
        }
    }

    AvPtr<AVFrame> mean_;
    std::vector<uint32_t> sums_;
    uint32_t count_ = 0;
};

void compare(const CompareOptions& options) {
    VideoReader before(options.before);
    VideoReader after(options.after);
    std::optional<VideoWriter> writer;
    if (!options.video.empty()) {
        VideoSettings settings;
        settings.width = before.width() + kDivider + after.width();
        settings.height = before.height();
        settings.timeBase = before.timeBase();
        settings.frameRate = before.frameRate();
        writer.emplace(options.video, settings);
    }
    MeanFrame mean;
    Progress progress("comparing", before.expectedFrames(), !options.quiet);
    const int64_t end = int64_t{options.firstFrame} + options.frames;
    while (writer || progress.done() < end) {
        throwIfInterrupted();
        const AVFrame* left = before.next();
        const AVFrame* right = after.next();
        if (left == nullptr || right == nullptr) break;
        AvPtr<AVFrame> both = sideBySide(*left, *right);
        both->pts = left->pts;
        if (writer) writer->write(*both);
        if (progress.done() >= options.firstFrame && progress.done() < end) mean.add(*both);
        progress.advance();
    }
    if (writer) writer->finish();
    if (options.picture.empty()) return;
    if (mean.isEmpty()) {
        throw std::runtime_error(fmt::format("--from {}: the clips have only {} frames in common",
                                             options.firstFrame, progress.done()));
    }
    writePng(options.picture, mean.frame());
}

}  // namespace

void addCompareCommand(CLI::App& app) {
    auto options = std::make_shared<CompareOptions>();
    CompareOptions& o = *options;
    CLI::App* command = app.add_subcommand("compare", "Show two clips side by side");
    command->footer(
        "Example:\n"
        "  framehold compare walk.mp4 walk-stable.mp4 --video both.mp4 --picture mean.png\n"
        "\n"
        "The first clip is on the left. The picture is the mean of some frames: the shake of a\n"
        "second blurs it, and what stands still stays sharp.");
    command->add_option("BEFORE", o.before, "One clip")->required()->check(CLI::ExistingFile);
    command->add_option("AFTER", o.after, "The other one")->required()->check(CLI::ExistingFile);
    command->add_option("--video", o.video, "Write both beside each other to this file");
    command->add_option("--picture", o.picture, "Write the mean of some frames to this .png file");
    command->add_option("--from", o.firstFrame, "First frame of the picture")
        ->check(CLI::Range(0, 1000000))
        ->capture_default_str();
    command->add_option("--frames", o.frames, "Number of frames in the picture")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    command->add_flag("-q,--quiet", o.quiet, "No progress bar");
    command->callback([options] {
        if (options->video.empty() && options->picture.empty()) {
            throw CLI::ValidationError("compare", "nothing to do: give --video or --picture");
        }
        compare(*options);
    });
}

}  // namespace framehold
