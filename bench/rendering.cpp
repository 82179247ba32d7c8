#include "bench/cases.h"
#include "bench/measurements.h"

#include <cstdlib>

#include <fmt/format.h>

namespace framehold::bench {

namespace {

/// Mean differences of the cases' luma from the fixed-point remap's, which show that all render the
/// same transforms; without a border that not all of them fill alike.
std::string compareOutputs(const std::vector<Case>& cases, Size size) {
    constexpr int32_t kBorder = 16;
    std::vector<uint8_t> expected;
    const auto pixels = static_cast<size_t>(size.pixels());
    for (const Case& measured : cases) {
        if (measured.name != kRemapName) continue;
        measured.render(0);
        expected.assign(measured.luma(0), measured.luma(0) + pixels);
    }
    std::string text = "Mean difference of luma from the fixed-point remap's:";
    for (const Case& measured : cases) {
        if (!measured.luma || measured.name == kRemapName) continue;
        measured.render(0);
        const uint8_t* luma = measured.luma(0);
        double sum = 0.0;
        for (int32_t y = kBorder; y < size.height - kBorder; ++y) {
            for (int32_t x = kBorder; x < size.width - kBorder; ++x) {
                const auto i = static_cast<size_t>(y) * static_cast<size_t>(size.width) +
                               static_cast<size_t>(x);
                sum += std::abs(luma[i] - expected[i]);
            }
        }
        const int64_t compared = int64_t{size.width - 2 * kBorder} * (size.height - 2 * kBorder);
        text +=
            fmt::format("\n    {:<37}{:>6.2f}", measured.name, sum / static_cast<double>(compared));
    }
    return text;
}

}  // namespace

Table measureRendering(Size size, int threads, int ring, const Effort& effort) {
    Fixture fixture(size, threads, ring);
    std::vector<Case> cases{makeCopy(fixture)};
    addOpencvCases(fixture, cases);
    if (threads == 1) cases.push_back(makeVidstab(fixture));
    addKernelCases(fixture, cases);

    Table table{fmt::format("Rendering {}x{}, {} thread{}, {}", size.width, size.height, threads,
                            threads == 1 ? "" : "s",
                            ring == 1 ? std::string("hot: the same frames again and again")
                                      : fmt::format("cold: {} source and target frames", ring)),
                "rendering",
                size,
                threads,
                ring,
                0,
                {},
                {}};
    if (ring == 1 && threads == 1) table.notes.push_back(compareOutputs(cases, size));
    table.results = summarize(runInterleaved(cases, effort));
    return table;
}

}  // namespace framehold::bench
