// Compares the row kernels of every instruction set with the scalar ones, byte by byte, on random
// block rows; with --bench, their speed.
#include "support/guarded_frame.h"
#include "support/kernel_levels.h"
#include "support/random.h"
#include "warp/row_renderer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csetjmp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

using namespace qlx::zpr_framehold;
using zpr_test::GuardedFrame;
using zpr_test::GuardedPlane;
using zpr_test::Random;

namespace {

/// A way to move the picture: scale and shear from output to source, by how many pixels each block
/// corner strays from that, and how far the picture as a whole is shifted out of the middle.
struct Motion {
    const char* name;
    double scaleLow, scaleHigh, shear, stray, shift;
};

constexpr Motion kMotions[] = {
    {"identity", 1, 1, 0, 0, 0},          {"steps of 1/16", 1, 1, 0, 0.07, 0.2},
    {"steady", 0.9, 0.97, 0.005, 0, 4},   {"hand shake", 0.85, 1, 0.04, 0.3, 10},
    {"turned", 0.8, 1, 0.17, 1, 10},      {"shrunk", 1, 2.4, 0.17, 1, 10},
    {"much shrunk", 2.2, 6.6, 0.5, 3, 9}, {"magnified", 0.02, 0.5, 0.1, 1, 10},
    {"mirrored", -1.2, 0.1, 0.3, 1, 10},  {"at the border", 0.9, 1.02, 0.02, 0.3, 30},
    {"scrambled", 0.5, 1.5, 0.5, 60, 80}, {"far away", 0.5, 1.5, 0.1, 9, 9000},
    {"out of range", 1, 1, 0, 1e7, 1e7},
};

/// A random block row and its images.
struct Case {
    Motion motion;
    BlockGrid grid{2, 2, 2, 2};
    int rows = 0;  // of the target, of which the block row is the last
    std::vector<CornerDeltas> deltas;
    std::vector<BlockSpan> spans;
    std::unique_ptr<GuardedPlane> source[2];
    int targetPitch[2] = {};

    Case(uint32_t seed, int index)
        : motion(kMotions[static_cast<size_t>(index) % std::size(kMotions)]) {
        Random random(seed + static_cast<uint32_t>(index) * 0x9e3779b9u);
        const int outWidth =
            random.integer(0, 3) != 0 ? random.even(2, 420) : 128 * random.integer(1, 4);
        const int blockRow = random.integer(0, 2);
        rows = 128 * blockRow + random.even(2, 128);
        // Room for all of the picture, or nearly so, or not at all.
        const double reach = random.integer(0, 2) == 0 ? 1 : std::max(1.0, motion.scaleHigh);
        grid = BlockGrid(std::max(2, sourceSize(random, outWidth, reach)),
                         std::max(2, sourceSize(random, rows, reach)), outWidth, rows);
        const int width = grid.inWidth;
        source[0] = plane(random, width, grid.inHeight);
        source[1] = plane(random, width, grid.inHeight / 2);
        targetPitch[0] = outWidth + random.integer(0, 70);
        targetPitch[1] = outWidth + random.integer(0, 70);
        placeBlocks(random, blockRow);
    }

    BlockRow blockRow(std::vector<EdgeSteps>& edges) const {
        return {grid.rows - 1, deltas.data(), spans.data(), edges.data()};
    }

private:
    static int sourceSize(Random& random, int size, double reach) {
        if (random.integer(0, 9) == 0) return random.even(2, 20);
        return random.even(size - 20, static_cast<int>(size * reach) + 200);
    }

    static std::unique_ptr<GuardedPlane> plane(Random& random, int width, int rows) {
        auto plane = std::make_unique<GuardedPlane>(width, rows, width + random.integer(0, 40),
                                                    random.integer(0, 3) != 0);
        // Long runs of equal bytes would hide wrong taps, all sorts of bytes wrong weights.
        const bool extremes = random.integer(0, 3) == 0;
        for (uint8_t& byte : *plane) {
            const uint32_t bits = random.bits();
            byte = static_cast<uint8_t>(extremes ? (bits & 1) * 255 : bits >> 24);
        }
        return plane;
    }

    void placeBlocks(Random& random, int blockRow) {
        const auto draw = [&](double size) { return random.uniform(-size, size); };
        const double scaleX = random.uniform(motion.scaleLow, motion.scaleHigh);
        const double scaleY = random.uniform(motion.scaleLow, motion.scaleHigh);
        const double shearX = draw(motion.shear), shearY = draw(motion.shear);
        const double centreX = grid.outWidth / 2.0, centreY = grid.outHeight / 2.0;
        double shiftX = grid.inWidth / 2.0 + draw(motion.shift);
        double shiftY = grid.inHeight / 2.0 + draw(motion.shift);
        if (random.integer(0, 3) == 0) {
            // The last pixel of the last row comes from the source's last ones.
            shiftX = grid.inWidth - random.uniform(1, 5) - scaleX * centreX - shearX * centreY;
            shiftY = grid.inHeight - random.uniform(2, 6) - scaleY * centreY - shearY * centreX;
        }
        const auto offset = [](double position, int corner) {
            const double limit = kMaxCornerDelta;
            return static_cast<int32_t>(std::clamp(16 * (position - corner), -limit, limit));
        };
        // A corner that two blocks share lies at one place, so most rows are seamless.
        std::vector<CornerDeltas> corners;
        for (int col = 0; col <= grid.cols; ++col) {
            CornerDeltas c{};
            for (int bottom = 0; bottom < 2; ++bottom) {
                const int cornerX = 128 * col, cornerY = 128 * (blockRow + bottom);
                const double x = cornerX - centreX, y = cornerY - centreY;
                c.dx[bottom] =
                    offset(shiftX + scaleX * x + shearX * y + draw(motion.stray), cornerX);
                c.dy[bottom] =
                    offset(shiftY + scaleY * y + shearY * x + draw(motion.stray), cornerY);
            }
            corners.push_back(c);
        }
        const bool wholeSpans = random.integer(0, 1) == 0;
        for (size_t col = 0; col + 1 < corners.size(); ++col) {
            const CornerDeltas &l = corners[col], &r = corners[col + 1];
            deltas.push_back(
                {{l.dx[0], r.dx[0], l.dx[1], r.dx[1]}, {l.dy[0], r.dy[0], l.dy[1], r.dy[1]}});
            BlockSpan span{0, 0, grid.blockWidth(static_cast<int>(col)), 128};
            if (!wholeSpans) {
                span.xStart = random.integer(0, 127);
                span.yStart = random.integer(0, 127);
                span.xEnd = random.integer(0, span.xEnd);
            }
            spans.push_back(span);
        }
    }
};

sigjmp_buf g_beforeKernel;  // where a crash inside a kernel goes on
void leaveKernel(int signal) { siglongjmp(g_beforeKernel, signal); }

GuardedFrame makeTarget(const Case& c, bool atEnd) {
    return {c.grid.outWidth, c.rows, c.targetPitch[0], c.targetPitch[1], atEnd};
}

/// Runs a kernel. Returns the signal that it ended with, or 0.
int run(const RowKernels& kernels, Case& c, const ZPR_Image& target) {
    const SourceFrame source{c.source[0]->data(),  c.source[1]->data(), c.source[0]->pitch(),
                             c.source[1]->pitch(), c.grid.inWidth,      c.grid.inHeight};
    std::vector<EdgeSteps> edges(c.deltas.size());
    const int signal = sigsetjmp(g_beforeKernel, 1);
    if (signal == 0) renderRow(kernels, c.grid, source, target, c.blockRow(edges));
    return signal;
}

/// Prints the first difference of two targets, and the block that it is in.
void report(const Case& c, const std::vector<uint8_t>& got, const std::vector<uint8_t>& expected) {
    const auto [a, b] = std::mismatch(got.begin(), got.end(), expected.begin());
    auto at = static_cast<int>(a - got.begin());
    const int lumaBytes = c.targetPitch[0] * (c.rows - 1) + c.grid.outWidth;
    const int plane = at < lumaBytes ? 0 : 1;
    at -= plane * lumaBytes;
    const int x = at % c.targetPitch[plane], y = at / c.targetPitch[plane];
    std::printf("  %s x %d y %d: %d where scalar has %d\n", plane == 0 ? "luma" : "chroma", x, y,
                *a, *b);
    const auto col = std::min(static_cast<size_t>(x) / 128, c.deltas.size() - 1);
    const CornerDeltas& d = c.deltas[col];
    std::printf("  block %zu: dx %d %d %d %d, dy %d %d %d %d\n", col, d.dx[0], d.dx[1], d.dx[2],
                d.dx[3], d.dy[0], d.dy[1], d.dy[2], d.dy[3]);
}

/// Checks one case on one level. Returns whether it went well.
bool check(const RowKernels& scalar, const RowKernels& kernels, uint32_t seed, int index) {
    Case c(seed, index);
    std::vector<uint8_t> bytes[2];  // padding included
    int signal = 0;
    for (int i = 0; i < 2 && signal == 0; ++i) {
        GuardedFrame target = makeTarget(c, index % 2 == 0);
        target.fill(0);
        signal = run(i == 0 ? scalar : kernels, c, target.image);
        bytes[i] = target.bytes();
    }
    if (signal == 0 && bytes[0] == bytes[1]) return true;
    std::printf("FAILED: %s: --seed %u --case %d (%s, %d x %d from %d x %d)%s%s\n", kernels.name,
                seed, index, c.motion.name, c.grid.outWidth, c.rows, c.grid.inWidth,
                c.grid.inHeight, signal != 0 ? ": " : "", signal != 0 ? strsignal(signal) : "");
    if (signal == 0) report(c, bytes[1], bytes[0]);
    return false;
}

/// Prints, for each kind of motion, how long the largest of its first cases takes on each level.
void bench(const std::vector<const RowKernels*>& levels, uint32_t seed) {
    constexpr int kRounds = 200;
    for (size_t m = 0; m < std::size(kMotions); ++m) {
        int best = static_cast<int>(m);
        int mostPixels = 0;
        for (int k = 0; k < 40; ++k) {
            const int index = static_cast<int>(m) + k * static_cast<int>(std::size(kMotions));
            const Case c(seed, index);
            // From sources that are too small, most pixels come from the border.
            if (c.grid.inWidth < c.grid.outWidth || c.grid.inHeight < c.rows) continue;
            const int pixels = c.grid.outWidth * c.grid.blockHeight(c.grid.rows - 1);
            if (pixels > mostPixels) {
                mostPixels = pixels;
                best = index;
            }
        }
        Case c(seed, best);
        const GuardedFrame target = makeTarget(c, true);
        std::vector<std::vector<double>> seconds(levels.size());
        for (int round = 0; round < kRounds; ++round) {
            for (size_t l = 0; l < levels.size(); ++l) {
                const auto start = std::chrono::steady_clock::now();
                run(*levels[l], c, target.image);
                const std::chrono::duration<double> taken =
                    std::chrono::steady_clock::now() - start;
                seconds[l].push_back(taken.count());
            }
        }
        std::printf("%-14s", kMotions[m].name);
        for (size_t l = 0; l < levels.size(); ++l) {
            std::nth_element(seconds[l].begin(), seconds[l].begin() + kRounds / 2,
                             seconds[l].end());
            const double ratio = seconds[0][kRounds / 2] / seconds[l][kRounds / 2];
            if (l == 0) std::printf("  scalar %7.1f us", 1e6 * seconds[0][kRounds / 2]);
            if (l > 0) std::printf("  %s %5.1f times faster", levels[l]->name, ratio);
        }
        std::printf("\n");
    }
}

int usage() {
    std::puts(
        "kernel_check [--seed N] [--cases N] [--case N] [--bench]\n"
        "  --seed N   seed of the random cases (1)\n"
        "  --cases N  cases for each level (1300)\n"
        "  --case N   this case only\n"
        "  --bench    time the levels by turns instead, for each kind of motion");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::map<std::string, int> numbers{{"--seed", 1}, {"--cases", 1300}, {"--case", -1}};
    bool benchmark = false;
    for (int i = 1; i < argc; ++i) {
        const auto number = numbers.find(argv[i]);
        if (number != numbers.end() && i + 1 < argc) {
            number->second = std::atoi(argv[++i]);
        } else if (argv[i] == std::string("--bench")) {
            benchmark = true;
        } else {
            return usage();
        }
    }
    const auto seed = static_cast<uint32_t>(numbers["--seed"]);
    const int first = std::max(0, numbers["--case"]);
    const int cases = numbers["--case"] < 0 ? numbers["--cases"] : 1;
    const auto levels = zpr_test::availableKernels();
    if (benchmark) {
        bench(levels, seed);
        return 0;
    }
    for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE}) std::signal(signal, leaveKernel);
    int failed = 0;
    for (size_t l = 1; l < levels.size(); ++l) {
        const RowKernels* kernels = levels[l];
        int wrong = 0;
        for (int k = first; k < first + cases && wrong < 10; ++k) {
            wrong += check(*levels[0], *kernels, seed, k) ? 0 : 1;
        }
        std::printf("%s: %d cases, seed %u, %d failed\n", kernels->name, cases, seed, wrong);
        failed += wrong;
    }
    std::printf("%zu levels checked against scalar; this machine chooses %s\n", levels.size() - 1,
                selectRowKernels().name);
    return failed == 0 ? 0 : 1;
}
