#include "report/picture_pairs.h"

#include "media/still_picture.h"
#include "media/upright_frame.h"
#include "media/video_reader.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <fmt/format.h>

namespace framehold {

namespace {

/// A frame as a picture whose longer side has 960 pixels at most.
std::string pictureOf(const AVFrame& frame, int turns) {
    constexpr int64_t kSide = 960;
    const AvPtr<AVFrame> upright = turned(frame, turns);
    const int64_t width = std::min(kSide, kSide * upright->width / upright->height);
    return jpegDataUrl(*upright, static_cast<int>(width));
}

/// Means of the coming frames of both videos; none if there are not enough.
std::optional<PicturePair> takeMeans(FrameSeeker& before, FrameSeeker& after, int turns) {
    constexpr int kFrames = 15;
    MeanFrame shaky;
    MeanFrame steady;
    for (int i = 0; i < kFrames; ++i) {
        const AVFrame* left = before.next();
        const AVFrame* right = after.next();
        if (left == nullptr || right == nullptr) return std::nullopt;
        shaky.add(*left);
        steady.add(*right);
    }
    return PicturePair{fmt::format("{} frames on top of each other", kFrames),
                       pictureOf(*shaky.mean(), turns), pictureOf(*steady.mean(), turns)};
}

}  // namespace

std::vector<PicturePair> takePictures(const std::string& original, const std::string& stabilized,
                                      int delay) {
    constexpr double kMoments[] = {0.2, 0.5, 0.75};  // of the stabilized video
    FrameSeeker before(original);
    FrameSeeker after(stabilized);
    const int turns = quarterTurns(before.reader());
    const double rate = after.reader().framesPerSecond();
    const double late = delay / rate;
    const double length = static_cast<double>(after.reader().expectedFrames()) / rate - late;
    std::vector<PicturePair> pairs;
    for (const double moment : kMoments) {
        const double time = moment * length;
        const AVFrame* shaky = before.seek(time);
        const AVFrame* steady = after.seek(time + late);
        if (shaky == nullptr || steady == nullptr) break;
        pairs.push_back(
            {fmt::format("{:.1f} s", time), pictureOf(*shaky, turns), pictureOf(*steady, turns)});
    }
    if (auto means = takeMeans(before, after, turns)) pairs.push_back(std::move(*means));
    return pairs;
}

}  // namespace framehold
