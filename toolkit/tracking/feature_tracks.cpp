#include "tracking/feature_tracks.h"

#include "media/video_reader.h"
#include "tracking/luma_view.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

namespace framehold {

namespace {

constexpr int kWindow = 21;             // pixels, side of the patch that is tracked
constexpr int kLevels = 4;              // of the image pyramid above the first
constexpr double kNotMuchLonger = 1.2;  // than its samples, for a video to be one sample

/// Luma of a frame, reduced by a whole factor.
cv::Mat reducedLuma(const AVFrame& frame, int factor) {
    const cv::Mat luma = lumaView(frame);
    cv::Mat result;
    if (factor == 1) {
        luma.copyTo(result);
        return result;
    }
    const cv::Size size(luma.cols / factor, luma.rows / factor);
    cv::resize(luma({0, 0, size.width * factor, size.height * factor}), result, size, 0.0, 0.0,
               cv::INTER_AREA);
    return result;
}

/// Corners from each cell of a grid, so that a textured part does not take all of them.
std::vector<cv::Point2f> findCorners(const cv::Mat& luma, int count) {
    constexpr int kColumns = 4;
    constexpr int kRows = 3;
    constexpr double kQuality = 0.01;
    std::vector<cv::Point2f> corners;
    for (int row = 0; row < kRows; ++row) {
        for (int column = 0; column < kColumns; ++column) {
            const cv::Rect cell(
                cv::Point(luma.cols * column / kColumns, luma.rows * row / kRows),
                cv::Point(luma.cols * (column + 1) / kColumns, luma.rows * (row + 1) / kRows));
            std::vector<cv::Point2f> found;
            const double distance = std::sqrt(cell.area() * kColumns * kRows / (2.0 * count));
            cv::goodFeaturesToTrack(luma(cell), found, count / (kColumns * kRows), kQuality,
                                    std::max(3.0, distance / 2.0));
            for (const cv::Point2f& p : found) corners.push_back(p + cv::Point2f(cell.tl()));
        }
    }
    return corners;
}

std::vector<FeatureMotion> trackPair(const cv::Mat& luma, const std::vector<cv::Mat>& from,
                                     const std::vector<cv::Mat>& to,
                                     const TrackSettings& settings) {
    const std::vector<cv::Point2f> start = findCorners(luma, settings.maxFeatures);
    std::vector<FeatureMotion> motions;
    if (start.empty()) return motions;
    const cv::Size window(kWindow, kWindow);
    const cv::TermCriteria precision(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, 0.005);
    std::vector<cv::Point2f> end;
    std::vector<cv::Point2f> back = start;
    std::vector<uint8_t> found;
    std::vector<uint8_t> foundBack;
    std::vector<float> error;
    cv::calcOpticalFlowPyrLK(from, to, start, end, found, error, window, kLevels, precision);
    cv::calcOpticalFlowPyrLK(to, from, end, back, foundBack, error, window, kLevels, precision,
                             cv::OPTFLOW_USE_INITIAL_FLOW);
    for (size_t i = 0; i < start.size(); ++i) {
        if (found[i] == 0 || foundBack[i] == 0) continue;
        if (cv::norm(back[i] - start[i]) > settings.maxRoundTripError) continue;
        motions.push_back({start[i].x, start[i].y, end[i].x, end[i].y});
    }
    return motions;
}

/// Brings motions of a reduced picture to pixels of the whole one.
void enlarge(std::vector<FeatureMotion>& motions, int factor) {
    const auto scale = static_cast<float>(factor);
    const auto full = [scale](float position) { return (position + 0.5F) * scale - 0.5F; };
    for (FeatureMotion& m : motions) {
        m = {full(m.fromX), full(m.fromY), full(m.toX), full(m.toY)};
    }
}

}  // namespace

/// A frame prepared for tracking.
struct FeatureTracker::Prepared {
    cv::Mat luma;
    std::vector<cv::Mat> pyramid;
};

FeatureTracker::FeatureTracker(const TrackSettings& settings) : settings_(settings) {}

FeatureTracker::~FeatureTracker() = default;

std::vector<FeatureMotion> FeatureTracker::track(const AVFrame& frame) {
    const int factor =
        settings_.maxWidth > 0 ? (frame.width + settings_.maxWidth - 1) / settings_.maxWidth : 1;
    auto now = std::make_unique<Prepared>();
    now->luma = reducedLuma(frame, factor);
    cv::buildOpticalFlowPyramid(now->luma, now->pyramid, {kWindow, kWindow}, kLevels);
    std::vector<FeatureMotion> motions;
    if (before_) {
        motions = trackPair(before_->luma, before_->pyramid, now->pyramid, settings_);
        if (factor > 1) enlarge(motions, factor);
    }
    before_ = std::move(now);
    return motions;
}

void FeatureTracker::add(const AVFrame& frame, double time) {
    const bool isFirst = before_ == nullptr;
    std::vector<FeatureMotion> motions = track(frame);
    if (!isFirst) tracks_.motions.push_back(std::move(motions));
    tracks_.width = frame.width;
    tracks_.height = frame.height;
    tracks_.frameTimes.push_back(time);
}

FeatureTracks FeatureTracker::take() {
    before_.reset();
    return std::exchange(tracks_, {});
}

FeatureTracks trackFeatures(const std::string& video, const TrackSettings& settings,
                            const std::function<void()>& onFrame) {
    VideoReader reader(video);
    reader.acceptCutInput();
    FeatureTracker tracker(settings);
    for (int frames = 0; settings.maxFrames == 0 || frames < settings.maxFrames; ++frames) {
        const AVFrame* frame = reader.next();
        if (frame == nullptr) break;
        tracker.add(*frame, reader.seconds(*frame));
        if (onFrame) onFrame();
    }
    FeatureTracks tracks = tracker.take();
    tracks.width = reader.width();
    tracks.height = reader.height();
    for (const std::string& loss : reader.losses(tracks.frameTimes.size())) {
        tracks.losses.push_back(video + ": " + loss);
    }
    return tracks;
}

namespace {

/// The video's timestamps at which its samples start.
std::vector<double> sampleStarts(double first, double seconds, const SampleSettings& settings) {
    if (!(seconds > kNotMuchLonger * settings.windows * settings.window)) return {first};
    std::vector<double> starts;
    for (int i = 0; i < settings.windows; ++i) {
        starts.push_back(first + (seconds - settings.window) * i / (settings.windows - 1));
    }
    return starts;
}

}  // namespace

std::vector<FeatureTracks> trackSamples(const std::string& video, const SampleSettings& settings,
                                        const std::function<void()>& onFrame) {
    VideoReader reader(video);
    // Counted, not timed: how fast the machine is does not change a result.
    const auto maxFrames =
        static_cast<int64_t>(settings.maxPixels / reader.width() / reader.height());
    int64_t frames = 0;
    FeatureTracker tracker(settings.tracks);
    const double seconds = static_cast<double>(reader.expectedFrames()) / reader.framesPerSecond();
    const std::vector<double> starts = sampleStarts(reader.startTime(), seconds, settings);
    const double length =
        starts.size() > 1 ? settings.window : kNotMuchLonger * settings.windows * settings.window;
    std::vector<FeatureTracks> samples;
    double last = -INFINITY;
    for (const double start : starts) {
        if (!samples.empty() && (frames > maxFrames || !reader.seek(start))) break;
        // A seek ends at the keyframe before: a part from there is as good if it is a new one.
        std::optional<double> from;
        while (const AVFrame* frame = reader.next()) {
            if (onFrame) onFrame();
            ++frames;
            const double time = reader.seconds(*frame);
            if (!from) from = samples.empty() || time > last ? time : start;
            if (time >= *from + length || (!samples.empty() && time < *from && frames > maxFrames))
                break;
            if (time >= *from) tracker.add(*frame, time);
        }
        FeatureTracks sample = tracker.take();
        if (sample.frameTimes.empty()) break;
        last = sample.frameTimes.back();
        samples.push_back(std::move(sample));
    }
    return samples;
}

}  // namespace framehold
