#include "tracking/feature_tracks.h"

#include "media/video_reader.h"
#include "tracking/luma_view.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

namespace framehold {

namespace {

constexpr int kWindow = 21;  // pixels, side of the patch that is tracked
constexpr int kLevels = 4;   // of the image pyramid above the first

/// A frame prepared for tracking.
struct Prepared {
    cv::Mat luma;
    std::vector<cv::Mat> pyramid;
};

Prepared prepare(const AVFrame& frame) {
    Prepared result;
    lumaView(frame).copyTo(result.luma);
    cv::buildOpticalFlowPyramid(result.luma, result.pyramid, {kWindow, kWindow}, kLevels);
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

std::vector<FeatureMotion> trackPair(const Prepared& from, const Prepared& to,
                                     const TrackSettings& settings) {
    const std::vector<cv::Point2f> start = findCorners(from.luma, settings.maxFeatures);
    std::vector<FeatureMotion> motions;
    if (start.empty()) return motions;
    const cv::Size window(kWindow, kWindow);
    const cv::TermCriteria precision(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, 0.005);
    std::vector<cv::Point2f> end;
    std::vector<cv::Point2f> back = start;
    std::vector<uint8_t> found;
    std::vector<uint8_t> foundBack;
    std::vector<float> error;
    cv::calcOpticalFlowPyrLK(from.pyramid, to.pyramid, start, end, found, error, window, kLevels,
                             precision);
    cv::calcOpticalFlowPyrLK(to.pyramid, from.pyramid, end, back, foundBack, error, window, kLevels,
                             precision, cv::OPTFLOW_USE_INITIAL_FLOW);
    for (size_t i = 0; i < start.size(); ++i) {
        if (found[i] == 0 || foundBack[i] == 0) continue;
        if (cv::norm(back[i] - start[i]) > settings.maxRoundTripError) continue;
        motions.push_back({start[i].x, start[i].y, end[i].x, end[i].y});
    }
    return motions;
}

}  // namespace

FeatureTracks trackFeatures(const std::string& video, const TrackSettings& settings,
                            const std::function<void()>& onFrame) {
    VideoReader reader(video);
    FeatureTracks tracks;
    tracks.width = reader.width();
    tracks.height = reader.height();
    Prepared before;
    while (const AVFrame* frame = reader.next()) {
        if (settings.maxFrames > 0 &&
            tracks.frameTimes.size() == static_cast<size_t>(settings.maxFrames)) {
            break;
        }
        Prepared now = prepare(*frame);
        if (!tracks.frameTimes.empty()) {
            tracks.motions.push_back(trackPair(before, now, settings));
        }
        tracks.frameTimes.push_back(reader.seconds(*frame));
        before = std::move(now);
        if (onFrame) onFrame();
    }
    return tracks;
}

}  // namespace framehold
