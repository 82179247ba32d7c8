#include "stabilize/stabilize_clip.h"

#include "calibrate/calibrate_clip.h"
#include "common/interruption.h"
#include "common/progress.h"
#include "media/video_reader.h"
#include "report/run_record.h"
#include "stabilize/clip_output.h"
#include "stabilize/clip_report.h"
#include "stabilize/motion_feed.h"
#include "stabilize/motion_samples.h"
#include "stabilize/padded_frame.h"
#include "stabilize/path_observer.h"
#include "stabilize/path_table.h"
#include "stabilize/run_summary.h"
#include "stabilize/stabilizer.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <memory>

#include <fmt/format.h>

namespace framehold {

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

ZPR_Image imageOf(const AVFrame& frame) {
    ZPR_Image image{};
    image.format = ZPR_FORMAT_SEMIPLANAR_1;
    image.width = frame.width;
    image.height = frame.height;
    for (int i = 0; i < 2; ++i) {
        image.plane[i] = frame.data[i];
        image.pitch[i] = frame.linesize[i];
    }
    return image;
}

/// Black, for pixels that have no source.
void clear(AVFrame& frame) {
    std::fill_n(frame.data[0], ptrdiff_t{frame.linesize[0]} * frame.height, levelsOf(frame).black);
    std::fill_n(frame.data[1], ptrdiff_t{frame.linesize[1]} * frame.height / 2, Levels::kNoChroma);
}

class ClipStabilizer {
public:
    ClipStabilizer(const StabilizeOptions& options, const ClipInputs& clip,
                   const ClipSettings& settings, VideoReader& reader, bool showsProgress,
                   bool observesPath, RunRecord& record)
        : options_(options), clip_(clip), reader_(reader), record_(record),
          param_(paramOf(settings)), motion_(prepareMotion(clip, settings)),
          padded_(reader_.width()),
          output_(options, reader_, usesPaddedFrame() ? &padded_ : nullptr),
          progress_("stabilizing", reader_.expectedFrames(), showsProgress),
          observesPath_(observesPath) {
        reader_.setPacketSink([this](const AVPacket& packet) { output_.copyPacket(packet); });
        record_.motionLog = clip.files.motion;
        record_.axes = settings.camera.axes.value.letters();
        record_.framesPerSecond = reader_.framesPerSecond();
    }

    /// Says what the run starts with.
    void tell(const ClipSettings& settings, RunMessages& messages) const {
        for (const std::string& note : describe(settings.camera)) messages.note(note);
        for (const std::string& note : motion_.notes) messages.note(note);
        for (const std::string& warning : settings.warnings) messages.warn(warning);
        output_.tell(messages);
    }

    void run(RunMessages& messages) {
        const Clock::time_point start = Clock::now();
        while (const AVFrame* frame = reader_.next()) {
            throwIfInterrupted();
            take(*frame);
        }
        flush();
        if (taken_ == 0) {
            std::string what = "holds no frames";
            if (const int damaged = reader_.damagedPackets(); damaged > 0) {
                what += fmt::format("; {} packets are damaged", damaged);
            }
            throw MediaError(options_.files.video, what);
        }
        output_.finish();
        if (recorder_) recorder_->finish();
        progress_.clear();
        warnAboutCoverage(messages);
        warnAboutVideo(messages);
        record_.param = param_;
        record_.secondsTaken = secondsSince(start);
        messages.say(fmt::format("{} frames in, {} out, {:.1f} frames per second", taken_,
                                 progress_.done(), progress_.perSecond()));
    }

private:
    /// A frame that the library has been given and not yet given back.
    struct WaitingFrame {
        AvPtr<AVFrame> original;
        double time;  // seconds, of the first row, on the motion log's clock
    };

    /// Outputs of a size of their own are rendered as they are.
    bool usesPaddedFrame() const { return !options_.clip.outputSize; }

    /// Seconds, on the motion log's clock but for the time offset.
    double timeOf(const AVFrame& frame) const {
        if (clip_.metadata.frameTimes.empty()) {
            return static_cast<double>(frame.pts) * av_q2d(reader_.timeBase());
        }
        if (taken_ >= clip_.metadata.frameTimes.size()) {
            throw std::runtime_error(
                fmt::format("frames.csv beside {} has {} frames, the video has more",
                            clip_.files.metadata, clip_.metadata.frameTimes.size()));
        }
        return clip_.metadata.frameTimes[taken_];
    }

    AvPtr<AVFrame> makeOutputFrame() const {
        AvPtr<AVFrame> frame = makeNv12Frame(param_.outputImage.width, param_.outputImage.height);
        frame->color_range = reader_.colours().range;
        frame->colorspace = reader_.colours().matrix;
        clear(*frame);
        return frame;
    }

    /// Makes the instance; the first frame tells how rows lie and when time starts.
    void start(const AVFrame& frame, double time) {
        param_.inputImage.pitch[0] = param_.inputImage.pitch[1] = frame.linesize[0];
        if (!options_.session.empty()) {
            recorder_ = std::make_unique<SessionWriter>(options_.session, param_);
        }
        stabilizer_ = std::make_unique<Stabilizer>(param_, recorder_.get());
        if (observesPath_) observer_ = std::make_unique<PathObserver>(param_);
        firstTime_ = time + param_.timeOffset;
        shift_ = 1.0 - std::min(firstTime_, motion_.samples.front().timestamp);
        feed_ =
            std::make_unique<MotionFeed>(motion_.samples, shift_, [this](const ZPR_SensorData& s) {
                stabilizer_->addSample(s);
                if (observer_) observer_->addSample(s);
            });
    }

    void take(const AVFrame& original) {
        const AVFrame& frame = usesPaddedFrame() ? *padded_.pad(original) : original;
        const double time = timeOf(original);
        if (!stabilizer_) start(frame, time);
        lastTime_ = time + param_.timeOffset + param_.readoutTime;
        feed_->feedUpTo(lastTime_);
        waiting_.push_back({keep(original), time + param_.timeOffset});
        ++taken_;
        lastFrame_ = &frame;
        lastFrameTime_ = time;
        render(time, frame);
    }

    /// What is needed of a frame until its turn comes: times, and pixels only if they are shown.
    AvPtr<AVFrame> keep(const AVFrame& frame) const {
        AvPtr<AVFrame> kept(options_.sideBySide ? av_frame_clone(&frame) : av_frame_alloc());
        if (!kept) throw std::bad_alloc();
        kept->pts = frame.pts;
        kept->pkt_duration = frame.pkt_duration;
        return kept;
    }

    /// Gets the delayed frames out by repeating the last one. The library's own way to drain looks
    /// ahead from where draining began, not from the frame it renders, and the picture jumps.
    void flush() {
        const double period = 1.0 / reader_.framesPerSecond();
        for (int i = 1; !waiting_.empty(); ++i) {
            throwIfInterrupted();
            const double time = lastFrameTime_ + i * period;
            feed_->feedUpTo(time + param_.timeOffset + param_.readoutTime);
            render(time, *lastFrame_);
        }
    }

    void render(double time, const AVFrame& frame) {
        AvPtr<AVFrame> stable = makeOutputFrame();
        ZPR_Image image = imageOf(*stable);
        const Clock::time_point start = Clock::now();
        const bool isWritten = stabilizer_->stabilize(time + shift_, imageOf(frame), image);
        const double seconds = secondsSince(start);
        std::optional<ObservedPath> path;
        if (observer_) path = observer_->takeFrame(time + shift_);
        if (!isWritten) return;
        note(path.value_or(ObservedPath()), seconds);
        emit(*stable);
    }

    void note(const ObservedPath& path, double seconds) {
        record_.frames.push_back({waiting_.front().time, path.measured, path.corrected,
                                  path.marginUsed, 1000.0 * seconds});
    }

    void emit(AVFrame& stable) {
        const AVFrame& original = *waiting_.front().original;
        stable.pts = original.pts;
        stable.pkt_duration = original.pkt_duration;
        output_.write(stable, original);
        waiting_.pop_front();
        progress_.advance();
    }

    void warnAboutVideo(RunMessages& messages) const {
        if (reader_.damagedPackets() > 0) {
            messages.warn(fmt::format("{} damaged packets were left out, with their frames",
                                      reader_.damagedPackets()));
        }
        if (reader_.untimedFrames() > 0) {
            messages.warn(fmt::format("{} frames have no timestamps: taking {:g} per second",
                                      reader_.untimedFrames(), reader_.framesPerSecond()));
        }
        if (reader_.isInterlaced()) {
            messages.warn("the video is interlaced: its fields were stabilized as one picture");
        }
    }

    void warnAboutCoverage(RunMessages& messages) const {
        const double from = motion_.samples.front().timestamp;
        const double to = motion_.samples.back().timestamp;
        if (from <= firstTime_ && to >= lastTime_) return;
        messages.warn(
            fmt::format("the motion log covers {:.3f} s to {:.3f} s, the frames need {:.3f} s to "
                        "{:.3f} s: frames outside are only cropped",
                        from, to, firstTime_, lastTime_));
    }

    const StabilizeOptions& options_;
    const ClipInputs& clip_;
    VideoReader& reader_;
    RunRecord& record_;
    ZPR_Param param_;
    MotionSamples motion_;
    PaddedFrame padded_;
    ClipOutput output_;
    Progress progress_;
    bool observesPath_;
    std::unique_ptr<SessionWriter> recorder_;
    std::unique_ptr<Stabilizer> stabilizer_;
    std::unique_ptr<PathObserver> observer_;  // null if nobody asks for the path
    std::unique_ptr<MotionFeed> feed_;
    std::deque<WaitingFrame> waiting_;
    size_t taken_ = 0;
    const AVFrame* lastFrame_ = nullptr;  // as it was given to the library; it stays when the
    double lastFrameTime_ = 0.0;          // reader finds no more
    double shift_ = 0.0;
    double firstTime_ = 0.0;
    double lastTime_ = 0.0;
};

/// Decides on the settings, with what a calibration finds where that is asked for.
ClipSettings settle(const StabilizeOptions& options, const ClipInputs& clip, bool showsProgress) {
    const ClipSettings settings = resolveSettings(options.clip, clip);
    if (!options.findsUnknown) return settings;
    return resolveSettings(options.clip, clip,
                           findUnknownMetadata(settings.camera, clip, showsProgress));
}

void report(const StabilizeOptions& options, bool showsProgress, const RunRecord& record) {
    ReportRequest request;
    request.original = options.files.video;
    request.stabilized = options.output;
    request.run = record;
    request.page = options.report;
    request.progress = showsProgress;
    makeReport(request);
}

}  // namespace

void stabilizeClip(const StabilizeOptions& options, const RunDisplay& display, RunRecord& record) {
    const bool showsProgress = display.showProgress && !options.quiet;
    RunMessages messages(record, display.label, display.showNotes && !options.quiet);
    const FoundClip found = findClipFiles(options.files);
    VideoReader reader(options.files.video);
    const ClipInputs clip = loadClipInputs(found, propertiesOf(reader));
    const ClipSettings settings = settle(options, clip, showsProgress);
    ClipStabilizer stabilizer(options, clip, settings, reader, showsProgress, display.observePath,
                              record);
    stabilizer.tell(settings, messages);
    stabilizer.run(messages);
    if (!options.exportPath.empty()) writePathTable(options.exportPath, record);
    if (!options.saveRun.empty()) saveRunRecord(options.saveRun, record);
    messages.say("written: " + (options.output == "-" ? "standard output" : options.output));
    if (options.report.empty()) return;
    report(options, showsProgress, record);
    messages.say("written: " + options.report);
}

}  // namespace framehold
