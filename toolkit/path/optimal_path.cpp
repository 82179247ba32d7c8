#include "path/optimal_path.h"

#include "common/median.h"
#include "path/path_segment.h"
#include "path/rotation_vector.h"

#include <algorithm>
#include <cmath>

namespace framehold {

namespace {

using Eigen::Quaterniond;
using Eigen::Vector3d;

/// Ends of the runs of frames without a long gap, as indices.
std::vector<size_t> segmentEnds(const std::vector<double>& times) {
    constexpr double kGap = 2.0;         // seconds
    constexpr double kGapFrames = 10.0;  // frame intervals, for clips of few frames a second
    std::vector<double> intervals{0.0};
    for (size_t i = 1; i < times.size(); ++i) intervals.push_back(times[i] - times[i - 1]);
    const double gap = std::max(kGap, kGapFrames * median(intervals));
    std::vector<size_t> ends;
    for (size_t i = 1; i < times.size(); ++i) {
        if (intervals[i] > gap) ends.push_back(i);
    }
    ends.push_back(times.size());
    return ends;
}

/// Solves a segment in windows that overlap: the part of each that the next one solves anew is long
/// enough for the path before it not to depend on what follows.
void solveInWindows(PathSegment& segment, double smoothing,
                    const std::function<void(double)>& onProgress) {
    constexpr double kKept = 20.0;           // seconds
    constexpr double kAhead = 5.0;           // seconds, and in addition
    constexpr double kAheadSmoothing = 6.0;  // times the smoothing
    const auto nodes = [&](double seconds) {
        return static_cast<size_t>(std::ceil(seconds / segment.step()));
    };
    const size_t kept = nodes(kKept);
    const size_t ahead = nodes(kAhead + kAheadSmoothing * smoothing);
    const size_t count = segment.nodeCount();
    for (size_t begin = 0;;) {
        const size_t next = begin + kept;
        const size_t end = next + ahead < count ? next + ahead : count;
        segment.solve(begin, end, [&](double share) {
            const auto solved = static_cast<double>(std::min(next, count) - begin);
            onProgress((static_cast<double>(begin) + share * solved) / static_cast<double>(count));
        });
        if (end == count) return;
        begin = next;
    }
}

/// Mean of values around a time, weighted by a Gaussian.
template <typename Value>
Value localMean(const std::vector<double>& times, const std::vector<Value>& values, size_t centre,
                double sigma, Value sum) {
    constexpr double kReach = 3.0;
    const auto begin = std::lower_bound(times.begin(), times.end(), times[centre] - kReach * sigma);
    double weights = 0.0;
    for (auto i = static_cast<size_t>(begin - times.begin());
         i < times.size() && times[i] <= times[centre] + kReach * sigma; ++i) {
        const double distance = (times[i] - times[centre]) / sigma;
        const double weight = std::exp(-distance * distance / 2.0);
        sum += weight * values[i];
        weights += weight;
    }
    return sum / weights;
}

/// Takes from corrections (turns from the camera to the view) the share of their fast part that is
/// the track's noise, as Wiener's filter does: the picture of a camera at rest stays at rest.
void leaveNoiseOut(const std::vector<double>& times, double noise,
                   std::vector<Vector3d>& corrections) {
    constexpr double kFast = 0.3;  // seconds: faster than about half a hertz
    constexpr double kLocal = 0.5;
    std::vector<Vector3d> fast;
    std::vector<double> power;
    for (size_t i = 0; i < times.size(); ++i) {
        fast.push_back(corrections[i] -
                       localMean<Vector3d>(times, corrections, i, kFast, Vector3d::Zero()));
        power.push_back(fast.back().squaredNorm());
    }
    for (size_t i = 0; i < times.size(); ++i) {
        const double mean = localMean(times, power, i, kLocal, 0.0);
        const double share = mean > noise * noise ? noise * noise / mean : 1.0;
        corrections[i] -= share * fast[i];
    }
}

/// Turns a view back towards the camera until its border is inside, or as far as the camera's own.
View insideView(const View& view, const RowOrientations& rows, const OutputBorder& border) {
    constexpr int kHalvings = 12;
    const Quaterniond& own = rows.middle();
    const OutputBorder::Distances limits = border.distances(rows, {own, view.zoom}).cwiseMax(0.0);
    const auto viewAt = [&](double share) -> View {
        return {own.slerp(share, view.orientation), view.zoom};
    };
    const auto isInside = [&](const View& candidate) {
        return ((limits - border.distances(rows, candidate)).array() >= 0.0).all();
    };
    if (isInside(view)) return view;
    double good = 0.0;
    double bad = 1.0;
    for (int i = 0; i < kHalvings; ++i) {
        const double share = (good + bad) / 2.0;
        (isInside(viewAt(share)) ? good : bad) = share;
    }
    return viewAt(good);
}

}  // namespace

double smoothingSeconds(int strength) { return std::pow(1.3, strength - 9); }

OptimalPath findOptimalPath(const OrientationTrack& track, const std::vector<double>& firstRowTimes,
                            const PinholeCamera& source, const PinholeCamera& output,
                            const PathSettings& settings,
                            const std::function<void(double)>& onProgress) {
    OptimalPath result;
    if (firstRowTimes.empty()) return result;
    const OutputBorder border(source, output);
    const auto total = static_cast<double>(firstRowTimes.size());
    std::vector<double> allZooms = settings.zooms;
    allZooms.resize(firstRowTimes.size(), 1.0);
    const auto partOf = [](const std::vector<double>& all, size_t from, size_t to) {
        return std::vector<double>(all.begin() + static_cast<std::ptrdiff_t>(from),
                                   all.begin() + static_cast<std::ptrdiff_t>(to));
    };
    size_t begin = 0;
    for (const size_t end : segmentEnds(firstRowTimes)) {
        const std::vector<double> times = partOf(firstRowTimes, begin, end);
        const std::vector<double> zooms = partOf(allZooms, begin, end);
        PathSegment segment(track, source, border, settings, times, zooms);
        solveInWindows(segment, settings.smoothing, [&](double share) {
            const auto solved = share * static_cast<double>(end - begin);
            onProgress((static_cast<double>(begin) + solved) / total);
        });
        std::vector<Vector3d> corrections;
        for (const double time : times) {
            const Quaterniond own = track.at(source.rowTime(time, source.height / 2.0));
            corrections.push_back(rotationVector(own.conjugate() * segment.orientationAt(time)));
        }
        leaveNoiseOut(times, settings.trackNoise, corrections);
        for (size_t i = 0; i < times.size(); ++i) {
            const RowOrientations rows(track, source, times[i]);
            const View view{(rows.middle() * rotationBy(corrections[i])).normalized(), zooms[i]};
            result.views.push_back(insideView(view, rows, border));
            result.shareUsed.push_back(border.shareUsed(rows, result.views.back()));
        }
        begin = end;
    }
    return result;
}

}  // namespace framehold
