#pragma once

#include "math/quaternion.h"
#include "zpr_framehold.h"

#include <cstdint>
#include <vector>

namespace qlx::zpr_framehold {

/// Receiver of motion samples.
class Sensor {
public:
    virtual ~Sensor() = default;
    Sensor(const Sensor&) = delete;
    Sensor& operator=(const Sensor&) = delete;

    /// Takes a sample. Always returns true, used or not.
    virtual bool addSample(const ZPR_SensorData& sample) = 0;

    /// Discards the samples taken so far.
    virtual void reset() = 0;

protected:
    Sensor() = default;
};

/// Ring of timestamped orientations, with interpolation between them.
///
/// Queries return false, and leave their output alone, when the time lies outside the buffered
/// span or the answer would not be a usable rotation (not finite, or of no length).
class RotationalSensor : public Sensor {
public:
    void reset() override;

    virtual bool getRotationMatrix(double t, double m[9]) const;
    virtual bool getOrientation(double t, Quaternion& out) const;

    /// Finds the orientations at ascending `times`, dense against the sensor rate: from one time to
    /// the next the search moves on by at most one record. Times before the buffered span get the
    /// first answer, times after it the last one. On failure `out` is empty.
    virtual bool getOrientations(const std::vector<double>& times,
                                 std::vector<Quaternion>& out) const;

    /// Finds the rotation from the device at t1 to the device at t2, in the device frame of t1.
    virtual bool getRelativeRotationMatrix(double t1, double t2, double m[9]) const;
    virtual bool getRelativeRotation(double t1, double t2, Quaternion& out) const;

    /// Orientation at one time.
    struct Record {
        Quaternion orientation;
        double timestamp;
        Arc arc;          // from the record before
        double distance;  // from it, as quaternions; infinite unless both are of unit length
    };

    /// Applies test(record) to the records between which the answers from `from` to `to` are
    /// interpolated, in order, until it returns false for one. Returns true if it does for none;
    /// false, without applying it, if the span is not buffered, records are out of order, or there
    /// is only one.
    template <class Test>
    bool allRecords(double from, double to, Test&& test) const {
        if (head_ < 1 || sortedFrom_ > oldest() || !(at(oldest()).timestamp <= from) ||
            !(from <= to) || !(to <= newest().timestamp)) {
            return false;
        }
        const Record* record = &at(bracket(from).lo);
        const Record* last = &newest();
        const Record* end = records_.data() + records_.size();
        while (test(*record)) {
            if (record == last || record->timestamp > to) return true;
            if (++record == end) record = records_.data();
        }
        return false;
    }

protected:
    /// capacity: number of records kept; all are if it is not positive.
    explicit RotationalSensor(int capacity);

    void write(const Quaternion& orientation, double timestamp);
    bool isEmpty() const { return head_ < 0; }
    const Record& newest() const { return at(head_); }

private:
    /// Two neighbouring records that bracket a time; the same one when there is only one.
    struct Bracket {
        int32_t lo;
        int32_t hi;
    };

    int32_t oldest() const {
        return capacity_ > 0 && head_ >= capacity_ ? head_ - capacity_ + 1 : 0;
    }
    const Record& at(int32_t index) const {
        const int32_t position = capacity_ > 0 && index >= capacity_ ? index - capacity_ : index;
        return records_[static_cast<size_t>(position)];
    }
    Bracket bracket(double t) const;
    Bracket searchBracket(double t) const;
    bool isBracket(int32_t lo, double t) const;

    int32_t capacity_;
    // Index of the newest record, -1 while empty. Indices count records; once the ring is full,
    // record i lies at i or i - capacity, and head_ stays below 2 * capacity.
    int32_t head_ = -1;
    int32_t sortedFrom_ = 0;  // from this index on, each record is later than the one before
    std::vector<Record> records_;
    mutable int32_t lastLo_ = 0;  // where to search first: lower end of the bracket found last
};

/// Orientations from samples that are orientations (types 5 and 6), recorded as they come: neither
/// normalised nor checked for order.
class RotationVectorSensor final : public RotationalSensor {
public:
    explicit RotationVectorSensor(int capacity) : RotationalSensor(capacity) {}

    bool addSample(const ZPR_SensorData& sample) override {
        const double* v = sample.value;
        write(Quaternion(v[3], v[0], v[1], v[2]), sample.timestamp);
        return true;
    }
};

}  // namespace qlx::zpr_framehold
