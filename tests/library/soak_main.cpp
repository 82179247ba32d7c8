// Instances on many threads at once, at random parameters, reset and made anew at random: every
// frame is compared with that of an instance that renders with the scalar kernels on one thread.
// Memory and threads must not grow.
#include "support/frame.h"
#include "support/hand_shake.h"
#include "support/kernel_levels.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace zpr_test;

namespace {

struct Totals {
    std::atomic<bool> isOver{false};
    std::atomic<long> instances{0};
    std::atomic<long> frames{0};
    std::atomic<long> resets{0};
    std::atomic<long> differences{0};
};

ZPR_Param drawParam(Random& random) {
    const int width = 2 * random.integer(1, 320), height = 2 * random.integer(1, 240);
    ZPR_Param param = makeParam(width, height);
    if (random.integer(0, 1) == 0) {
        param.outputImage.width = 2 * random.integer(1, width / 2);
        param.outputImage.height = 2 * random.integer(1, height / 2);
    }
    constexpr int kMasks[] = {1, 5, 16, 21, 63};
    param.sensorMask = kMasks[random.integer(0, 4)];
    param.delayFrames = random.integer(0, 1) == 0 ? 0 : random.integer(1, 12);
    param.cropPercent = random.integer(60, 100);
    param.smoothingLevel = random.integer(1, 10);
    param.readoutTime = random.uniform(0.0, 0.03);
    return param;
}

/// Two instances of the same parameters, the second one the reference, and their input.
class Pair {
public:
    /// arena: null, or formatted memory.
    Pair(Random& random, void* arena)
        : random_(random), param_(drawParam(random)),
          hand_(param_.sensorMask, random.uniform(0, 20), random.bits()),
          input_(param_.inputImage.width, param_.inputImage.height), tested_(param_, arena),
          reference_(createWith(param_, scalarKernels(), 0)) {
        input_.fillRandom(random);
    }

    void reset() {
        ZPR_Reset(tested_);
        ZPR_Reset(reference_);
    }

    /// Feeds the same to both. Returns whether they answer the same.
    bool stabilize() {
        time_ += 1.0 / 30.0;
        hand_.feedTo(time_ + 0.04, [&](const ZPR_SensorData& s) {
            ZPR_SetSensorData(tested_, &s);
            ZPR_SetSensorData(reference_, &s);
        });
        const bool isDrained = random_.integer(0, 30) == 0;
        const ZPR_Image* in = isDrained ? nullptr : &input_.image;
        Frame output(param_.outputImage.width, param_.outputImage.height);
        const int code = ZPR_Stabilize(tested_, time_, in, &output.image, nullptr);
        const uint64_t sum = checksum(output.image);
        output.fill(0);
        return ZPR_Stabilize(reference_, time_, in, &output.image, nullptr) == code &&
               checksum(output.image) == sum;
    }

private:
    Random& random_;
    ZPR_Param param_;
    HandShake hand_;
    Frame input_;
    Instance tested_;
    Instance reference_;
    double time_ = 1.0;
};

void runInstance(Random& random, void* arena, Totals& totals) {
    Pair pair(random, arena);
    for (int left = random.integer(1, 60); left > 0 && !totals.isOver; --left) {
        if (!pair.stabilize()) ++totals.differences;
        ++totals.frames;
        if (random.integer(0, 20) != 0) continue;
        pair.reset();
        ++totals.resets;
    }
}

void runInstances(uint32_t seed, Totals& totals) {
    Random random(seed);
    constexpr size_t kArenaBytes = size_t{26} << 20;
    const std::unique_ptr<uint32_t[]> arena(new uint32_t[kArenaBytes / 4]);
    for (; !totals.isOver; ++totals.instances) {
        void* memory = random.integer(0, 1) == 0 ? nullptr : arena.get();
        ZPR_FormatArena(memory, kArenaBytes);  // refuses null
        try {
            runInstance(random, memory, totals);
        } catch (const std::runtime_error&) {
            ++totals.differences;
        }
    }
}

/// Memory and threads of the process.
struct Usage {
    double memory = 0.0;  // MiB resident
    int threads = 0;
};

Usage usageNow() {
    Usage usage;
    std::ifstream status("/proc/self/status");
    for (std::string field; status >> field;) {
        if (field == "VmRSS:") status >> usage.memory;
        if (field == "Threads:") status >> usage.threads;
    }
    usage.memory /= 1024.0;
    return usage;
}

/// Threads of the process once those that have ended are gone, which takes a moment.
int settledThreadCount(int expected) {
    for (int i = 0; i < 100 && usageNow().threads > expected; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return usageNow().threads;
}

/// The most of each in a part of the run.
Usage peakDuring(std::chrono::duration<double> time) {
    Usage peak;
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
        const Usage usage = usageNow();
        peak.memory = std::max(peak.memory, usage.memory);
        peak.threads = std::max(peak.threads, usage.threads);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return peak;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        std::puts("usage: soak SECONDS [SEED]");
        return 2;
    }
    constexpr uint32_t kThreads = 8;
    const double seconds = std::strtod(argv[1], nullptr);
    const auto seed = static_cast<uint32_t>(argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 1);
    // Race checkers and emulators start a thread of their own with the first one.
    std::thread([] {}).join();
    const int threadsBefore = settledThreadCount(1);
    Totals totals;
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < kThreads; ++i) {
        threads.emplace_back(runInstances, seed + i, std::ref(totals));
    }
    Usage parts[3];
    for (Usage& part : parts) part = peakDuring(std::chrono::duration<double>(seconds / 3));
    totals.isOver = true;
    for (std::thread& thread : threads) thread.join();

    std::printf(
        "%u threads, %.0f s, seed %u: %ld instances, %ld resets, %ld frames, "
        "%ld not as the reference\n",
        kThreads, seconds, seed, totals.instances.load(), totals.resets.load(),
        totals.frames.load(), totals.differences.load());
    const char* const kNames[] = {"start", "middle", "end"};
    for (int i = 0; i < 3; ++i) {
        std::printf("%-6s third: at most %.1f MiB resident, %d threads\n", kNames[i],
                    parts[i].memory, parts[i].threads);
    }
    const int threadsLeft = settledThreadCount(threadsBefore) - threadsBefore;
    std::printf("%d threads left\n", threadsLeft);
    // A short run has not seen its largest instances early on.
    constexpr double kLongRun = 60.0;
    const bool isFlat = seconds < kLongRun || (parts[2].memory < 1.1 * parts[0].memory + 4.0 &&
                                               parts[2].threads <= parts[0].threads + 4);
    if (!isFlat) std::puts("FAILED: memory or threads have grown");
    return isFlat && totals.differences == 0 && totals.frames > 0 && threadsLeft == 0 ? 0 : 1;
}
