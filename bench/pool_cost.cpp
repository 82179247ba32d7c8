#include "bench/contenders.h"
#include "bench/measurements.h"
#include "bench/staged_pipeline.h"
#include "bench/stopwatch.h"

#include <algorithm>
#include <atomic>
#include <thread>

#include <fmt/format.h>
#include <time.h>

#include <opencv2/core/utility.hpp>

namespace framehold::bench {

namespace fh = qlx::zpr_framehold;

namespace {

void renderNothing(const fh::BlockGrid&, const fh::SourceFrame&, const ZPR_Image&,
                   const fh::BlockRow&) {}

/// What is left of a warp is mapping, and the pool if there is one.
constexpr fh::RowKernels kNoKernels{"none", renderNothing};

/// One call of a kernel.
struct KernelCall {
    std::thread::id thread;
    double ms;  // of the thread's processor time, so that waiting for a processor does not count
};

constexpr size_t kMaxCalls = 256;

// A kernel is a plain function: what it notes has no other place to go.
KernelCall calls[kMaxCalls];
std::atomic<size_t> callCount{0};

double threadMs() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

void renderNoting(const fh::BlockGrid& grid, const fh::SourceFrame& source, const ZPR_Image& target,
                  const fh::BlockRow& blocks) {
    const double start = threadMs();
    fh::selectRowKernels().renderRow(grid, source, target, blocks);
    const size_t i = callCount++;
    if (i < kMaxCalls) calls[i] = {std::this_thread::get_id(), threadMs() - start};
}

constexpr fh::RowKernels kNotingKernels{"noting", renderNoting};

}  // namespace

Table measurePool(Size size, int threads, const Effort& effort) {
    Course course(size, threads, 1);
    Course alone(size, 1, 1);
    cv::setNumThreads(1);
    const std::vector<Contender> contenders{
        makeCopy(alone), makeFixedRemap(alone),
        makeWarper(alone, "empty warp, no pool", alone.shaken(), kNoKernels),
        makeWarper(course, fmt::format("empty warp, pool of {}", threads), course.shaken(),
                   kNoKernels)};
    Table table{fmt::format("Pool at {}x{}: a warp that only maps, hot; the rest on one thread",
                            size.width, size.height),
                "pool",
                size,
                threads,
                1,
                0,
                {},
                {}};
    table.lines = summarize(race(contenders, effort.rounds, effort.seconds));
    table.notes.push_back(fmt::format("waking and waiting for the pool: {:.1f} us a frame",
                                      (table.lines[3].ms.median - table.lines[2].ms.median) * 1e3));
    return table;
}

void printIdleShare(Size size, int threads, int ring, const Effort& effort) {
    Course course(size, threads, ring);
    const Contender warper = makeWarper(course, "", course.shaken(), kNotingKernels);
    warper.render(0);

    std::vector<std::thread::id> ids{std::this_thread::get_id()};
    std::vector<std::vector<double>> busy(1);
    std::vector<double> idle;
    const int frames = 4 * effort.rounds;
    for (int frame = 1; frame <= frames; ++frame) {
        callCount = 0;
        Stopwatch watch;
        warper.render(frame);
        const double wall = watch.ms();
        double sum = 0.0;
        for (auto& shares : busy) shares.push_back(0.0);
        for (size_t i = 0; i < std::min(callCount.load(), kMaxCalls); ++i) {
            const auto found = std::find(ids.begin(), ids.end(), calls[i].thread);
            const auto thread = static_cast<size_t>(found - ids.begin());
            if (found == ids.end()) {
                ids.push_back(calls[i].thread);
                busy.emplace_back(static_cast<size_t>(frame), 0.0);
            }
            busy[thread].back() += calls[i].ms / wall;
            sum += calls[i].ms;
        }
        idle.push_back(1.0 - sum / (wall * threads));
    }

    const auto percent = [](const Quartiles& q) {
        return fmt::format("{:5.1f} % [{:.1f} {:.1f}]", 100.0 * q.median, 100.0 * q.low,
                           100.0 * q.high);
    };
    fmt::print("\nIdle share at {}x{}: pool of {} and the caller, ring of {}\n", size.width,
               size.height, threads, ring);
    for (size_t i = 0; i < busy.size(); ++i) {
        fmt::print("  {:<37}{:>25}\n", i == 0 ? "caller renders for" : "pool thread renders for",
                   percent(quartilesOf(busy[i])));
    }
    fmt::print("  {:<37}{:>25}\n", fmt::format("{} processors not rendering", threads),
               percent(quartilesOf(idle)));
}

}  // namespace framehold::bench
