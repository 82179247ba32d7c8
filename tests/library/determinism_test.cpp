// The same inputs give the same bytes, whatever renders them.
#include "support/fault_gate.h"
#include "support/hand_shake.h"
#include "support/kernel_levels.h"
#include "support/test_support.h"

using namespace zpr_test;
using namespace qlx::zpr_framehold;

namespace {

constexpr int kFrames = 10;

/// The sums of the frames of a short clip, by an instance of this kind.
std::vector<uint64_t> sumsOfClip(int delay, const RowKernels& kernels, unsigned threads) {
    ZPR_Param param = makeParam(390, 294);
    param.delayFrames = delay;
    const Instance instance(createWith(param, kernels, threads));
    const WorkerPool* pool = ZPR_Handle(instance)->pool;
    EXPECT_EQ(pool == nullptr ? 0 : pool->threadCount(), threads);
    HandShake hand(param.sensorMask, 10.0);
    TestRandom random(72);
    Frame input(390, 294), output(390, 294);
    input.fillRandom(random);
    std::vector<uint64_t> sums;
    for (int i = 0; i < kFrames + delay; ++i) {
        const double time = 1.0 + i / 30.0;
        hand.feedTo(time + 0.04, [&](const ZPR_SensorData& s) { ZPR_SetSensorData(instance, &s); });
        input.image.plane[0][i] ^= 0xff;
        const ZPR_Image* in = i < kFrames ? &input.image : nullptr;
        if (ZPR_Stabilize(instance, time, in, &output.image, nullptr) == ZPR_OK) {
            sums.push_back(checksum(output.image));
        }
    }
    EXPECT_EQ(sums.size(), size_t{kFrames});
    return sums;
}

TEST(Determinism, KernelsAndPoolsGiveTheSameBytes) {
    for (const int delay : {0, 4}) {
        const auto expected = sumsOfClip(delay, *availableKernels().front(), 0);
        EXPECT_NE(expected.front(), expected.back());
        pretendProcessors(64);
        for (const unsigned threads : {0u, 1u, 2u, 4u, 16u}) {
            for (const RowKernels* kernels : availableKernels()) {
                SCOPED_TRACE(testing::Message()
                             << kernels->name << ", delay " << delay << ", threads " << threads);
                for (int run = 0; run < 2; ++run) {
                    EXPECT_EQ(sumsOfClip(delay, *kernels, threads), expected);
                }
            }
        }
        pretendProcessors(kRealProcessors);
    }
}

}  // namespace
