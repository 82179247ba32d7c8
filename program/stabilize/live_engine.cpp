#include "stabilize/live_engine.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>

namespace framehold {

namespace {

void require(int code, const char* function) {
    if (code == ZPR_ERR_NO_MEMORY) {
        throw std::runtime_error(
            fmt::format("{}: not enough memory; try a smaller --delay", function));
    }
    if (code != ZPR_OK) throw std::runtime_error(fmt::format("{} returned {}", function, code));
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

/// A black frame, for pixels that have no source, with colours as the original has them.
AvPtr<AVFrame> makeOutput(const ZPR_Image& image, const AVFrame& original) {
    AvPtr<AVFrame> frame = makeNv12Frame(image.width, image.height);
    frame->color_range = original.color_range;
    frame->colorspace = original.colorspace;
    frame->pts = original.pts;
    frame->pkt_duration = original.pkt_duration;
    std::fill_n(frame->data[0], ptrdiff_t{frame->linesize[0]} * frame->height,
                levelsOf(*frame).black);
    std::fill_n(frame->data[1], ptrdiff_t{frame->linesize[1]} * frame->height / 2,
                Levels::kNoChroma);
    return frame;
}

}  // namespace

LiveEngine::LiveEngine(const ClipSettings& settings, const std::vector<ZPR_SensorData>& samples,
                       const Extras& extras, Sink sink)
    : param_(paramOf(settings)), samples_(samples), extras_(extras), sink_(std::move(sink)),
      observer_(param_) {
    if (!settings.choosesSmoothing) return;
    require(ZPR_StartSmoothingPolicy(&policy_.emplace(), &param_), "ZPR_StartSmoothingPolicy");
}

void LiveEngine::push(const AVFrame& frame, double time) {
    if (!padded_) padded_.emplace(frame.width, param_.inputImage.width);
    const AVFrame& input = *padded_->pad(frame);
    if (handle_ == nullptr) start(input, time);
    waiting_.push_back({keep(frame), time + param_.timeOffset});
    last_ = &input;
    lastTime_ = time;
    render(input, time);
}

/// The last frame is repeated. The library's own way to drain looks ahead from where draining
/// began, not from the frame it renders, and the picture jumps.
void LiveEngine::finish(double framePeriod) {
    for (int i = 1; !waiting_.empty(); ++i) render(*last_, lastTime_ + i * framePeriod);
}

/// The first frame shows how rows lie and when time starts.
void LiveEngine::start(const AVFrame& frame, double time) {
    param_.inputImage.pitch[0] = param_.inputImage.pitch[1] = frame.linesize[0];
    require(ZPR_Init(nullptr, &param_, &handle_), "ZPR_Init");
    shift_ = 1.0 - std::min(time + param_.timeOffset, samples_.front().timestamp);
}

/// Feeds all samples up to the first one not before `time`, on the samples' clock.
void LiveEngine::feedUpTo(double time) {
    while (nextSample_ < samples_.size() &&
           (nextSample_ == 0 || samples_[nextSample_ - 1].timestamp < time)) {
        ZPR_SensorData sample = samples_[nextSample_++];
        sample.timestamp += shift_;
        if (extras_.session != nullptr) extras_.session->sample(sample);
        observer_.addSample(sample);
        if (policy_) ZPR_FeedSmoothingPolicy(&*policy_, &sample);
        require(ZPR_SetSensorData(handle_, &sample), "ZPR_SetSensorData");
    }
}

/// Chooses the smoothing level for the frame at `time`, on the library's clock.
void LiveEngine::chooseLevel(double time) {
    if (!policy_) return;
    const int32_t level = ZPR_ChooseSmoothingLevel(&*policy_, time);
    if (level == param_.smoothingLevel) return;
    param_.smoothingLevel = level;
    if (extras_.session != nullptr) extras_.session->level(level);
    observer_.setLevel(level);
}

/// Keeps what is needed of a frame until it is given out: times, and pixels only if they are shown.
AvPtr<AVFrame> LiveEngine::keep(const AVFrame& frame) const {
    AvPtr<AVFrame> kept(extras_.keepsOriginals ? av_frame_clone(&frame) : av_frame_alloc());
    if (!kept) throw std::bad_alloc();
    kept->color_range = frame.color_range;
    kept->colorspace = frame.colorspace;
    kept->pts = frame.pts;
    kept->pkt_duration = frame.pkt_duration;
    return kept;
}

void LiveEngine::render(const AVFrame& frame, double time) {
    using Clock = std::chrono::steady_clock;
    feedUpTo(time + param_.timeOffset + param_.readoutTime);
    chooseLevel(time + shift_);
    WaitingFrame& first = waiting_.front();
    StabilizedFrame result;
    result.picture = makeOutput(param_.outputImage, *first.original);
    result.time = first.time;
    result.level = param_.smoothingLevel;
    const ZPR_Image input = imageOf(frame);
    ZPR_Image output = imageOf(*result.picture);
    if (extras_.session != nullptr) extras_.session->frame(time + shift_, input);
    result.path = observer_.takeFrame(time + shift_).value_or(ObservedPath());
    const Clock::time_point start = Clock::now();
    const int code =
        ZPR_Stabilize(handle_, time + shift_, &input, &output, policy_ ? &param_ : nullptr);
    result.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    if (code == ZPR_FRAME_BUFFERED) return;
    require(code, "ZPR_Stabilize");
    padded_->cut(*result.picture);
    result.original = std::move(first.original);
    waiting_.pop_front();
    sink_(result);
}

}  // namespace framehold
