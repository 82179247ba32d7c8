#include "cli/options.h"
#include "commands/commands.h"
#include "common/interruption.h"
#include "common/progress.h"
#include "compare/side_by_side.h"
#include "media/still_picture.h"
#include "media/video_reader.h"
#include "media/video_writer.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

#include <fmt/format.h>

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
    writePng(options.picture, *mean.mean());
}

}  // namespace

void addCompareCommand(Command& program) {
    auto options = std::make_shared<CompareOptions>();
    CompareOptions& o = *options;
    Command& command = program.addCommand("compare", "Show two clips side by side");
    command.setNotes(
        "The first clip is on the left. The picture is the mean of some frames: the shake of "
        "a second blurs it, and what stands still stays sharp.");
    command.setExamples(
        {"framehold compare walk.mp4 steady.mp4 --video both.mp4 --picture mean.png"});
    command.addInputFile("BEFORE", o.before, "One clip")->required();
    command.addInputFile("AFTER", o.after, "The other one")->required();
    command.addOutputFile("--video", o.video, "Write both beside each other to this file");
    command.addOutputFile("--picture", o.picture,
                          "Write the mean of some frames to this .png file");
    command.addNumber("--from", o.firstFrame, "First frame of the picture", {0, 1000000})
        ->capture_default_str();
    command.addNumber("--frames", o.frames, "Number of frames in the picture", {1, 1000})
        ->capture_default_str();
    addQuietFlag(command, o.quiet);
    command.callback([options] {
        if (options->video.empty() && options->picture.empty()) {
            throw CLI::ValidationError("nothing to do: give --video or --picture");
        }
        compare(*options);
    });
}

}  // namespace framehold
