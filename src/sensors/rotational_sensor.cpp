#include "sensors/rotational_sensor.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qlx::zpr_framehold {

namespace {

/// Returns true if q can be inverted and normalised: its length is finite and not 0.
bool isUsable(const Quaternion& q) {
    const double n = q.squaredNorm();
    return std::isfinite(n) && n > 0.0;
}

double distanceBetween(const Quaternion& a, const Quaternion& b) {
    if (!a.isOfUnitLength() || !b.isOfUnitLength()) return std::numeric_limits<double>::infinity();
    return Quaternion(b.w - a.w, b.x - a.x, b.y - a.y, b.z - a.z).norm();
}

}  // namespace

RotationalSensor::RotationalSensor(int capacity) : capacity_(capacity) {
    if (capacity > 0) records_.resize(static_cast<size_t>(capacity));
}

void RotationalSensor::reset() {
    head_ = -1;
    sortedFrom_ = 0;
    if (capacity_ <= 0) records_.clear();
}

void RotationalSensor::write(const Quaternion& orientation, double timestamp) {
    Record record{orientation, timestamp, {}, 0.0};
    bool isSorted = true;
    if (!isEmpty()) {
        record.arc = arcBetween(newest().orientation, orientation);
        record.distance = distanceBetween(newest().orientation, orientation);
        isSorted = timestamp > newest().timestamp;
    }
    if (capacity_ <= 0) {
        records_.push_back(record);
        ++head_;
    } else {
        // Indices lower by the ring's length name the same records; so they stay small.
        if (head_ - capacity_ >= capacity_ - 1) {
            head_ -= capacity_;
            sortedFrom_ -= std::min(sortedFrom_, capacity_);
        }
        ++head_;
        const int32_t position = head_ >= capacity_ ? head_ - capacity_ : head_;
        records_[static_cast<size_t>(position)] = record;
    }
    if (!isSorted) sortedFrom_ = head_;
}

/// Returns true if the search would find the bracket that starts at `lo`: among records in order,
/// the one whose lower end is the last record not after t, or the outermost one.
bool RotationalSensor::isBracket(int32_t lo, double t) const {
    const int32_t first = oldest();
    return lo >= first && lo < head_ && (lo == first || !(t < at(lo).timestamp)) &&
           (lo + 1 == head_ || t < at(lo + 1).timestamp);
}

/// Tries the bracket found last and the next one first: most queries are for these.
RotationalSensor::Bracket RotationalSensor::bracket(double t) const {
    if (sortedFrom_ > oldest()) return searchBracket(t);
    if (!isBracket(lastLo_, t)) {
        lastLo_ = isBracket(lastLo_ + 1, t) ? lastLo_ + 1 : searchBracket(t).lo;
    }
    return {lastLo_, std::min(lastLo_ + 1, head_)};
}

RotationalSensor::Bracket RotationalSensor::searchBracket(double t) const {
    const double newestTime = newest().timestamp;
    int32_t lo = oldest();
    int32_t hi = head_;
    while (hi - 1 > lo) {
        const int32_t mid = lo + (hi - lo) / 2;
        const double midTime = at(mid).timestamp;
        // The comparison with the newest time keeps a record that is not older than the newest
        // one (timestamps that went backwards) from becoming the upper end.
        if (t < midTime && midTime < newestTime) {
            hi = mid;
        } else {
            lo = mid;
        }
    }
    return {lo, hi};
}

bool RotationalSensor::getOrientation(double t, Quaternion& out) const {
    if (isEmpty() || !(t <= newest().timestamp)) return false;
    const Bracket pair = bracket(t);
    const Record& lo = at(pair.lo);
    const Record& hi = at(pair.hi);
    if (t < lo.timestamp) return false;
    Quaternion q = lo.orientation;
    if (pair.lo != pair.hi) {
        q = slerp(q, hi.orientation, hi.arc, (t - lo.timestamp) / (hi.timestamp - lo.timestamp));
    }
    if (!isUsable(q)) return false;
    out = q;
    return true;
}

bool RotationalSensor::getOrientations(const std::vector<double>& times,
                                       std::vector<Quaternion>& out) const {
    out.clear();
    if (times.empty() || isEmpty() || !(times[0] <= newest().timestamp)) return false;
    int32_t j = bracket(times[0]).lo;
    size_t first = 0;
    while (first < times.size() && !(times[first] >= at(j).timestamp)) ++first;
    if (first == times.size()) return false;

    std::vector<Quaternion> answers(times.size());
    Quaternion q = at(j).orientation;
    for (size_t i = first; i < times.size(); ++i) {
        if (j < head_) {
            const Record& lo = at(j);
            const Record& hi = at(j + 1);
            q = slerp(lo.orientation, hi.orientation, hi.arc,
                      (times[i] - lo.timestamp) / (hi.timestamp - lo.timestamp));
            // Deliberate: by one record at most; the times are meant to be denser than the records.
            if (i + 1 < times.size() && times[i + 1] > hi.timestamp) ++j;
        }
        if (!isUsable(q)) return false;
        answers[i] = q;
    }
    for (size_t i = 0; i < first; ++i) answers[i] = answers[first];
    out = std::move(answers);
    return true;
}

bool RotationalSensor::getRelativeRotation(double t1, double t2, Quaternion& out) const {
    Quaternion q1;
    Quaternion q2;
    if (!getOrientation(t1, q1) || !getOrientation(t2, q2)) return false;
    out = q1.inverse() * q2;
    return true;
}

bool RotationalSensor::getRotationMatrix(double t, double m[9]) const {
    Quaternion q;
    if (!getOrientation(t, q)) return false;
    q.toRotationMatrix(m);
    return true;
}

bool RotationalSensor::getRelativeRotationMatrix(double t1, double t2, double m[9]) const {
    Quaternion q;
    if (!getRelativeRotation(t1, t2, q)) return false;
    q.toRotationMatrix(m);
    return true;
}

}  // namespace qlx::zpr_framehold
