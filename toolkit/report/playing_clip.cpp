#include "report/playing_clip.h"

#include "common/interruption.h"
#include "media/embedded_video.h"
#include "media/upright_frame.h"
#include "media/video_reader.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace framehold {

namespace {

constexpr int kSide = 640;         // pixels that a picture's longer side has at most
constexpr int kDivider = 4;        // columns between the pictures
constexpr double kFastest = 31.0;  // frames per second; of faster clips frames are left out
constexpr int64_t kBitRate = 4'000'000;

int even(double size) { return std::max(2, static_cast<int>(std::lround(size / 2.0)) * 2); }

/// Makes frames that show two others beside each other.
class PairPainter {
public:
    PairPainter(FrameArea left, FrameArea right) {
        const double longer = std::max(left.width, left.height);
        const double scale = std::min(1.0, kSide / longer);
        height_ = even(scale * left.height);
        leftWidth_ = even(scale * left.width);
        rightWidth_ = even(static_cast<double>(height_) * right.width / right.height);
    }

    int width() const { return leftWidth_ + kDivider + rightWidth_; }
    int height() const { return height_; }
    double split() const { return (leftWidth_ + kDivider / 2.0) / width(); }

    AvPtr<AVFrame> paint(const AVFrame& left, const AVFrame& right) {
        AvPtr<AVFrame> both = makeNv12Frame(width(), height_);
        both->color_range = left.color_range;
        both->colorspace = left.colorspace;
        const Levels levels = levelsOf(left);
        for (int plane = 0; plane < 2; ++plane) {
            std::fill_n(both->data[plane], (height_ >> plane) * both->linesize[plane],
                        plane == 0 ? levels.white : Levels::kNoChroma);
        }
        put(left, leftConverter_, *both, 0, leftWidth_);
        put(right, rightConverter_, *both, leftWidth_ + kDivider, rightWidth_);
        return both;
    }

private:
    void put(const AVFrame& picture, PixelConverter& converter, AVFrame& both, int x, int width) {
        const AvPtr<AVFrame> part(av_frame_clone(&both));  // shares the planes
        if (!part) throw std::bad_alloc();
        for (int plane = 0; plane < 2; ++plane) part->data[plane] += x;
        converter.convert(picture, {picture.width, picture.height}, *part, {width, height_});
    }

    int height_;
    int leftWidth_;
    int rightWidth_;
    PixelConverter leftConverter_;
    PixelConverter rightConverter_;
};

PlayingClip cut(const std::string& original, const std::string& stabilized, int delay, double start,
                double seconds) {
    FrameSeeker before(original);
    FrameSeeker after(stabilized);
    const VideoReader& source = before.reader();
    const double rate = source.framesPerSecond();
    const int step = std::max(1, static_cast<int>(std::ceil(rate / kFastest)));
    const int turns = quarterTurns(source);
    PairPainter painter(turned(sizeOf(source), turns), turned(sizeOf(after.reader()), turns));
    VideoSettings settings;
    settings.width = painter.width();
    settings.height = painter.height();
    settings.timeBase = source.timeBase();
    settings.frameRate = av_div_q(source.frameRate(), {step, 1});
    settings.isResult = false;
    EmbeddedVideo video(settings, kBitRate, &source);
    const AVFrame* left = before.seek(start);
    const AVFrame* right = after.seek(start + delay / after.reader().framesPerSecond());
    PlayingClip clip;
    clip.width = painter.width();
    clip.height = painter.height();
    clip.split = painter.split();
    clip.start = before.time();
    std::optional<int64_t> first;
    for (int i = 0; left != nullptr && right != nullptr; ++i) {
        throwIfInterrupted();
        if (before.time() >= clip.start + seconds) break;
        if (i % step == 0) {
            const AvPtr<AVFrame> both =
                painter.paint(*turned(*left, turns), *turned(*right, turns));
            if (!first) first = left->pts;
            both->pts = left->pts - *first;
            both->pkt_duration = left->pkt_duration * step;
            video.write(*both);
        }
        clip.seconds = before.time() - clip.start + 1.0 / rate;
        left = before.next();
        right = after.next();
    }
    if (!first) throw MediaError(stabilized, "has no frame there");
    clip.video = video.finish();
    return clip;
}

}  // namespace

double shakiestStart(const ClipMeasures& clip, double seconds) {
    const std::vector<double>& times = clip.times;
    double best = 0.0, most = -1.0, sum = 0.0;
    size_t end = 0;
    const auto energy = [&clip](size_t i) {
        return std::pow(
            meanDisplacement(std::hypot(clip.shake.x[i], clip.shake.y[i]), clip.shake.rotation[i],
                             clip.shake.logScale[i], clip.width, clip.height),
            2);
    };
    for (size_t begin = 0; begin < times.size(); ++begin) {
        for (; end < times.size() && times[end] < times[begin] + seconds; ++end) sum += energy(end);
        if (sum > most) {
            most = sum;
            best = times[begin] - times.front();
        }
        if (end == times.size()) break;
        sum -= energy(begin);
    }
    return best;
}

PlayingClip makePlayingClip(const std::string& original, const std::string& stabilized, int delay,
                            double start, double seconds) {
    try {
        return cut(original, stabilized, delay, start, seconds);
    } catch (const Interrupted&) {
        throw;
    } catch (const std::runtime_error& error) {
        PlayingClip none;
        none.lack = error.what();
        return none;
    }
}

}  // namespace framehold
