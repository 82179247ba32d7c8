#pragma once

#include "zpr_framehold.h"

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

namespace framehold {

/// Kinds of samples: each has two types.
enum class SampleKind { kGravity, kRate, kOrientation };
inline SampleKind kindOf(int type) { return static_cast<SampleKind>((type - 1) / 2); }

/// Motion samples on their way from the threads that bring them to the one that renders frames.
/// Samples that were taken lately are kept, so that a new instance of the library can have them.
class MotionQueue {
public:
    /// Why a wait for samples ended.
    enum class Wait {
        kReady,     // they are there, or no more will come
        kTimedOut,  // the sensors are late
        kFlushing,
    };

    static constexpr size_t kMostWaiting = 1 << 16;  // samples not yet taken
    static constexpr double kKept = 2.0;             // seconds that taken samples are kept

    /// Replaces all by a whole log, in order of time: nothing is waited for or dropped.
    void setLog(std::vector<ZPR_SensorData> samples);

    /// Adds a sample in order of time; orientations get the sign of the one before. Returns false for
    /// one that is dropped: not finite, or not after one of its kind that was taken.
    bool push(ZPR_SensorData sample);

    /// Waits until there is room for another sample; false if that was ended, see setInputFlushing.
    bool waitForRoom();
    /// Ends waits for room, and lets none begin, until it is set to false.
    void setInputFlushing(bool isFlushing);

    /// Waits until motion up to `time`, and gravity where it is asked for, is there. A wait that was in
    /// vain is not repeated before another sample has come.
    Wait waitFor(double time, bool wantsGravity, std::chrono::nanoseconds longest);

    /// Gives `take` all samples up to the first one that is not before `time`.
    template <class Take>
    void takeUpTo(double time, const Take& take) {
        const std::lock_guard<std::mutex> lock(mutex_);
        while (next_ < samples_.size() && (samples_[next_].timestamp < time || reached_ < time)) {
            take(samples_[next_]);
            taken();
        }
        forget();
    }

    /// Lets the samples that are kept be taken again.
    void rewind();
    /// Forgets all samples.
    void clear();
    /// Forgets all samples unless they are a log.
    void clearLive();
    /// Ends waits for samples, and lets none begin, until it is set to false.
    void setFlushing(bool isFlushing);
    /// Says that no more samples will come, or that they will again.
    void setEnded(bool hasEnded);

    /// Time of the first sample that will be taken.
    std::optional<double> firstTime() const;
    /// True if gravity is among the samples that are kept or wait.
    bool hasGravity() const;
    /// Gravity that came last, if any did.
    std::optional<ZPR_SensorData> latestGravity() const;
    /// True if a sample of a kind has come.
    bool holds(SampleKind kind) const;
    /// Rates or orientations per second of sensor time, measured over a second; 0 before.
    double samplesPerSecond() const;

private:
    static constexpr size_t kKinds = 3;
    static size_t indexOf(int type) { return static_cast<size_t>(kindOf(type)); }

    void taken();
    void forget();
    void forgetAll();
    void measureRate(double time);
    bool isThere(double time, bool wantsGravity) const;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<ZPR_SensorData> samples_;  // taken ones first
    size_t next_ = 0;                     // the first one not taken
    double reached_ = -kNever;            // time of the one taken last
    double newestMotion_ = -kNever;
    std::array<double, kKinds> takenUpTo_{-kNever, -kNever, -kNever};
    std::array<bool, kKinds> hasKind_{};
    std::optional<ZPR_SensorData> gravity_;
    std::optional<ZPR_SensorData> orientation_;  // pushed last
    double rateStart_ = -kNever;
    int rateCount_ = 0;
    double rate_ = 0.0;
    bool isLog_ = false;
    bool hasEnded_ = false;
    bool isFlushing_ = false;
    bool isInputFlushing_ = false;
    bool isStalled_ = false;

    static constexpr double kNever = 1e300;
};

}  // namespace framehold
