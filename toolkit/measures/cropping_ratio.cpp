#include "measures/cropping_ratio.h"

#include "common/median.h"
#include "media/video_reader.h"
#include "tracking/luma_view.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <opencv2/calib3d.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>

namespace framehold {

namespace {

constexpr int kSamples = 12;
constexpr int kWidth = 960;  // pixels: wider pictures are made smaller before matching

struct Described {
    cv::Size size;
    std::vector<cv::KeyPoint> points;
    cv::Mat descriptors;
};

Described describe(const AVFrame& frame) {
    constexpr int kFeatures = 1500;
    const cv::Mat luma = lumaView(frame);
    const double scale = std::min(1.0, kWidth / static_cast<double>(luma.cols));
    cv::Mat small;
    cv::resize(luma, small, cv::Size(), scale, scale, cv::INTER_AREA);
    Described result;
    result.size = small.size();
    cv::ORB::create(kFeatures)->detectAndCompute(small, cv::noArray(), result.points,
                                                 result.descriptors);
    return result;
}

/// Share of the original's area that the other frame shows.
std::optional<double> shareOf(const Described& original, const Described& stabilized) {
    constexpr int kFewestMatches = 25;
    if (original.points.empty() || stabilized.points.empty()) return std::nullopt;
    std::vector<cv::DMatch> matches;
    cv::BFMatcher(cv::NORM_HAMMING, true)
        .match(stabilized.descriptors, original.descriptors, matches);
    if (matches.size() < kFewestMatches) return std::nullopt;
    std::vector<cv::Point2f> from;
    std::vector<cv::Point2f> to;
    for (const cv::DMatch& match : matches) {
        from.push_back(stabilized.points[static_cast<size_t>(match.queryIdx)].pt);
        to.push_back(original.points[static_cast<size_t>(match.trainIdx)].pt);
    }
    cv::Mat agreeing;
    const cv::Mat homography = cv::findHomography(from, to, cv::RANSAC, 3.0, agreeing);
    if (homography.empty() || cv::countNonZero(agreeing) < kFewestMatches) return std::nullopt;

    const auto corners = [](cv::Size size) {
        const auto w = static_cast<float>(size.width);
        const auto h = static_cast<float>(size.height);
        return std::vector<cv::Point2f>{{0, 0}, {w, 0}, {w, h}, {0, h}};
    };
    std::vector<cv::Point2f> shown;
    cv::perspectiveTransform(corners(stabilized.size), shown, homography);
    if (!cv::isContourConvex(shown)) return std::nullopt;
    std::vector<cv::Point2f> common;
    const float area = cv::intersectConvexConvex(shown, corners(original.size), common);
    return area / static_cast<double>(original.size.area());
}

}  // namespace

std::optional<double> croppingRatio(const std::string& original, const std::string& stabilized,
                                    int delay) {
    FrameSeeker from(stabilized);
    FrameSeeker in(original);
    const int64_t step = std::max<int64_t>(1, from.reader().expectedFrames() / kSamples);
    const double late = delay / from.reader().framesPerSecond();
    std::vector<double> shares;
    int64_t index = 0;
    while (const AVFrame* frame = from.next()) {
        if (index++ % step != 0 || from.time() < late) continue;
        const AVFrame* match = in.seek(from.time() - late);
        if (match == nullptr) break;
        if (const auto share = shareOf(describe(*match), describe(*frame))) {
            shares.push_back(*share);
        }
    }
    if (shares.empty()) return std::nullopt;
    return median(shares);
}

}  // namespace framehold
