#include "bench/cases.h"
#include "bench/interleaved_run.h"
#include "bench/measurements.h"
#include "bench/staged_pipeline.h"

#include <fmt/format.h>

#include <opencv2/core/utility.hpp>

namespace framehold::bench {

namespace fh = qlx::zpr_framehold;

namespace {

const std::vector<std::string> kStageNames{"copy", "smoothing", "mapping", "rendering"};

/// A frame's stages one by one, in milliseconds. The sum is that of kStageNames.
struct StageTimes {
    double samples, copy, smoothing, mapping, rendering;

    double sum() const { return copy + smoothing + mapping + rendering; }
};

StageTimes runStages(StagedPipeline& pipeline, const ZPR_Image& input, const ZPR_Image& output) {
    StageTimes times;
    Stopwatch watch;
    pipeline.feedSamples();
    times.samples = watch.lap();
    pipeline.copy(input);
    times.copy = watch.lap();
    pipeline.smooth();
    times.smoothing = watch.lap();
    pipeline.map(input, output);
    times.mapping = watch.lap();
    pipeline.warp(input, output);
    times.rendering = watch.lap() - times.mapping;
    pipeline.advance();
    return times;
}

double runWholeCall(StagedPipeline& pipeline, const ZPR_Image& input, ZPR_Image& output) {
    pipeline.feedSamples();
    Stopwatch watch;
    pipeline.stabilize(input, output);
    const double ms = watch.ms();
    pipeline.advance();
    return ms;
}

double timeOf(const Case& measured, int frame) {
    Stopwatch watch;
    measured.render(frame);
    return watch.ms();
}

}  // namespace

Table measureStages(Size size, int delayFrames, bool usePool, int ring, const Effort& effort) {
    constexpr int kWarmUp = 10;
    constexpr int kFramesPerRound = 4;

    StagedPipeline whole(size, delayFrames, usePool, fh::selectRowKernels());
    StagedPipeline staged(size, delayFrames, usePool, fh::selectRowKernels());
    Fixture fixture(size, usePool ? whole.threads() - 1 : 1, ring);
    cv::setNumThreads(fixture.threads());
    const Case copy = makeCopy(fixture);
    const Case remap = makeFixedRemap(fixture);

    enum { kCopy, kRemap, kSamples, kFirstStage, kSum = kFirstStage + 4, kWhole, kCount };
    std::vector<Times> times(kCount);
    times[kCopy].name = copy.name;
    times[kRemap].name = remap.name;
    times[kSamples].name = "sensor samples, before the call";
    for (size_t i = 0; i < kStageNames.size(); ++i) times[kFirstStage + i].name = kStageNames[i];
    times[kSum].name = "sum of the stages";
    times[kWhole].name = "ZPR_Stabilize";

    std::vector<double> restToRendering;
    for (int frame = 0; frame < kWarmUp + effort.rounds * kFramesPerRound; ++frame) {
        const ZPR_Image& input = fixture.sources().at(frame).image;
        ZPR_Image& output = fixture.targets().at(frame).image;
        double ms[kCount];
        ms[kCopy] = timeOf(copy, frame);
        ms[kRemap] = timeOf(remap, frame);
        StageTimes stages;
        // By turns: the second one finds caches and clock as the first one left them.
        if (frame % 2 == 0) stages = runStages(staged, input, output);
        ms[kWhole] = runWholeCall(whole, input, output);
        if (frame % 2 != 0) stages = runStages(staged, input, output);
        ms[kSamples] = stages.samples;
        ms[kFirstStage] = stages.copy;
        ms[kFirstStage + 1] = stages.smoothing;
        ms[kFirstStage + 2] = stages.mapping;
        ms[kFirstStage + 3] = stages.rendering;
        ms[kSum] = stages.sum();
        if (frame < kWarmUp) continue;
        for (size_t i = 0; i < kCount; ++i) times[i].ms.push_back(ms[i]);
        restToRendering.push_back((stages.smoothing + stages.mapping) / stages.rendering);
    }

    const Quartiles rest = quartilesOf(restToRendering);
    return {fmt::format(
                "ZPR_Stabilize {}x{}, delayFrames {}, {}, kernels {}", size.width, size.height,
                delayFrames,
                usePool ? fmt::format("caller and pool of {}", whole.threads() - 1) : "one thread",
                fh::selectRowKernels().name),
            usePool ? "stages_pool" : "stages",
            size,
            whole.threads(),
            ring,
            delayFrames,
            summarize(times),
            {fmt::format("smoothing and mapping take {:.2f} % [{:.2f} {:.2f}] of rendering",
                         rest.median * 100.0, rest.low * 100.0, rest.high * 100.0)}};
}

}  // namespace framehold::bench
