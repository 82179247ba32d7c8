#include "path/zoom_choice.h"

#include "common/angles.h"
#include "path/output_border.h"
#include "path/rotation_vector.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <optional>
#include <utility>

namespace framehold {

namespace {

using Eigen::Vector3d;

std::vector<double> zoomsOf(const PathTask& task) {
    std::vector<double> zooms = task.settings.zooms;
    zooms.resize(task.firstRowTimes.size(), 1.0);
    return zooms;
}

OptimalPath findPath(const PathTask& task, double crop, std::vector<double> zooms,
                     const std::function<void(double)>& onProgress) {
    PathSettings settings = task.settings;
    settings.zooms = std::move(zooms);
    return findOptimalPath(task.track, task.firstRowTimes, task.source, task.outputFor(crop),
                           settings, onProgress);
}

/// The path whose border limits it to looking at least at the middle of the picture.
OptimalPath findFreePath(const PathTask& task, const std::function<void(double)>& onProgress) {
    constexpr double kFarCrop = 2.0;
    return findPath(task, kFarCrop, zoomsOf(task), onProgress);
}

/// Smallest zoom of a camera, from 1 to `largest`, with which each view's border is inside the source;
/// `largest` where more is needed.
std::vector<double> neededZooms(const PathTask& task, const std::vector<View>& views,
                                const PinholeCamera& output, double largest) {
    constexpr int kHalvings = 10;
    constexpr double kReserve = 0.5;  // pixels
    const OutputBorder border(task.source, output);
    std::vector<double> zooms;
    for (size_t i = 0; i < views.size(); ++i) {
        const RowOrientations rows(task.track, task.source, task.firstRowTimes[i]);
        const auto isInside = [&](double zoom) {
            const View view{views[i].orientation, views[i].zoom * zoom};
            return border.distances(rows, view).maxCoeff() < -kReserve;
        };
        double bad = 1.0;
        double good = isInside(bad) ? bad : largest;
        for (int k = 0; k < kHalvings && good > 1.0; ++k) {
            const double zoom = (good + bad) / 2.0;
            (isInside(zoom) ? good : bad) = zoom;
        }
        zooms.push_back(good);
    }
    return zooms;
}

/// Means with weights that fall to 0 at `reach` seconds: a raised cosine.
template <typename Value>
std::vector<Value> smoothed(const std::vector<double>& times, const std::vector<Value>& values,
                            double reach, const Value& zero) {
    std::vector<Value> result;
    size_t begin = 0;
    for (const double time : times) {
        while (times[begin] < time - reach) ++begin;
        Value sum = zero;
        double weights = 0.0;
        for (size_t i = begin; i < times.size() && times[i] <= time + reach; ++i) {
            const double weight = std::pow(std::cos((times[i] - time) / reach * kPi / 2.0), 2.0);
            sum += weight * values[i];
            weights += weight;
        }
        result.push_back(sum / weights);
    }
    return result;
}

/// Speed of the turn between two paths without what is slower than about a quarter hertz, root mean
/// square over the worst second, as a share of the width per second.
double forcedSpeed(const PathTask& task, const OptimalPath& a, const OptimalPath& b,
                   const PinholeCamera& output) {
    constexpr double kSlow = 1.5;  // seconds
    constexpr double kSecond = 1.0;
    const std::vector<double>& times = task.firstRowTimes;
    std::vector<Vector3d> turns;
    for (size_t i = 0; i < times.size(); ++i) {
        turns.push_back(
            rotationVector(a.views[i].orientation.conjugate() * b.views[i].orientation));
    }
    const std::vector<Vector3d> slow = smoothed<Vector3d>(times, turns, kSlow, Vector3d::Zero());
    std::vector<double> squares(times.size(), 0.0);  // times the seconds that they last
    double sum = 0.0;
    double largest = 0.0;
    size_t first = 0;
    for (size_t i = 1; i < times.size(); ++i) {
        const double seconds = times[i] - times[i - 1];
        const Vector3d change = turns[i] - slow[i] - (turns[i - 1] - slow[i - 1]);
        if (seconds > 0.0) squares[i] = change.squaredNorm() / seconds;
        sum += squares[i];
        for (; times[first] < times[i] - kSecond; ++first) sum -= squares[first];
        largest = std::max(largest, sum / kSecond);
    }
    return std::sqrt(largest) * output.focal / output.width;
}

/// Largest values within `reach` seconds of each.
std::vector<double> largestAround(const std::vector<double>& times,
                                  const std::vector<double>& values, double reach) {
    std::deque<size_t> falling;  // of the window, those with none larger after them
    std::vector<double> result;
    size_t next = 0;
    for (const double time : times) {
        for (; next < times.size() && times[next] <= time + reach; ++next) {
            while (!falling.empty() && values[falling.back()] <= values[next]) falling.pop_back();
            falling.push_back(next);
        }
        while (times[falling.front()] < time - reach) falling.pop_front();
        result.push_back(values[falling.front()]);
    }
    return result;
}

std::vector<double> negated(std::vector<double> values) {
    for (double& value : values) value = -value;
    return values;
}

/// Smallest values that are at least the given ones and change by at most `kZoomSpeed` a second.
void limitSpeed(const std::vector<double>& times, std::vector<double>& values) {
    for (size_t i = 1; i < values.size(); ++i) {
        values[i] = std::max(values[i], values[i - 1] - kZoomSpeed * (times[i] - times[i - 1]));
    }
    for (size_t i = values.size(); i-- > 1;) {
        values[i - 1] = std::max(values[i - 1], values[i] - kZoomSpeed * (times[i] - times[i - 1]));
    }
}

}  // namespace

ChosenCrop chooseCrop(const PathTask& task) {
    constexpr int kSolutions = 5;
    constexpr size_t kRare = 20;  // one in so many frames may need a smaller crop
    if (task.firstRowTimes.empty()) return {kLargestCrop, {}, 0.0};
    int solved = 0;
    const auto onProgress = [&](double share) { task.onProgress((solved + share) / kSolutions); };
    const OptimalPath free = findFreePath(task, onProgress);
    ++solved;
    const PinholeCamera farthest = task.outputFor(kLargestCrop);
    const auto zoomOf = [&](int crop) { return task.outputFor(crop).focal / farthest.focal; };
    std::vector<double> needed = neededZooms(task, free.views, farthest, zoomOf(kSmallestCrop));
    std::sort(needed.begin(), needed.end());
    // The largest crop with at least a zoom.
    const auto cropFor = [&](double zoom) {
        int crop = kLargestCrop;
        while (crop > kSmallestCrop && zoomOf(crop) < zoom) --crop;
        return crop;
    };
    const auto solve = [&](int crop) -> ChosenCrop {
        ChosenCrop result{static_cast<double>(crop),
                          findPath(task, crop, zoomsOf(task), onProgress), 0.0};
        ++solved;
        result.forcedSpeed = forcedSpeed(task, free, result.path, task.outputFor(crop));
        return result;
    };
    int good = cropFor(needed.back());  // limits nothing, or nothing is smaller
    int bad = cropFor(needed[needed.size() - 1 - needed.size() / kRare]) + 1;
    std::optional<ChosenCrop> best;
    while (solved + 1 < kSolutions && bad - good > 1) {
        const int crop = (good + bad) / 2;
        ChosenCrop tried = solve(crop);
        if (tried.forcedSpeed > kUnseenSpeed) {
            bad = crop;
            continue;
        }
        good = crop;
        best = std::move(tried);
    }
    if (!best) best = solve(good);
    task.onProgress(1.0);
    return std::move(*best);
}

std::vector<double> easedZooms(const std::vector<double>& times,
                               const std::vector<double>& needed) {
    constexpr double kEase = 1.5;  // seconds, of a change
    std::vector<double> logs;
    for (const double zoom : needed) logs.push_back(std::log(zoom));
    // The largest of a wider window, then the smallest: short stretches that need less are left out.
    logs = largestAround(times, logs, kEase + kZoomHold / 2.0);
    logs = negated(largestAround(times, negated(logs), kZoomHold / 2.0));
    limitSpeed(times, logs);
    // Each of those that a mean is of is at least what is needed in the middle.
    logs = smoothed(times, logs, kEase, 0.0);
    limitSpeed(times, logs);  // where frames are uneven
    for (double& value : logs) value = std::exp(value);
    return logs;
}

OptimalPath findZoomingPath(const PathTask& task, double crop) {
    if (task.firstRowTimes.empty()) return {};
    const OptimalPath free =
        findFreePath(task, [&](double share) { task.onProgress(share / 2.0); });
    const PinholeCamera nearest = task.outputFor(crop);
    const PinholeCamera farthest = task.outputFor(std::max(crop, double{kLargestCrop}));
    const double range = nearest.focal / farthest.focal;
    std::vector<double> needed;
    for (const double zoom : neededZooms(task, free.views, farthest, range)) {
        needed.push_back(zoom / range);
    }
    std::vector<double> zooms = easedZooms(task.firstRowTimes, needed);
    const std::vector<double> given = zoomsOf(task);
    for (size_t i = 0; i < zooms.size(); ++i) zooms[i] *= given[i];
    return findPath(task, crop, std::move(zooms),
                    [&](double share) { task.onProgress((1.0 + share) / 2.0); });
}

ChosenCrop findCroppedPath(const PathTask& task, std::optional<double> crop, bool zooms) {
    const double choosing = crop ? 0.0 : zooms ? 0.7 : 1.0;  // share of the work
    const auto part = [&](double from, double to) {
        PathTask result = task;
        result.onProgress = [&task, from, to](double share) {
            task.onProgress(from + (to - from) * share);
        };
        return result;
    };
    ChosenCrop found{crop.value_or(0.0), {}, 0.0};
    if (!crop) found = chooseCrop(part(0.0, choosing));
    if (zooms) {
        found.path = findZoomingPath(part(choosing, 1.0), found.crop);
    } else if (crop) {
        found.path = findPath(task, *crop, zoomsOf(task), task.onProgress);
    }
    return found;
}

}  // namespace framehold
