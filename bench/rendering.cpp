#include "bench/contenders.h"
#include "bench/measurements.h"

#include <cstdlib>

#include <fmt/format.h>

namespace framehold::bench {

namespace {

/// Shows that all render the same motion: how far their luma is from the fixed-point remap's, on
/// average, leaving out a border that not all of them fill alike.
std::string compareOutputs(const std::vector<Contender>& contenders, Size size) {
    constexpr int32_t kBorder = 16;
    std::vector<uint8_t> expected;
    const auto pixels = static_cast<size_t>(size.pixels());
    for (const Contender& contender : contenders) {
        if (contender.name != kRemapName) continue;
        contender.render(0);
        expected.assign(contender.luma(0), contender.luma(0) + pixels);
    }
    std::string text = "Mean difference of luma from the fixed-point remap's:";
    for (const Contender& contender : contenders) {
        if (!contender.luma || contender.name == kRemapName) continue;
        contender.render(0);
        const uint8_t* luma = contender.luma(0);
        double sum = 0.0;
        for (int32_t y = kBorder; y < size.height - kBorder; ++y) {
            for (int32_t x = kBorder; x < size.width - kBorder; ++x) {
                const auto i = static_cast<size_t>(y) * static_cast<size_t>(size.width) +
                               static_cast<size_t>(x);
                sum += std::abs(luma[i] - expected[i]);
            }
        }
        const int64_t compared = int64_t{size.width - 2 * kBorder} * (size.height - 2 * kBorder);
        text += fmt::format("\n    {:<37}{:>6.2f}", contender.name,
                            sum / static_cast<double>(compared));
    }
    return text;
}

}  // namespace

Table measureRendering(Size size, int threads, int ring, const Effort& effort) {
    Course course(size, threads, ring);
    std::vector<Contender> contenders{makeCopy(course)};
    addOpencvContenders(course, contenders);
    if (threads == 1) contenders.push_back(makeVidstab(course));
    addKernelContenders(course, contenders);

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
    if (ring == 1 && threads == 1) table.notes.push_back(compareOutputs(contenders, size));
    table.lines = summarize(race(contenders, effort.rounds, effort.seconds));
    return table;
}

}  // namespace framehold::bench
