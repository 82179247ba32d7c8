#include "measures/clip_measures.h"

#include "measures/path_filters.h"
#include "measures/row_wobble.h"
#include "media/libav.h"

#include <cmath>

#include <fmt/format.h>

namespace framehold {

namespace {

constexpr size_t kFewestFrames = 10;

void checkTimes(const std::string& video, const std::vector<double>& times) {
    if (times.size() < kFewestFrames) {
        throw MediaError(video, fmt::format("holds {} frames, {} are needed to measure its shake",
                                            times.size(), kFewestFrames));
    }
    for (size_t i = 1; i < times.size(); ++i) {
        if (times[i] > times[i - 1]) continue;
        throw MediaError(video, fmt::format("frame {} comes at {:.6f} s, not after the one before",
                                            i, times[i]));
    }
}

std::vector<GlobalMotion> globalMotions(const FeatureTracks& tracks, size_t& lost) {
    std::vector<GlobalMotion> motions;
    for (const std::vector<FeatureMotion>& features : tracks.motions) {
        if (const auto motion = estimateGlobalMotion(features, tracks.width, tracks.height)) {
            motions.push_back(*motion);
        } else {
            motions.push_back(motions.empty() ? GlobalMotion{} : motions.back());
            ++lost;
        }
    }
    return motions;
}

std::vector<double> addUp(const std::vector<GlobalMotion>& motions, double GlobalMotion::*part) {
    std::vector<double> sums{0.0};
    for (const GlobalMotion& motion : motions) sums.push_back(sums.back() + motion.*part);
    return sums;
}

}  // namespace

double meanDisplacement(double translation, double rotation, double scale, int width, int height) {
    const double radius = std::hypot(width, height) / std::sqrt(12.0);
    return std::hypot(translation, radius * rotation, radius * scale);
}

namespace {

/// Fills in the path of a clip and the figures that follow from it alone.
void measurePath(const FeatureTracks& tracks, const std::vector<GlobalMotion>& motions,
                 double cutoff, ClipMeasures& result) {
    result.width = tracks.width;
    result.height = tracks.height;
    result.times = tracks.frameTimes;
    using Part = std::pair<double GlobalMotion::*, std::vector<double> PicturePath::*>;
    for (const auto& [motion, path] :
         {Part{&GlobalMotion::dx, &PicturePath::x}, Part{&GlobalMotion::dy, &PicturePath::y},
          Part{&GlobalMotion::rotation, &PicturePath::rotation},
          Part{&GlobalMotion::logScale, &PicturePath::logScale}}) {
        result.path.*path = addUp(motions, motion);
        result.shake.*path = highPass(result.times, result.path.*path, cutoff);
    }
    result.translation = std::hypot(rootMeanSquare(result.shake.x), rootMeanSquare(result.shake.y));
    result.rotation = rootMeanSquare(result.shake.rotation);
    result.scale = rootMeanSquare(result.shake.logScale);
    result.displacement = meanDisplacement(result.translation, result.rotation, result.scale,
                                           result.width, result.height);
}

}  // namespace

std::optional<double> displacementOf(const FeatureTracks& tracks, double cutoff) {
    if (tracks.frameTimes.size() < kFewestFrames) return std::nullopt;
    ClipMeasures measures;
    const std::vector<GlobalMotion> motions = globalMotions(tracks, measures.lostFrames);
    measurePath(tracks, motions, cutoff, measures);
    return measures.isPathKnown() ? std::optional(measures.displacement) : std::nullopt;
}

ClipMeasures measureClip(const std::string& video, double cutoff,
                         const std::function<void()>& onFrame) {
    const FeatureTracks tracks = trackFeatures(video, TrackSettings{}, onFrame);
    checkTimes(video, tracks.frameTimes);
    ClipMeasures result;
    result.video = video;
    result.losses = tracks.losses;
    const std::vector<GlobalMotion> motions = globalMotions(tracks, result.lostFrames);
    measurePath(tracks, motions, cutoff, result);
    result.wobble = rowWobble(tracks, motions, result.times, cutoff);
    result.translationStability = stabilityScore({result.path.x, result.path.y});
    result.rotationStability = stabilityScore({result.path.rotation});
    result.pictures = measurePictures(video, motions, onFrame);
    return result;
}

}  // namespace framehold
