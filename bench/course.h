#pragma once

#include "bench/scene.h"
#include "runtime/worker_pool.h"

#include <memory>
#include <vector>

namespace framehold::bench {

/// What all cases of a run share: frames, transforms and threads.
class Fixture {
public:
    /// `ring` source and as many target frames; 1 keeps them in the cache.
    Fixture(Size size, int threads, int ring);

    Size size() const { return size_; }
    int threads() const { return threads_; }
    int ring() const { return sources_.count(); }
    FrameRing& sources() { return sources_; }
    FrameRing& targets() { return targets_; }

    /// Of a shaken camera (up to 2 degrees) and of one held steadily (0.3 degrees).
    const std::vector<AffineTransform>& shaken() const { return shaken_; }
    const std::vector<AffineTransform>& steady() const { return steady_; }

    /// Null with one thread.
    qlx::zpr_framehold::WorkerPool* pool() { return pool_.get(); }

private:
    struct Stopper {
        void operator()(qlx::zpr_framehold::WorkerPool* pool) const {
            qlx::zpr_framehold::WorkerPool::destroy(pool);
        }
    };

    Size size_;
    int threads_;
    FrameRing sources_;
    FrameRing targets_;
    std::vector<AffineTransform> shaken_;
    std::vector<AffineTransform> steady_;
    std::unique_ptr<qlx::zpr_framehold::WorkerPool, Stopper> pool_;
};

}  // namespace framehold::bench
