#include "gstreamer/motion_queue.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

namespace framehold {

namespace {

bool isFinite(const ZPR_SensorData& sample) {
    return std::isfinite(sample.timestamp) &&
           std::all_of(std::begin(sample.value), std::end(sample.value),
                       [](double v) { return std::isfinite(v); });
}

/// The same orientation with the sign that is nearer to that of `before`.
void alignSign(ZPR_SensorData& sample, const ZPR_SensorData& before) {
    double dot = 0.0;
    for (int i = 0; i < 4; ++i) dot += sample.value[i] * before.value[i];
    if (dot >= 0.0) return;
    for (double& v : sample.value) v = -v;
}

}  // namespace

void MotionQueue::setLog(std::vector<ZPR_SensorData> samples) {
    clear();
    const std::lock_guard<std::mutex> lock(mutex_);
    samples_.assign(samples.begin(), samples.end());
    for (const ZPR_SensorData& sample : samples_) hasKind_[indexOf(sample.type)] = true;
    isLog_ = true;
}

bool MotionQueue::push(ZPR_SensorData sample) {
    if (sample.type < 1 || sample.type > 6 || !isFinite(sample)) return false;
    const std::lock_guard<std::mutex> lock(mutex_);
    const size_t kind = indexOf(sample.type);
    if (isLog_ || sample.timestamp <= takenUpTo_[kind]) return false;
    if (kindOf(sample.type) == SampleKind::kOrientation) {
        if (orientation_) alignSign(sample, *orientation_);
        orientation_ = sample;
    }
    if (kindOf(sample.type) == SampleKind::kGravity) gravity_ = sample;
    if (samples_.size() - next_ >= kMostWaiting) {
        taken();
        forget();
    }
    const auto place = std::upper_bound(
        samples_.begin() + static_cast<ptrdiff_t>(next_), samples_.end(), sample.timestamp,
        [](double time, const ZPR_SensorData& other) { return time < other.timestamp; });
    samples_.insert(place, sample);
    hasKind_[kind] = true;
    if (kindOf(sample.type) != SampleKind::kGravity) {
        newestMotion_ = std::max(newestMotion_, sample.timestamp);
        measureRate(sample.timestamp);
        isStalled_ = false;
    }
    changed_.notify_all();
    return true;
}

void MotionQueue::measureRate(double time) {
    ++rateCount_;
    if (time < rateStart_ || time > rateStart_ + 2.0) {
        rateStart_ = time;
        rateCount_ = 0;
    } else if (time >= rateStart_ + 1.0) {
        rate_ = rateCount_ / (time - rateStart_);
        rateStart_ = time;
        rateCount_ = 0;
    }
}

bool MotionQueue::waitForRoom() {
    constexpr size_t kMany = kMostWaiting / 16;
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return isInputFlushing_ || samples_.size() - next_ < kMany; });
    return !isInputFlushing_;
}

void MotionQueue::setInputFlushing(bool isFlushing) {
    const std::lock_guard<std::mutex> lock(mutex_);
    isInputFlushing_ = isFlushing;
    changed_.notify_all();
}

bool MotionQueue::isThere(double time, bool wantsGravity) const {
    const bool isFused = !hasKind_[static_cast<size_t>(SampleKind::kOrientation)];
    return newestMotion_ >= time && (!wantsGravity || !isFused || gravity_);
}

MotionQueue::Wait MotionQueue::waitFor(double time, bool wantsGravity,
                                       std::chrono::nanoseconds longest) {
    std::unique_lock<std::mutex> lock(mutex_);
    const auto isReady = [&] {
        return isLog_ || hasEnded_ || isFlushing_ || isThere(time, wantsGravity);
    };
    if (!isStalled_) isStalled_ = !changed_.wait_for(lock, longest, isReady);
    if (isFlushing_) return Wait::kFlushing;
    return isReady() ? Wait::kReady : Wait::kTimedOut;
}

void MotionQueue::taken() {
    const ZPR_SensorData& sample = samples_[next_++];
    reached_ = sample.timestamp;
    takenUpTo_[indexOf(sample.type)] = sample.timestamp;
}

void MotionQueue::forget() {
    while (!isLog_ && next_ > 0 && samples_.front().timestamp < reached_ - kKept) {
        samples_.pop_front();
        --next_;
    }
    changed_.notify_all();
}

void MotionQueue::rewind() {
    const std::lock_guard<std::mutex> lock(mutex_);
    next_ = 0;
    reached_ = -kNever;
    takenUpTo_.fill(-kNever);
    if (isLog_) return;
    // Kinds that come with different delays are taken in other orders than that of time.
    std::stable_sort(samples_.begin(), samples_.end(),
                     [](const auto& a, const auto& b) { return a.timestamp < b.timestamp; });
}

void MotionQueue::clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    forgetAll();
}

void MotionQueue::clearLive() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!isLog_) forgetAll();
}

void MotionQueue::forgetAll() {
    samples_.clear();
    next_ = 0;
    reached_ = newestMotion_ = rateStart_ = -kNever;
    takenUpTo_.fill(-kNever);
    hasKind_.fill(false);
    gravity_.reset();
    orientation_.reset();
    rate_ = 0.0;
    isLog_ = isStalled_ = false;
    changed_.notify_all();
}

void MotionQueue::setFlushing(bool isFlushing) {
    const std::lock_guard<std::mutex> lock(mutex_);
    isFlushing_ = isFlushing;
    isStalled_ = false;
    changed_.notify_all();
}

void MotionQueue::setEnded(bool hasEnded) {
    const std::lock_guard<std::mutex> lock(mutex_);
    hasEnded_ = hasEnded;
    changed_.notify_all();
}

std::optional<double> MotionQueue::firstTime() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (next_ == samples_.size()) return std::nullopt;
    return samples_[next_].timestamp;
}

bool MotionQueue::hasGravity() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::any_of(samples_.begin(), samples_.end(), [](const ZPR_SensorData& sample) {
        return kindOf(sample.type) == SampleKind::kGravity;
    });
}

std::optional<ZPR_SensorData> MotionQueue::latestGravity() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return gravity_;
}

bool MotionQueue::holds(SampleKind kind) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return hasKind_[static_cast<size_t>(kind)];
}

double MotionQueue::samplesPerSecond() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return rate_;
}

}  // namespace framehold
