#include "measures/picture_measures.h"

#include "media/video_reader.h"
#include "tracking/luma_view.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

namespace framehold {

namespace {

constexpr double kEqualFrames = 100.0;  // dB

/// Peak signal-to-noise ratio in dB between pictures of bytes, over the pixels of a mask (all if
/// it is empty).
double psnr(const cv::Mat& a, const cv::Mat& b, const cv::Mat& mask) {
    const double pixels = mask.empty() ? static_cast<double>(a.total()) : cv::countNonZero(mask);
    const double squares = cv::norm(a, b, cv::NORM_L2SQR, mask);
    if (squares <= 0.0) return kEqualFrames;
    return std::min(kEqualFrames, 10.0 * std::log10(255.0 * 255.0 * pixels / squares));
}

double alignedPsnr(const cv::Mat& before, const cv::Mat& now, const GlobalMotion& motion) {
    const cv::Matx33d homography(motion.homography.data());
    cv::Mat moved;
    cv::warpPerspective(before, moved, homography, now.size());
    cv::Mat shown;
    cv::warpPerspective(cv::Mat(before.size(), CV_8UC1, cv::Scalar(255)), shown, homography,
                        now.size());
    return psnr(moved, now, shown == 255);
}

/// Share of pixels that are black and connected to the edge of the picture.
double borderShare(const cv::Mat& luma) {
    constexpr double kBlack = 24.0;  // limited-range black and what compression makes of it
    const cv::Mat black = luma <= kBlack;
    cv::Mat framed;
    cv::copyMakeBorder(black, framed, 1, 1, 1, 1, cv::BORDER_CONSTANT, cv::Scalar(255));
    cv::floodFill(framed, cv::Point(0, 0), cv::Scalar(128));
    const cv::Mat inner = framed(cv::Rect(1, 1, luma.cols, luma.rows));
    return cv::countNonZero(inner == 128) / static_cast<double>(luma.total());
}

}  // namespace

PictureMeasures measurePictures(const std::string& video, const std::vector<GlobalMotion>& motions,
                                const std::function<void()>& onFrame) {
    VideoReader reader(video);
    reader.acceptCutInput();
    PictureMeasures result;
    cv::Mat before;
    size_t index = 0;
    for (; const AVFrame* frame = reader.next(); ++index) {
        const cv::Mat now = lumaView(*frame);
        const double border = borderShare(now);
        result.border += border;
        result.largestBorder = std::max(result.largestBorder, border);
        if (index > 0 && index <= motions.size()) {
            result.fidelity += psnr(before, now, cv::Mat());
            result.alignedFidelity += alignedPsnr(before, now, motions[index - 1]);
        }
        now.copyTo(before);
        onFrame();
    }
    const double pairs = static_cast<double>(std::max<size_t>(1, motions.size()));
    result.fidelity /= pairs;
    result.alignedFidelity /= pairs;
    result.border /= static_cast<double>(std::max<size_t>(1, index));
    return result;
}

}  // namespace framehold
