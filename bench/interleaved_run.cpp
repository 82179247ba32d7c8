#include "bench/interleaved_run.h"

#include <algorithm>
#include <cmath>

namespace framehold::bench {

namespace {

Quartiles ratiosTo(const std::vector<Times>& times, const char* name, const Times& of) {
    const auto base = std::find_if(times.begin(), times.end(),
                                   [&](const Times& candidate) { return candidate.name == name; });
    if (base == times.end()) return {};
    std::vector<double> ratios;
    ratios.reserve(of.ms.size());
    for (size_t i = 0; i < of.ms.size(); ++i) ratios.push_back(of.ms[i] / base->ms[i]);
    return quartilesOf(ratios);
}

}  // namespace

Quartiles quartilesOf(std::vector<double> values) {
    if (values.empty()) return {};
    std::sort(values.begin(), values.end());
    const auto at = [&](double share) {
        const double position = share * static_cast<double>(values.size() - 1);
        const auto below = static_cast<size_t>(position);
        const size_t above = std::min(below + 1, values.size() - 1);
        return values[below] +
               (position - static_cast<double>(below)) * (values[above] - values[below]);
    };
    return {at(0.25), at(0.5), at(0.75)};
}

std::vector<Result> summarize(const std::vector<Times>& times) {
    std::vector<Result> results;
    results.reserve(times.size());
    for (const Times& t : times) {
        results.push_back({t.name, quartilesOf(t.ms), ratiosTo(times, kCopyName, t),
                           ratiosTo(times, kRemapName, t)});
    }
    return results;
}

std::vector<Times> runInterleaved(const std::vector<Case>& cases, const Effort& effort) {
    struct Progress {
        int framesPerRound;
        int nextFrame;
    };
    std::vector<Times> times;
    std::vector<Progress> progress;
    for (const Case& measured : cases) {
        measured.render(0);
        Stopwatch watch;
        measured.render(1);
        const double frames = effort.seconds * 1e3 / std::max(watch.ms(), 1e-4);
        progress.push_back({static_cast<int>(std::clamp(std::ceil(frames), 1.0, 1e6)), 2});
        times.push_back({measured.name, {}});
    }
    const size_t count = cases.size();
    for (int round = 0; round < effort.rounds; ++round) {
        for (size_t turn = 0; turn < count; ++turn) {
            const size_t i = (turn + static_cast<size_t>(round)) % count;
            auto& [frames, next] = progress[i];
            // One frame more: its time holds what the case before left behind in the caches.
            cases[i].render(next++);
            Stopwatch watch;
            for (int k = 0; k < frames; ++k) cases[i].render(next++);
            times[i].ms.push_back(watch.ms() / frames);
        }
    }
    return times;
}

}  // namespace framehold::bench
