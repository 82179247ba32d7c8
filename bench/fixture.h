#pragma once

#include "runtime/worker_pool.h"
#include "support/frame.h"
#include "zpr_framehold.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

namespace framehold::bench {

struct Size {
    int32_t width;
    int32_t height;

    int64_t pixels() const { return int64_t{width} * height; }
};

/// Parameters for frames of one size in and out, with rates and gravity.
ZPR_Param makeParam(Size size, int delayFrames);

/// Fills a frame with a smooth picture that `phase` moves: a wrong position shows in every pixel.
void drawWaves(zpr_test::Frame& frame, double phase);

/// Frames used in turn, each with another picture.
class FrameRing {
public:
    FrameRing(Size size, int count);

    zpr_test::Frame& at(int frame) { return frames_[static_cast<size_t>(frame) % frames_.size()]; }
    int count() const { return static_cast<int>(frames_.size()); }

private:
    std::deque<zpr_test::Frame> frames_;
};

struct Point {
    double x;
    double y;
};

/// Source positions of the pixels of an output frame: a rotation and zoom about the centre, a shift
/// that grows from row to row (rolling shutter), and a shift.
struct AffineTransform {
    double angle;  // radians
    double zoom;   // source pixels per output pixel
    double shear;  // source pixels per row
    Point shift;
    Point centre;

    Point sourceOf(double x, double y) const;
};

/// Transforms of random rotation up to `maxDegrees` that show 7 % less than the source has and leave
/// every tap inside it. The first one has no shear, so that every case can render it.
std::vector<AffineTransform> makeTransforms(Size size, double maxDegrees, int count);

/// Frames, transforms and threads that all cases of a run share.
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
    using Pool = qlx::zpr_framehold::WorkerPool;

    Size size_;
    int threads_;
    FrameRing sources_;
    FrameRing targets_;
    std::vector<AffineTransform> shaken_;
    std::vector<AffineTransform> steady_;
    std::unique_ptr<Pool, decltype(&Pool::destroy)> pool_{nullptr, Pool::destroy};
};

}  // namespace framehold::bench
