// Any finite samples into the orientation sensors, and any queries: answers are usable rotations,
// and as close to the records as the smoother's crop bound assumes.
#include "draw.h"
#include "sensors/gyroscope_sensor.h"
#include "sensors/rotational_sensor.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

using namespace qlx::zpr_framehold;
using zpr_fuzz::Draw;
using zpr_fuzz::require;

namespace {

std::unique_ptr<RotationalSensor> drawSensor(Draw& draw) {
    const int capacity = draw.flag() ? draw.integer(2, 300) : 1 - draw.integer(0, 2);
    const int mask = draw.integer(1, 63);
    switch (draw.integer(0, 3)) {
        case 0:
            return std::make_unique<GyroscopeSensor>(mask, capacity);
        case 1:
            return std::make_unique<GyroscopeSensor>(mask, capacity, nullptr);
        default:
            return std::make_unique<RotationVectorSensor>(capacity);
    }
}

void requireUsable(const Quaternion& q) {
    require(q.isFinite() && q.norm() > 0.0, "answers are usable rotations");
}

double distance(const Quaternion& a, const Quaternion& b) {
    return Quaternion(b.w - a.w, b.x - a.x, b.y - a.y, b.z - a.z).norm();
}

/// A sensor, and a clock that mostly goes forward.
class CheckedSensor {
public:
    explicit CheckedSensor(Draw& draw) : draw_(draw), sensor_(drawSensor(draw)) {}

    void step() {
        switch (draw_.integer(0, 9)) {
            case 0:
            case 1:
            case 2:
                return addSteadily();
            case 3:
                return add(draw_.integer(1, 6), draw_.wild(), draw_.wild(), draw_.wild(),
                           draw_.wild(), draw_.wild());
            case 4:
                return draw_.integer(0, 15) == 0 ? sensor_->reset() : askRelative();
            case 5:
                return askMany();
            case 6:
            case 7:
                return askRecords();
            default:
                return askOne();
        }
    }

private:
    /// Samples that are not finite never get to a sensor.
    void add(int type, double time, double x, double y, double z, double w) {
        const ZPR_SensorData sample{type, time, {x, y, z, w}};
        const bool isFinite =
            std::all_of(sample.value, sample.value + 4, [](double v) { return std::isfinite(v); });
        if (isFinite && std::isfinite(time)) sensor_->addSample(sample);
    }

    void addSteadily() {
        const double speed = draw_.uniform(-1, 1);
        const double step = draw_.integer(0, 7) == 0 ? 0.0 : 0.005;
        for (int i = draw_.integer(1, 30); i > 0; --i, now_ += step) {
            angle_ += speed * step;
            add(5, now_, 0.0, std::sin(angle_), 0.0, std::cos(angle_));
            add(1, now_, 0.0, 0.1, 9.8, 0.0);
            add(3, now_, speed, 0.1, -speed, 0.0);
        }
    }

    double drawTime() {
        return draw_.integer(0, 7) == 0 ? draw_.wild() : now_ - draw_.uniform(0, 0.5);
    }

    void askOne() {
        Quaternion q;
        double m[9];
        const double time = drawTime();
        const bool isKnown = sensor_->getOrientation(time, q);
        if (isKnown) requireUsable(q);
        require(sensor_->getRotationMatrix(time, m) == isKnown, "a matrix is an orientation");
    }

    void askRelative() {
        Quaternion q;
        double m[9];
        const double from = drawTime(), to = drawTime();
        const bool isKnown = sensor_->getRelativeRotation(from, to, q);
        require(sensor_->getRelativeRotationMatrix(from, to, m) == isKnown,
                "a matrix is a rotation");
    }

    void askMany() {
        std::vector<double> times;
        for (int i = draw_.integer(0, 12); i > 0; --i) times.push_back(drawTime());
        if (draw_.flag()) std::sort(times.begin(), times.end());
        std::vector<Quaternion> answers(3);
        const bool isKnown = sensor_->getOrientations(times, answers);
        require(answers.size() == (isKnown ? times.size() : 0), "an answer for each time");
        if (isKnown) requireUsable(answers.back());
    }

    /// What the smoother's crop bound assumes of answers between records of unit length that are
    /// near each other: they lie hardly beyond them and move hardly faster.
    void askRecords() {
        const double from = drawTime(), to = from + draw_.uniform(0, 0.1);
        Quaternion reference;
        if (!sensor_->getOrientation(drawTime(), reference)) return;
        const Quaternion inverse = reference.inverse();
        Vector3 bounds{};
        double speed = 0.0, lastTime = -std::numeric_limits<double>::infinity();
        const auto isNear = [&](const RotationalSensor::Record& record) {
            const Quaternion relative = inverse * record.orientation;
            bounds = {std::max(bounds.x, std::fabs(relative.x)),
                      std::max(bounds.y, std::fabs(relative.y)),
                      std::max(bounds.z, std::fabs(relative.z))};
            speed = std::max(speed, record.distance / (record.timestamp - lastTime));
            lastTime = record.timestamp;
            return record.distance <= 0.1;
        };
        if (!sensor_->allRecords(from, to, isNear)) return;
        constexpr int kProbes = 20;
        Quaternion before;
        double timeBefore = from;
        for (int i = 0; i <= kProbes; ++i) {
            Quaternion q;
            const double time = std::min(to, from + (to - from) * i / kProbes);
            require(sensor_->getOrientation(time, q), "what has records is known");
            const Quaternion relative = inverse * q;
            const auto isWithin = [](double value, double bound) {
                return std::fabs(value) <= 1.002 * bound + 1e-9;
            };
            require(isWithin(relative.x, bounds.x) && isWithin(relative.y, bounds.y) &&
                        isWithin(relative.z, bounds.z),
                    "answers lie hardly beyond the records");
            require(i == 0 || distance(before, q) <= 1.1 * speed * (time - timeBefore) + 5e-7,
                    "answers move hardly faster than the records");
            before = q;
            timeBefore = time;
        }
    }

    Draw& draw_;
    std::unique_ptr<RotationalSensor> sensor_;
    double now_ = 1.0;
    double angle_ = 0.0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Draw draw(data, size);
    CheckedSensor sensor(draw);
    while (!draw.isEmpty()) sensor.step();
    return 0;
}
