#include "stabilize/clip_run.h"

#include "common/interruption.h"
#include "common/text_fields.h"

#include <chrono>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>

namespace framehold {

ClipRun::ClipRun(const StabilizeOptions& options, const ClipInputs& clip,
                 const ClipSettings& settings, VideoReader& video, const EngineSetup& engine,
                 RunRecord& record)
    : options_(options), clip_(clip), settings_(settings), video_(video), notes_(engine.notes),
      record_(record), crop_(engine.crop), output_(options, video, engine.hdr),
      engine_(engine.make([this](const StabilizedFrame& frame) { write(frame); })),
      shake_(clip.video) {
    video_.setPacketSink([this](const AVPacket& packet) { output_.copyPacket(packet); });
    video_.acceptCutInput();
    record_.stageTimes = engine.stageTimes;
    record_.framesExpected = clip.video.expectedFrames;
    record_.motionLog = clip.files.motion;
    record_.engine = nameOf(settings.engine);
    record_.axes = settings.camera.axes.value.letters();
    record_.horizon = settings.horizon;
    record_.zoom = settings.zooms ? "dynamic" : "fixed";
    record_.framesPerSecond = clip.video.framesPerSecond;
}

void ClipRun::announce(RunMessages& messages) const {
    for (const std::string& note : describe(settings_.camera)) messages.note(note);
    for (const std::string& note : notes_) messages.note(note);
    for (const std::string& warning : settings_.warnings) messages.warn(warning);
    output_.announce(messages);
}

void ClipRun::run(const ProgressTarget& progress, RunMessages& messages) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    StageClock clock;
    progress_.emplace("stabilizing", clip_.video.expectedFrames, progress);
    readFrames();
    output_.finish();
    progress_->clear();
    clock.end("frames", record_.stageTimes);
    warnAboutCoverage(messages);
    warnAboutVideo(messages);
    record_.shake = shake_.measure();
    if (record_.shake) warnOfShake(*record_.shake, messages);
    record_.param = paramOf(settings_);
    record_.param.cropPercent = crop_;
    record_.choosesSmoothing = settings_.choosesSmoothing;
    if (settings_.choosesSmoothing && !record_.frames.empty()) {
        record_.meanSmoothingLevel = levels_ / static_cast<double>(record_.frames.size());
    }
    record_.secondsTaken = std::chrono::duration<double>(Clock::now() - start).count();
    messages.say(fmt::format("{} in, {} out, {:.1f} frames per second", counted(taken_, "frame"),
                             progress_->done(), progress_->perSecond()));
}

void ClipRun::readFrames() {
    const bool isPlanar = keepsPixels(options_);
    while (const AVFrame* frame = isPlanar ? video_.nextPlanar() : video_.next()) {
        throwIfInterrupted();
        const double time = timeOf(*frame, taken_, clip_, video_);
        if (taken_++ == 0) {
            firstTime_ = time;
        } else if (time < lastTime_) {
            ++backwards_;
        }
        lastTime_ = time;
        shake_.addSource(*frame, lastTime_);
        engine_->push(*frame, lastTime_);
    }
    engine_->finish(1.0 / clip_.video.framesPerSecond);
    if (taken_ > 0) return;
    std::string what = "holds no frames";
    if (const int damaged = video_.damagedPackets(); damaged > 0) {
        what += fmt::format("; {} packets are damaged", damaged);
    }
    throw MediaError(clip_.files.video, what);
}

void ClipRun::write(const StabilizedFrame& frame) {
    throwIfInterrupted();
    record_.frames.push_back({frame.time, frame.path.measured, frame.path.corrected,
                              frame.path.marginUsed, frame.milliseconds, frame.path.zoom});
    levels_ += frame.level;
    shake_.addResult(*frame.picture, frame.time);
    output_.write(*frame.picture, frame.original.get());
    progress_->advance();
}

void ClipRun::warnAboutVideo(RunMessages& messages) const {
    for (const std::string& loss : video_.losses(taken_)) messages.lose(loss);
    if (video_.untimedFrames() > 0) {
        messages.warn(fmt::format("{} without a timestamp: taking {:g} per second",
                                  counted(static_cast<size_t>(video_.untimedFrames()), "frame"),
                                  video_.framesPerSecond()));
    }
    if (backwards_ > 0) {
        messages.warn(counted(backwards_, "frame") +
                      " with times before those of the frame before");
    }
    if (video_.isInterlaced()) {
        messages.warn("the video is interlaced: its fields were stabilized as one picture");
    }
}

void ClipRun::warnAboutCoverage(RunMessages& messages) const {
    if (!clip_.log) return;
    const ZPR_Param param = paramOf(settings_);
    const MotionLog& log = *clip_.log;
    const bool isFed = settings_.feedsOrientations();
    const double from = settings_.camera.clockFactor() *
                        (isFed ? log.orientations.front().time : log.rates.front().time);
    const double to = settings_.camera.clockFactor() *
                      (isFed ? log.orientations.back().time : log.rates.back().time);
    const double first = firstTime_ + param.timeOffset;
    const double last = lastTime_ + param.timeOffset + param.readoutTime;
    if (from <= first && to >= last) return;
    const bool isLive = settings_.engine == Engine::kLive;
    messages.warn(
        fmt::format("the motion log covers {} to {}, the frames need {} to {}: frames "
                    "outside {}; start the log before the video and stop it after",
                    durationText(from), durationText(to), durationText(first), durationText(last),
                    isLive ? "are only cropped" : "follow the pictures alone"));
}

}  // namespace framehold
