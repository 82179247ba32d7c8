#include "library/reference_renderer.h"
#include "support/kernel_levels.h"
#include "support/mesh_correction.h"
#include "support/test_support.h"
#include "warp/block_warper.h"

#include <algorithm>
#include <limits>
#include <memory>

using namespace qlx::zpr_framehold;
using namespace zpr_test;

namespace {

void expectSame(const Frame& warped, const Frame& expected) {
    const auto a =
        std::mismatch(warped.bytes.begin(), warped.bytes.end(), expected.bytes.begin()).first;
    if (a == warped.bytes.end()) return;
    const ZPR_Image& i = warped.image;
    const int plane = &*a < i.plane[1] ? 0 : 1;
    const auto offset = &*a - i.plane[plane];
    FAIL() << "plane " << plane << " row " << offset / i.pitch[plane] << " column "
           << offset % i.pitch[plane] << ": " << int{*a} << " where "
           << int{expected.bytes[static_cast<size_t>(a - warped.bytes.begin())]} << " is expected";
}

/// Warpers with the kernels of every level and the reference renderer for the same sizes, fed the
/// same meshes and targets.
class Comparison {
public:
    Comparison(int inWidth, int inHeight, int outWidth, int outHeight, WorkerPool* pool = nullptr)
        : outWidth_(outWidth), outHeight_(outHeight),
          source_(inWidth, inHeight, inWidth + 5, inWidth + 3),
          reference_(inWidth, inHeight, outWidth, outHeight) {
        for (const RowKernels* kernels : availableKernels()) {
            warpers_.emplace_back(
                kernels->name,
                std::make_unique<BlockWarper>(inWidth, inHeight, outWidth, outHeight,
                                              ZPR_FORMAT_SEMIPLANAR_1, nullptr, pool, *kernels));
            EXPECT_EQ(warpers_.back().second->status(), ZPR_OK);
        }
    }

    /// Renders `rows` rows of random pixels, each mesh node at `position` of its output pixel.
    template <class Position>
    void check(Random& random, Position position, int rows, int pad = 0) {
        std::vector<ReferencePoint> nodes;
        const MeshCorrection correction(outWidth_, outHeight_, [&](int x, int y) {
            nodes.push_back(position(x, y));
            return MeshPoint{nodes.back().x, nodes.back().y};
        });
        Frame warped(outWidth_, rows, outWidth_ + pad, outWidth_ + 3 * pad);
        Frame expected(outWidth_, rows, outWidth_ + pad, outWidth_ + 3 * pad);
        source_.fillRandom(random);
        expected.fillRandom(random);
        const std::vector<uint8_t> before = expected.bytes;
        reference_.render(source_.image, expected.image, nodes);
        for (const auto& [level, warper] : warpers_) {
            SCOPED_TRACE(level);
            std::copy(before.begin(), before.end(), warped.bytes.begin());
            EXPECT_TRUE(warper->warp(source_.image, warped.image, correction));
            expectSame(warped, expected);
        }
    }

private:
    int outWidth_, outHeight_;
    Frame source_;
    std::vector<std::pair<const char*, std::unique_ptr<BlockWarper>>> warpers_;
    ReferenceRenderer reference_;
};

/// One kind of random mesh: how far the picture may be moved, scaled and sheared, how far each node
/// strays from that, and how often it is somewhere else altogether.
struct MeshKind {
    const char* name;
    double shift, scaleLow, scaleHigh, shear, stray, lost;
};

TEST(BlockWarper, RendersRandomMeshesLikeTheReference) {
    const MeshKind kKinds[] = {
        {"small shifts", 3, 1, 1, 0, 0.2, 0},       {"hand shake", 20, 0.75, 0.9, 0.05, 1, 0},
        {"at the border", 60, 0.9, 1.1, 0.1, 2, 0}, {"mostly outside", 400, 0.5, 2, 0.3, 5, 0},
        {"magnified", 10, 0.05, 0.3, 0.2, 1, 0},    {"shrunk", 10, 2, 6, 0.3, 3, 0},
        {"scrambled", 100, 0.5, 1.5, 1, 150, 0},    {"far away", 9000, 0.5, 1.5, 0.2, 10, 0},
        {"nonsense", 20, 0.8, 1, 0, 1, 0.3},
    };
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    const double kLost[] = {1e300,       -1e300,       1e9,          -1e9,      134217727.9,
                            134217728.0, -134217728.1, std::nan(""), kInfinity, -kInfinity};
    const int kSizes[][4] = {{256, 256, 256, 256}, {300, 200, 300, 200}, {160, 420, 130, 390},
                             {640, 66, 514, 66},   {128, 130, 128, 130}, {34, 34, 18, 22},
                             {2, 2, 2, 2},         {270, 150, 262, 146}};
    TestRandom random(41);
    for (const auto& s : kSizes) {
        // The spans of blocks that fail are those of the frames before, so one comparison is
        // used for all.
        Comparison comparison(s[0], s[1], s[2], s[3]);
        for (const MeshKind& kind : kKinds) {
            for (int repeat = 0; repeat < 5; ++repeat) {
                SCOPED_TRACE(testing::Message() << s[2] << 'x' << s[3] << ' ' << kind.name);
                const auto draw = [&](double size) { return random.uniform(-size, size); };
                const double scale = random.uniform(kind.scaleLow, kind.scaleHigh);
                const double shearX = draw(kind.shear), shearY = draw(kind.shear);
                const double shiftX = draw(kind.shift), shiftY = draw(kind.shift);
                const auto stray = [&](double v) {
                    return random.uniform(0, 1) < kind.lost ? kLost[random.integer(0, 9)]
                                                            : v + draw(kind.stray);
                };
                const auto position = [&](int x, int y) -> ReferencePoint {
                    return {stray(shiftX + scale * x + shearX * y),
                            stray(shiftY + scale * y + shearY * x)};
                };
                // Also fewer and more rows than configured.
                const int rows = repeat < 3 ? s[3] : 2 * random.integer(1, (s[3] + 127) / 128 * 64);
                comparison.check(random, position, rows, random.integer(0, 17));
            }
        }
    }
}

TEST(BlockWarper, ManyBlockRowsThroughAPool) {
    // Above 42 block rows there are more tasks than the pool's queue and ring can hold.
    TestRandom random(45);
    for (const unsigned threads : {1u, 2u, 3u, 4u}) {
        WorkerPool* pool = WorkerPool::create(nullptr, threads);
        for (const int rows : {1, 3, 4, 9, 42, 43, 44, 150}) {
            SCOPED_TRACE(testing::Message() << threads << " threads, " << rows << " block rows");
            const int height = 128 * rows - 6;
            const int width = rows <= 9 ? 392 : 16;
            Comparison comparison(width, height, width, height, pool);
            for (int frame = 0; frame < 3; ++frame) {
                const double shift = random.uniform(-3, 3);
                comparison.check(
                    random,
                    [&](int x, int y) {
                        return ReferencePoint{x + shift, y - shift};
                    },
                    height);
            }
        }
        WorkerPool::destroy(pool);
    }
}

TEST(BlockWarper, BusyPoolLeavesTheRowsToTheCaller) {
    TestRandom random(46);
    WorkerPool* pool = WorkerPool::create(nullptr, 1);
    // Tasks of another user hold the only thread and fill the queue.
    Gate gate;
    WorkerPool::submit(pool, Gate::pass, &gate);
    while (gate.running == 0) sched_yield();
    while (WorkerPool::submit(pool, Gate::pass, &gate) >= 0) {
    }
    Comparison comparison(64, 1024, 64, 1024, pool);
    comparison.check(
        random,
        [](int x, int y) {
            return ReferencePoint{x + 1.0, y + 1.0};
        },
        1024);
    gate.open = true;
    WorkerPool::destroy(pool);
}

TEST(BlockWarper, BandsBecomeTheirInverseInEachBlockRow) {
    // Two bands of the input, the upper one moved by (4, 0) into the output, the lower by (-6, 0).
    BlockWarper warper(256, 256, 256, 256, ZPR_FORMAT_SEMIPLANAR_1, nullptr, nullptr,
                       selectRowKernels());
    Frame source(256, 256), target(256, 256);
    for (int i = 0; i < 256 * 256; ++i) source.image.plane[0][i] = static_cast<uint8_t>(i);
    FrameCorrection bands;
    bands.resize(2);
    bands.writable()[0] = {1, 0, 0, 256, 128, {{1, 0, 4, 0, 1, 0, 0, 0, 1}}, nullptr};
    bands.writable()[1] = {1, 0, 128, 256, 128, {{1, 0, -6, 0, 1, 0, 0, 0, 1}}, nullptr};
    ASSERT_TRUE(warper.warp(source.image, target.image, bands));
    EXPECT_EQ(target.image.plane[0][256 * 60 + 100], 96);
    EXPECT_EQ(target.image.plane[0][256 * 200 + 100], 106);
}

TEST(BlockWarper, RefusesMalformedCorrections) {
    BlockWarper warper(256, 256, 256, 256, ZPR_FORMAT_SEMIPLANAR_1, nullptr, nullptr,
                       selectRowKernels());
    Frame frame(256, 256);
    SharedArray<MeshPoint> mesh;
    for (const auto& [records, nodes] :
         {std::pair{0u, 0u}, {1u, 0u}, {3u, 9u}, {1u, 8u}, {1u, 10u}}) {
        FrameCorrection correction;
        correction.resize(records);
        mesh.resize(nodes);
        if (records > 0) correction.writable()[0].mesh = &mesh;
        EXPECT_FALSE(warper.warp(frame.image, frame.image, correction)) << records << ' ' << nodes;
    }
}

}  // namespace
