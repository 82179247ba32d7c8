#include "bench/contenders.h"
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

void copyFrame(Course& course, int frame) {
    uint8_t* to = course.targets().at(frame).bytes.data();
    const uint8_t* from = course.sources().at(frame).bytes.data();
    const size_t bytes = course.targets().at(frame).bytes.size();
    const auto count = static_cast<size_t>(course.threads());
    CopyTask tasks[fh::WorkerPool::kMaxThreads];
    int ids[fh::WorkerPool::kMaxThreads];
    for (size_t i = 0; i < count; ++i) {
        const size_t begin = bytes / count * i;
        const size_t end = i + 1 == count ? bytes : bytes / count * (i + 1);
        tasks[i] = {to + begin, from + begin, end - begin};
        if (i + 1 < count) {
            ids[i] = fh::WorkerPool::submit(course.pool(), CopyTask::run, &tasks[i]);
        } else {
            CopyTask::run(&tasks[i]);
        }
    }
    for (size_t i = 0; i + 1 < count; ++i) fh::WorkerPool::wait(course.pool(), ids[i]);
}

struct WarperSetup {
    WarperSetup(Course& course, const std::vector<Motion>& motions, const fh::RowKernels& kernels)
        : warper(course.size().width, course.size().height, course.size().width,
                 course.size().height, ZPR_FORMAT_SEMIPLANAR_1, nullptr, course.pool(), kernels) {
        if (warper.status() != ZPR_OK) throw std::runtime_error("no memory for a warper");
        for (const Motion& motion : motions) {
            corrections.emplace_back(course.size().width, course.size().height,
                                     [&](int32_t x, int32_t y) {
                                         const Point p = motion.sourceOf(x, y);
                                         return fh::MeshPoint{p.x, p.y};
                                     });
        }
    }

    fh::BlockWarper warper;
    std::deque<zpr_test::MeshCorrection> corrections;
};

}  // namespace

Contender makeCopy(Course& course) {
    return {kCopyName, [&course](int frame) { copyFrame(course, frame); }, nullptr};
}

Contender makeWarper(Course& course, const std::string& name, const std::vector<Motion>& motions,
                     const fh::RowKernels& kernels) {
    const auto setup = std::make_shared<WarperSetup>(course, motions, kernels);
    return {name,
            [&course, setup](int frame) {
                const auto i = static_cast<size_t>(frame) % setup->corrections.size();
                setup->warper.warp(course.sources().at(frame).image,
                                   course.targets().at(frame).image, setup->corrections[i]);
            },
            [&course](int frame) { return course.targets().at(frame).image.plane[0]; }};
}

void addKernelContenders(Course& course, std::vector<Contender>& out) {
    for (const fh::KernelLevel level : {fh::KernelLevel::kScalar, fh::KernelLevel::kNeon,
                                        fh::KernelLevel::kSse41, fh::KernelLevel::kAvx2}) {
        const fh::RowKernels* kernels = fh::findRowKernels(level);
        if (kernels == nullptr) continue;
        const std::string name = std::string("Framehold ") + kernels->name;
        out.push_back(makeWarper(course, name, course.shaken(), *kernels));
        out.push_back(makeWarper(course, name + " (steady hand)", course.steady(), *kernels));
        out.back().luma = nullptr;  // not the motion that the others render
    }
}

}  // namespace framehold::bench
