#include "bench/cases.h"
#include "bench/interleaved_run.h"
#include "bench/measurements.h"
#include "bench/staged_pipeline.h"

#include <fmt/format.h>
#include <time.h>

#include <opencv2/core/utility.hpp>

namespace framehold::bench {

namespace fh = qlx::zpr_framehold;

namespace {

void renderNothing(const fh::SourceFrame&, const fh::TargetRowPair&, fh::Strips*, int32_t) {}

/// What is left of a warp is mapping, planning, and the pool if there is one.
constexpr fh::RowKernels kNoKernels{"none", renderNothing};

/// Processor time, so that waiting for a processor does not count.
double processorMs(clockid_t clock) {
    timespec now;
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

}  // namespace

Table measurePool(Size size, int threads, const Effort& effort) {
    Fixture fixture(size, threads, 1);
    Fixture alone(size, 1, 1);
    cv::setNumThreads(1);
    const std::vector<Case> cases{
        makeCopy(alone), makeFixedRemap(alone),
        makeWarper(alone, "empty warp, no pool", alone.shaken(), kNoKernels),
        makeWarper(fixture, fmt::format("empty warp, pool of {}", threads), fixture.shaken(),
                   kNoKernels)};
    Table table{
        fmt::format("Pool at {}x{}: a warp that renders nothing, hot; the rest on one thread",
                    size.width, size.height),
        "pool",
        size,
        threads,
        1,
        0,
        {},
        {}};
    table.results = summarize(runInterleaved(cases, effort));
    table.notes.push_back(
        fmt::format("waking and waiting for the pool: {:.1f} us a frame",
                    (table.results[3].ms.median - table.results[2].ms.median) * 1e3));
    return table;
}

void printIdleShare(Size size, int threads, int ring, const Effort& effort) {
    Fixture fixture(size, threads, ring);
    const Case warper = makeWarper(fixture, "", fixture.shaken(), fh::selectRowKernels());
    warper.render(0);

    std::vector<double> caller, pool, idle;
    const int frames = 4 * effort.rounds;
    for (int frame = 1; frame <= frames; ++frame) {
        const double callerStart = processorMs(CLOCK_THREAD_CPUTIME_ID);
        const double start = processorMs(CLOCK_PROCESS_CPUTIME_ID);
        Stopwatch watch;
        warper.render(frame);
        const double wall = watch.ms();
        const double all = processorMs(CLOCK_PROCESS_CPUTIME_ID) - start;
        caller.push_back((processorMs(CLOCK_THREAD_CPUTIME_ID) - callerStart) / wall);
        pool.push_back(all / wall - caller.back());
        idle.push_back(1.0 - all / (wall * threads));
    }

    const auto percent = [](const Quartiles& q) {
        return fmt::format("{:5.1f} % [{:.1f} {:.1f}]", 100.0 * q.median, 100.0 * q.low,
                           100.0 * q.high);
    };
    fmt::print("\nIdle share at {}x{}: pool of {} and the caller, ring of {}\n", size.width,
               size.height, threads, ring);
    fmt::print("  {:<37}{:>25}\n", "caller is busy for", percent(quartilesOf(caller)));
    fmt::print("  {:<37}{:>25}\n", "pool is busy for, all threads", percent(quartilesOf(pool)));
    fmt::print("  {:<37}{:>25}\n", fmt::format("{} processors idle", threads),
               percent(quartilesOf(idle)));
}

}  // namespace framehold::bench
