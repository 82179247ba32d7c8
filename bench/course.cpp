#include "bench/course.h"

#include <stdexcept>

namespace framehold::bench {

namespace fh = qlx::zpr_framehold;

namespace {

constexpr int kTransforms = 16;

}  // namespace

Fixture::Fixture(Size size, int threads, int ring)
    : size_(size), threads_(threads), sources_(size, ring), targets_(size, ring),
      shaken_(makeTransforms(size, 2.0, kTransforms)),
      steady_(makeTransforms(size, 0.3, kTransforms)) {
    if (threads > 1) {
        pool_.reset(fh::WorkerPool::create(nullptr, static_cast<unsigned>(threads)));
        if (pool_ == nullptr) throw std::runtime_error("no memory or threads for a pool");
    }
}

}  // namespace framehold::bench
