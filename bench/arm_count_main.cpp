// framehold_arm_count: runs one stage of the pipeline a given number of times, for an instruction
// counter. Everything else it does is the same for every number of frames, so that the counts of a
// run with some frames and of one with none differ by the cost of the frames.
#include "bench/staged_pipeline.h"
#include "support/kernel_levels.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

namespace fh = qlx::zpr_framehold;

namespace {

using framehold::bench::Size;
using framehold::bench::StagedPipeline;

constexpr int kDelayFrames = 15;

const fh::RowKernels* findKernels(const char* name) {
    for (const fh::RowKernels* kernels : zpr_test::availableKernels()) {
        if (std::strcmp(kernels->name, name) == 0) return kernels;
    }
    return nullptr;
}

/// One step of a stage. `mapping` is part of `rendering`; `samples` is part of `smoothing` and of
/// `all`, which go from frame to frame.
using Stage = void (*)(StagedPipeline&, const ZPR_Image& input, ZPR_Image& output);

Stage findStage(const char* name) {
    static const struct {
        const char* name;
        Stage run;
    } kStages[] = {
        {"none", [](StagedPipeline&, const ZPR_Image&, ZPR_Image&) {}},
        {"samples",
         [](StagedPipeline& p, const ZPR_Image&, ZPR_Image&) {
             p.feedSamples();
             p.advance();
         }},
        {"copy", [](StagedPipeline& p, const ZPR_Image& input, ZPR_Image&) { p.copy(input); }},
        {"smoothing",
         [](StagedPipeline& p, const ZPR_Image&, ZPR_Image&) {
             p.feedSamples();
             p.smooth();
             p.advance();
         }},
        {"mapping", [](StagedPipeline& p, const ZPR_Image& input,
                       ZPR_Image& output) { p.map(input, output); }},
        {"rendering", [](StagedPipeline& p, const ZPR_Image& input,
                         ZPR_Image& output) { p.warp(input, output); }},
        {"all",
         [](StagedPipeline& p, const ZPR_Image& input, ZPR_Image& output) {
             p.feedSamples();
             p.stabilize(input, output);
             p.advance();
         }},
    };
    for (const auto& stage : kStages) {
        if (std::strcmp(stage.name, name) == 0) return stage.run;
    }
    return nullptr;
}

/// -1 for what is not a number or too large to be true.
int32_t parseNumber(const char* text) {
    constexpr long kMost = 16384;
    char* end = nullptr;
    const long value = std::strtol(text, &end, 10);
    return end == text || *end != 0 || value > kMost ? -1 : static_cast<int32_t>(value);
}

int usage() {
    std::fputs(
        "Usage: framehold_arm_count WIDTH HEIGHT FRAMES LEVEL STAGE\n"
        "LEVEL: scalar, neon, sse41, avx2; STAGE: none, samples, copy, smoothing (with samples),\n"
        "mapping, rendering (with mapping), all. One thread, 15 frames of delay.\n"
        "Exit code 3: this build or machine has no such level.\n",
        stderr);
    return 2;
}

int run(char** arguments) {
    const Size size{parseNumber(arguments[0]), parseNumber(arguments[1])};
    const int frames = parseNumber(arguments[2]);
    const Stage stage = findStage(arguments[4]);
    if (size.width <= 0 || size.width % 2 != 0 || size.height <= 0 || size.height % 2 != 0 ||
        frames < 0 || stage == nullptr) {
        return usage();
    }
    const fh::RowKernels* kernels = findKernels(arguments[3]);
    if (kernels == nullptr) return 3;

    zpr_test::Frame input(size.width, size.height), output(size.width, size.height);
    framehold::bench::drawWaves(input, 1.0);
    StagedPipeline pipeline(size, kDelayFrames, false, *kernels);
    // A correction for the stages that only use one.
    pipeline.feedSamples();
    pipeline.smooth();
    pipeline.advance();
    for (int i = 0; i < frames; ++i) stage(pipeline, input.image, output.image);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) return usage();
    try {
        return run(argv + 1);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "framehold_arm_count: %s\n", error.what());
        return 1;
    }
}
