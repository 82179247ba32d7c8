// Every call to the system that can fail, made to fail once.
#include "runtime/worker_pool.h"
#include "support/fault_gate.h"
#include "support/hand_shake.h"
#include "support/test_support.h"

#include <algorithm>
#include <cstdio>
#include <functional>

using namespace zpr_test;
using qlx::zpr_framehold::WorkerPool;

namespace {

/// Arena memory, as large as ZPR_GetMemorySize says.
class Region {
public:
    explicit Region(const ZPR_Param& param) {
        uint32_t size = 0;
        EXPECT_EQ(ZPR_GetMemorySize(&param, &size), ZPR_OK);
        words_.resize(size / 4);
        EXPECT_EQ(ZPR_FormatArena(words_.data(), 4 * words_.size()), ZPR_OK);
    }
    void* data() { return words_.data(); }
    bool isWhole() const { return words_[0] == 4 * words_.size() - 16 && words_[1] == 0; }

private:
    std::vector<uint32_t> words_;
};

auto* const kUntouched = reinterpret_cast<ZPR_Handle>(alignof(std::max_align_t));

/// Calls `act` with its first point failing, then its second, and so on, until none is left to
/// fail; `check` after each that did. Returns how many points there are.
long failEachPoint(const std::function<int()>& act, const std::function<void()>& check) {
    for (long point = 1;; ++point) {
        SCOPED_TRACE(testing::Message() << "point " << point);
        const Holdings before = holdings();
        failPoint(point);
        const int code = act();
        const bool hasFailed = pointsPassed() >= point;
        failPoint(0);
        if (!hasFailed) {
            EXPECT_NE(code, ZPR_ERR_NO_MEMORY);
            return point - 1;
        }
        EXPECT_EQ(code, ZPR_ERR_NO_MEMORY);
        EXPECT_TRUE(holdings() == before) << "something was left behind";
        check();
        if (testing::Test::HasFailure()) return point;
    }
}

TEST(Faults, InitGivesEverythingBack) {
    for (const bool usesArena : {false, true}) {
        for (const int delay : {0, 3}) {
            ZPR_Param param = makeParam(300, 200);
            param.delayFrames = delay;
            Region region(param);
            void* memory = usesArena ? region.data() : nullptr;
            ZPR_Handle handle = kUntouched;
            const long points = failEachPoint(
                [&] { return ZPR_Init(memory, &param, &handle); },
                [&] {
                    EXPECT_EQ(handle, kUntouched);
                    EXPECT_TRUE(region.isWhole());
                    const Holdings before = holdings();
                    ASSERT_EQ(ZPR_Init(memory, &param, &handle), ZPR_OK) << "the next try";
                    ZPR_Deinit(&handle);
                    EXPECT_TRUE(holdings() == before);
                    handle = kUntouched;
                });
            if (HasFailure()) return;
            ZPR_Deinit(&handle);
            EXPECT_TRUE(region.isWhole());
            EXPECT_GT(points, 20);
            std::printf("ZPR_Init, delay %d, %s: %ld points\n", delay, usesArena ? "arena" : "heap",
                        points);
        }
    }
}

TEST(Faults, SamplesThatCannotBeBufferedCanBeGivenAgain) {
    ZPR_Param param = makeParam(64, 64);
    param.sensorMask = 63;
    long points = 0;
    for (int type = ZPR_SENSOR_GRAVITY_1; type <= ZPR_SENSOR_ROTATION_2; ++type) {
        const Instance instance(param);
        const ZPR_SensorData data = sample(type, 1.0, 0, 0, 1, 1);
        points += failEachPoint([&] { return ZPR_SetSensorData(instance, &data); }, [] {});
    }
    EXPECT_GT(points, 6);
    std::printf("ZPR_SetSensorData: %ld points\n", points);
}

TEST(Faults, FramesThatFailedCanBeGivenAgain) {
    constexpr int kFrames = 12, kWidth = 300, kHeight = 140;
    TestRandom random(51);
    long points = 0;
    for (const auto& [delay, mask] : {std::pair{0, 1}, {0, 5}, {0, 16}, {3, 1}, {3, 5}, {3, 16}}) {
        ZPR_Param param = makeParam(kWidth, kHeight);
        param.delayFrames = delay;
        param.sensorMask = mask;
        // Both are fed the same; calls of the first one fail, and are repeated.
        const Instance failing(param), reference(param);
        Frame input(kWidth, kHeight), output(kWidth, kHeight), expected(kWidth, kHeight);
        HandShake hand(mask, 6.0);
        for (int i = 0; i < kFrames + delay; ++i) {
            const double time = 1.0 + i / 30.0;
            const ZPR_Image* in = i < kFrames ? &input.image : nullptr;
            hand.feedTo(time + 0.05, [&](const ZPR_SensorData& s) {
                for (ZPR_Handle handle : {ZPR_Handle{failing}, ZPR_Handle{reference}})
                    ZPR_SetSensorData(handle, &s);
            });
            input.fillRandom(random);
            const std::vector<uint8_t> before = output.bytes;
            int code = 0;
            points += failEachPoint(
                [&] { return code = ZPR_Stabilize(failing, time, in, &output.image, nullptr); },
                [&] { EXPECT_EQ(output.bytes, before) << "an error wrote something"; });
            EXPECT_EQ(ZPR_Stabilize(reference, time, in, &expected.image, nullptr), code);
            EXPECT_EQ(output.bytes, expected.bytes) << "an error left a trace";
        }
    }
    EXPECT_GT(points, 50);
    std::printf("ZPR_Stabilize: %ld points\n", points);
}

TEST(Faults, ArenasOfEverySize) {
    pretendProcessors(1);  // fewer threads to start
    for (const auto& [width, height, delay] : {std::tuple{2, 2, 0}, {34, 18, 2}}) {
        ZPR_Param param = makeParam(width, height);
        param.delayFrames = delay;
        for (const size_t offset : {0u, 1u}) {  // arenas are aligned to 4 bytes, objects to more
            alignas(16) uint32_t words[4000];
            const Holdings before = holdings();
            size_t tooSmall = 0, enough = 0;
            for (size_t size = 0; enough < 20; size += 4) {
                ASSERT_LT(size, sizeof words);
                ZPR_Handle handle = kUntouched;
                if (ZPR_FormatArena(words + offset, size) != ZPR_OK) {
                    ASSERT_LT(size, 20u);
                    continue;
                }
                const int code = ZPR_Init(words + offset, &param, &handle);
                ASSERT_EQ(code, enough == 0 && handle == kUntouched ? ZPR_ERR_NO_MEMORY : ZPR_OK);
                ++(code == ZPR_OK ? enough : tooSmall);
                if (code == ZPR_OK) ZPR_Deinit(&handle);
                ASSERT_TRUE(holdings() == before);
                ASSERT_TRUE(words[offset] == size - 16 && words[offset + 1] == 0) << size;
            }
            std::printf("%dx%d, delay %d: %zu arenas too small\n", width, height, delay, tooSmall);
        }
    }
    pretendProcessors(kRealProcessors);
}

TEST(Faults, WhateverIsSaidOfProcessorsThereAreThreads) {
    const std::pair<long, long> kCases[] = {{-1, 4}, {0, 1}, {1, 1}, {2, 2}, {64, 4}};
    for (const auto& [processors, threads] : kCases) {
        SCOPED_TRACE(processors);
        pretendProcessors(processors);
        const ZPR_Param param = makeParam(64, 64);
        const Holdings before = holdings();
        ZPR_Handle handle = nullptr;
        EXPECT_EQ(ZPR_Init(nullptr, &param, &handle), ZPR_OK);
        EXPECT_EQ(holdings()[kThreads] - before[kThreads], threads);
        ZPR_Deinit(&handle);
        WorkerPool* pool = WorkerPool::create(nullptr, 0);  // as many as there are
        EXPECT_EQ(pool->threadCount(), processors < 0 ? 16 : std::clamp(processors, 1L, 16L));
        WorkerPool::destroy(pool);
        EXPECT_TRUE(holdings() == before);
    }
    pretendProcessors(kRealProcessors);
}

}  // namespace
