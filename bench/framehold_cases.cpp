#include "bench/cases.h"
#include "support/kernel_levels.h"
#include "support/mesh_correction.h"
#include "warp/block_warper.h"

#include <cstring>
#include <deque>
#include <memory>
#include <stdexcept>

namespace framehold::bench {

namespace fh = qlx::zpr_framehold;

namespace {

struct CopyTask {
    uint8_t* to;
    const uint8_t* from;
    size_t bytes;

    static void run(void* argument) {
        const auto& task = *static_cast<CopyTask*>(argument);
        std::memcpy(task.to, task.from, task.bytes);
    }
};

void copyFrame(Fixture& fixture, int frame) {
    uint8_t* to = fixture.targets().at(frame).bytes.data();
    const uint8_t* from = fixture.sources().at(frame).bytes.data();
    const size_t bytes = fixture.targets().at(frame).bytes.size();
    const auto count = static_cast<size_t>(fixture.threads());
    CopyTask tasks[fh::WorkerPool::kMaxThreads];
    int ids[fh::WorkerPool::kMaxThreads];
    for (size_t i = 0; i < count; ++i) {
        const size_t begin = bytes / count * i;
        const size_t end = i + 1 == count ? bytes : bytes / count * (i + 1);
        tasks[i] = {to + begin, from + begin, end - begin};
        if (i + 1 < count) {
            ids[i] = fh::WorkerPool::submit(fixture.pool(), CopyTask::run, &tasks[i]);
        } else {
            CopyTask::run(&tasks[i]);
        }
    }
    for (size_t i = 0; i + 1 < count; ++i) fh::WorkerPool::wait(fixture.pool(), ids[i]);
}

struct WarperSetup {
    WarperSetup(Fixture& fixture, const std::vector<AffineTransform>& transforms,
                const fh::RowKernels& kernels)
        : warper(fixture.size().width, fixture.size().height, fixture.size().width,
                 fixture.size().height, ZPR_FORMAT_SEMIPLANAR_1, nullptr, fixture.pool(), kernels) {
        if (warper.status() != ZPR_OK) throw std::runtime_error("no memory for a warper");
        for (const AffineTransform& transform : transforms) {
            corrections.emplace_back(fixture.size().width, fixture.size().height,
                                     [&](int32_t x, int32_t y) {
                                         const Point p = transform.sourceOf(x, y);
                                         return fh::MeshPoint{p.x, p.y};
                                     });
        }
    }

    fh::BlockWarper warper;
    std::deque<zpr_test::MeshCorrection> corrections;
};

}  // namespace

Case makeCopy(Fixture& fixture) {
    return {kCopyName, [&fixture](int frame) { copyFrame(fixture, frame); }, nullptr};
}

Case makeWarper(Fixture& fixture, const std::string& name,
                const std::vector<AffineTransform>& transforms, const fh::RowKernels& kernels) {
    const auto setup = std::make_shared<WarperSetup>(fixture, transforms, kernels);
    return {name,
            [&fixture, setup](int frame) {
                const auto i = static_cast<size_t>(frame) % setup->corrections.size();
                setup->warper.warp(fixture.sources().at(frame).image,
                                   fixture.targets().at(frame).image, setup->corrections[i]);
            },
            [&fixture](int frame) { return fixture.targets().at(frame).image.plane[0]; }};
}

void addKernelCases(Fixture& fixture, std::vector<Case>& out) {
    for (const fh::RowKernels* kernels : zpr_test::availableKernels()) {
        const std::string name = std::string("Framehold ") + kernels->name;
        out.push_back(makeWarper(fixture, name, fixture.shaken(), *kernels));
        out.push_back(makeWarper(fixture, name + " (steady hand)", fixture.steady(), *kernels));
        out.back().luma = nullptr;  // not the transforms that the others render
    }
}

}  // namespace framehold::bench
