#include "bench/course.h"

#include <stdexcept>

namespace framehold::bench {

namespace fh = qlx::zpr_framehold;

namespace {

constexpr int kMotions = 16;

}  // namespace

Course::Course(Size size, int threads, int ring)
    : size_(size), threads_(threads), sources_(size, ring), targets_(size, ring),
      shaken_(makeMotions(size, 2.0, kMotions)), steady_(makeMotions(size, 0.3, kMotions)) {
    if (threads > 1) {
        pool_.reset(fh::WorkerPool::create(nullptr, static_cast<unsigned>(threads)));
        if (pool_ == nullptr) throw std::runtime_error("no memory or threads for a pool");
    }
}

}  // namespace framehold::bench
