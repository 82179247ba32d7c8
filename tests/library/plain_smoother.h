#pragma once

#include "sensors/fusion.h"
#include "smoothing/frame_correction.h"
#include "support/test_support.h"

#include <algorithm>
#include <deque>

namespace zpr_test {

using qlx::zpr_framehold::Matrix3;
using qlx::zpr_framehold::MeshPoint;
using qlx::zpr_framehold::Vector3;

/// The orientation records and what is read from them, by the plain formulas.
class PlainSensors {
public:
    PlainSensors(int mask, uint32_t capacity) : mask_(mask), capacity_(capacity) {}

    void addSample(const ZPR_SensorData& s) {
        for (const double v : {s.timestamp, s.value[0], s.value[1], s.value[2], s.value[3]}) {
            if (!std::isfinite(v)) return;
        }
        const bool ready = (mask_ & 0x30) != 0;
        if (ready && s.type == ((mask_ & 0x10) != 0 ? 5 : 6)) {
            write(Quaternion(s.value[3], s.value[0], s.value[1], s.value[2]), s.timestamp);
        } else if (!ready && s.type <= 2) {
            fusion_.addGravity(s.value, s.timestamp);
        } else if (!ready && s.type <= 4 && fusion_.addRate(s.value, s.timestamp)) {
            if (fusion_.isReady()) write(fusion_.getOrientation(), s.timestamp);
        }
    }

    void reset() { records_.clear(); }

    bool orientationAt(double t, Quaternion& out) const {
        if (records_.empty() || !(t <= records_.back().time)) return false;
        size_t lo = 0, hi = records_.size() - 1;
        while (hi - lo > 1) {
            const size_t mid = lo + (hi - lo) / 2;
            const double time = records_[mid].time;
            (t < time && time < records_.back().time ? hi : lo) = mid;
        }
        const Record &a = records_[lo], &b = records_[hi];
        if (t < a.time) return false;
        const Quaternion q =
            lo == hi ? a.q : interpolated(a.q, b.q, (t - a.time) / (b.time - a.time));
        if (!(q.norm() > 0.0) || !std::isfinite(q.norm())) return false;
        out = q;
        return true;
    }

    static Quaternion interpolated(const Quaternion& a, const Quaternion& b, double t) {
        const double theta = std::acos(a.w * b.w + a.x * b.x + a.y * b.y + a.z * b.z);
        const double s = std::sin(theta);
        if (!(s > 0.0)) return a;
        const double ka = std::sin((1.0 - t) * theta) / s, kb = std::sin(t * theta) / s;
        return {ka * a.w + kb * b.w, ka * a.x + kb * b.x, ka * a.y + kb * b.y, ka * a.z + kb * b.z};
    }

private:
    struct Record {
        Quaternion q;
        double time;
    };

    void write(const Quaternion& q, double time) {
        records_.push_back({q, time});
        if (records_.size() > capacity_) records_.pop_front();
    }

    int mask_;
    uint32_t capacity_;
    std::deque<Record> records_;
    qlx::zpr_framehold::Complementary fusion_{1, 0};
};

/// Number of frames that took each branch.
struct Branches {
    int corrected = 0, lost = 0, caughtUp = 0, pulled = 0, lookedAhead = 0, cutMesh = 0;
    int atOnce = 0;    // all rows are read out at the frame's time
    int switched = 0;  // to that or from it since the frame corrected before
    int carried = 0;   // one by one as a coming frame's rows are, without data for its own readout
    int resetAtOnce = 0;
};

/// The smoothing of frames by the plain formulas: everything is computed where it is needed, as
/// often as it is needed. Results are the same to the last bit.
class PlainSmoother {
public:
    /// param: with the view as a focal length.
    PlainSmoother(const ZPR_Param& param, const PlainSensors& sensors, Branches& branches)
        : param_(param), sensors_(sensors), branches_(branches), width_(param.outputImage.width),
          height_(param.outputImage.height), ring_(delay() + 1u) {
        setLevel(param.smoothingLevel);
        const int inWidth = param.inputImage.width, inHeight = param.inputImage.height;
        const double f = param.fieldOfView, cx = inWidth / 2, cy = inHeight / 2;
        camera_ = {{0.0, -f, -cx, -f, 0.0, -cy, 0.0, 0.0, -1.0}};
        const double sx = width_ * 100.0 / (inWidth * param.cropPercent);
        const double sy = height_ * 100.0 / (inHeight * param.cropPercent);
        crop_ = {{sx, 0.0, -((inWidth - width_) / 2) + width_ * 0.5 * (1.0 - sx), 0.0, sy,
                  -((inHeight - height_) / 2) + height_ * 0.5 * (1.0 - sy), 0.0, 0.0, 1.0}};
    }

    void setLevel(int level) {
        alpha_ = level < 1 ? 0.8 : 0.8 + (std::min(level, 10) - 1) * 0.019999999999999993;
    }

    void reset() {
        started_ = false, taken_ = given_ = 0;
        branches_.resetAtOnce += !rolling_;
    }

    bool rollingShutter() const { return rolling_; }

    bool smoothFrame(double t, bool output) {
        if (t >= 0.0) {
            Entry entry{{0.0, 0.0, 0.0, 0.0}, t};
            sensors_.orientationAt(t, entry.q);
            ring_[taken_++ % ring_.size()] = entry;
        }
        if (!output) return true;
        const Entry frame = ring_[given_++ % ring_.size()];
        const bool isLost = frame.q == Quaternion(0.0, 0.0, 0.0, 0.0);
        ++(isLost ? branches_.lost : branches_.corrected);
        if (isLost) return false;
        const bool wasRolling = rolling_;
        if (!started_) smoothed = frame.q, still_ = 0, started_ = true;
        const Quaternion old = smoothed;
        Quaternion before;
        const bool known = sensors_.orientationAt(frame.time - kPeriod, before);
        const double motion = known ? std::acos((before.inverse() * frame.q).w) : 0.0;
        const double off = std::acos((smoothed.inverse() * frame.q).w);
        still_ = motion < 0.001 && off > 0.0025 ? still_ + 1 : 0;
        if (still_ > 4) {
            smoothed = smoothed * PlainSensors::interpolated(lastStep_, {0.0, 0.0, 0.0, 0.0}, 0.3);
            ++branches_.caughtUp;
        }
        smoothed = PlainSensors::interpolated(frame.q, smoothed, alpha_);
        branches_.pulled += pullIntoCrop(smoothed, frame.time);
        lookAhead(frame.time);
        if (rolling_) rolling_ = !violatesCrop(smoothed, frame.time);
        branches_.atOnce += !rolling_;
        branches_.switched += rolling_ != wasRolling;
        branches_.carried += rolling_ && !reachesReadoutEnd(frame.time);
        buildMesh(frame.time);
        lastStep_ = old.inverse() * smoothed;
        return true;
    }

    Quaternion smoothed{1.0, 0.0, 0.0, 0.0};
    std::vector<MeshPoint> mesh;

private:
    struct Entry {
        Quaternion q;
        double time;
    };
    static constexpr double kPeriod = 0.03333333333333333;

    uint32_t delay() const { return static_cast<uint32_t>(param_.delayFrames); }

    bool mapPoint(const Quaternion& q, double t, double xt, double yt, double hint,
                  MeshPoint& out) const {
        const Vector3 start = inverse(crop_) * Vector3{xt, yt, 1.0};
        double x = start.x, y = hint >= 0.0 ? hint : start.y;
        for (int pass = 1; pass <= 20; ++pass) {
            const double shift = y * param_.readoutTime / param_.inputImage.height;
            Quaternion measured;
            if (!sensors_.orientationAt(rolling_ ? t + shift : t, measured)) return false;
            Matrix3 rotation;
            (q.inverse() * measured).toRotationMatrix(rotation.m);
            const Matrix3 h = crop_ * camera_ * rotation * inverse(camera_);
            const Vector3 image = h * Vector3{x, y, 1.0};
            const double dx = xt - image.x / image.z, dy = yt - image.y / image.z;
            if (dx * dx + dy * dy < 0.15) {
                const Vector3 p = inverse(h) * Vector3{xt, yt, 1.0};
                out = {p.x / p.z, p.y / p.z};
                return true;
            }
            x = x + dx * h(2, 2) / h(0, 0);
            y = y + dy * h(2, 2) / h(1, 1);
        }
        return false;
    }

    bool reachesReadoutEnd(double t) const {
        Quaternion unused;
        return sensors_.orientationAt(t + param_.readoutTime, unused);
    }

    bool violatesCrop(const Quaternion& q, double t) {
        rolling_ = reachesReadoutEnd(t);
        const auto outside = [&](int x, int y) {
            MeshPoint p;
            return !mapPoint(q, t, x, y, -1.0, p) || !(p.x >= 0.0) || !(p.y >= 0.0) ||
                   p.x > param_.inputImage.width - 1 || p.y > param_.inputImage.height - 1;
        };
        for (int y = 0; y < height_ - 1; y += 128) {
            if (outside(0, y) || outside(width_ - 1, y)) return true;
        }
        return outside(0, height_ - 1) || outside(width_ - 1, height_ - 1);
    }

    bool pullIntoCrop(Quaternion& q, double t) {
        if (!violatesCrop(q, t)) return false;
        Quaternion measured;
        if (!sensors_.orientationAt(t, measured)) return true;
        float lo = 0.0f, hi = 1.0f;
        do {
            const float mid = (lo + hi) * 0.5f;
            (violatesCrop(PlainSensors::interpolated(q, measured, mid), t) ? lo : hi) = mid;
        } while (hi - lo > 0.001f);
        q = PlainSensors::interpolated(q, measured, hi);
        return true;
    }

    void lookAhead(double t) {
        const uint32_t size = delay() + 1, waiting = std::min(taken_ - given_, size);
        Quaternion probe = smoothed;
        for (uint32_t i = 1; i <= waiting + 60; ++i) {
            const double time =
                i < waiting ? ring_[(given_ + i) % size].time
                            : (i - waiting) * kPeriod + ring_[(given_ + waiting) % size].time;
            if (!reachesReadoutEnd(time)) return;
            Quaternion measured(1.0, 0.0, 0.0, 0.0);
            sensors_.orientationAt(time, measured);
            probe = PlainSensors::interpolated(measured, probe, alpha_);
            if (violatesCrop(probe, time)) {
                pullIntoCrop(probe, time);
                smoothed = PlainSensors::interpolated(smoothed, probe, 1.0 / (i + 1));
                pullIntoCrop(smoothed, t);
                ++branches_.lookedAhead;
                return;
            }
        }
    }

    void buildMesh(double t) {
        const int rows = (height_ + 127) / 128 + 1, columns = (width_ + 127) / 128 + 1;
        mesh.resize(static_cast<size_t>(rows * columns), {0.0, 0.0});
        MeshPoint* node = mesh.data();
        double hint = -1.0;
        bool complete = true;
        for (int i = 0; i < rows && complete; ++i) {
            for (int j = 0; j < columns; ++j, ++node) {
                const int x = std::min(128 * j, width_ - 1), y = std::min(128 * i, height_ - 1);
                complete &= mapPoint(smoothed, t, x, y, hint, *node);
                hint = node->y;
            }
        }
        branches_.cutMesh += !complete;
        const double right = param_.inputImage.width - 1, bottom = param_.inputImage.height - 1;
        for (int i = 0; i < rows * columns; ++i) {
            MeshPoint& p = mesh[static_cast<size_t>(i)];
            if (i < columns && p.y < 0.0) p.y = 0.0;
            if (i >= (rows - 1) * columns && p.y > bottom) p.y = bottom;
            if (i % columns == 0 && p.x < 0.0) p.x = 0.0;
            // The row count as a column, which may lie in a row further down.
            if (i >= rows - 1 && (i - (rows - 1)) % columns == 0 && p.x > right) p.x = right;
        }
    }

    ZPR_Param param_;
    const PlainSensors& sensors_;
    Branches& branches_;
    int width_, height_;
    Matrix3 camera_, crop_;
    std::vector<Entry> ring_;
    double alpha_ = 0.0;
    uint32_t taken_ = 0, given_ = 0;
    bool started_ = false, rolling_ = true;
    int still_ = 0;
    Quaternion lastStep_{1.0, 0.0, 0.0, 0.0};
};

}  // namespace zpr_test
