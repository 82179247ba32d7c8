#include "sensors/gyroscope_sensor.h"

namespace qlx::zpr_framehold {

namespace {

bool isGravity(int32_t type) {
    return type == ZPR_SENSOR_GRAVITY_1 || type == ZPR_SENSOR_GRAVITY_2;
}

bool isRate(int32_t type) { return type == ZPR_SENSOR_RATE_1 || type == ZPR_SENSOR_RATE_2; }

bool isIn(int mask, int32_t type) { return (mask & ZPR_SENSOR_BIT(type)) != 0; }

}  // namespace

GyroscopeSensor::GyroscopeSensor(int mask, int capacity)
    : GyroscopeSensor(mask, capacity, std::make_unique<Complementary>(1, 0)) {}

GyroscopeSensor::GyroscopeSensor(int mask, int capacity, std::unique_ptr<Fusion> fusion)
    : RotationalSensor(capacity),
      gravitySource_(isIn(mask, ZPR_SENSOR_GRAVITY_2)   ? ZPR_SENSOR_GRAVITY_2
                     : isIn(mask, ZPR_SENSOR_GRAVITY_1) ? ZPR_SENSOR_GRAVITY_1
                                                        : 0),
      rateSource_(isIn(mask, ZPR_SENSOR_RATE_2) ? ZPR_SENSOR_RATE_2 : ZPR_SENSOR_RATE_1),
      fusion_(std::move(fusion)) {}

void GyroscopeSensor::reset() {
    lastSampleTime_ = -1.0;
    lastRateTime_ = -1.0;
    RotationalSensor::reset();
}

bool GyroscopeSensor::addSample(const ZPR_SensorData& sample) {
    if (!fusion_) {
        integrate(sample);
    } else if (isGravity(sample.type)) {
        fusion_->addGravity(sample.value, sample.timestamp);
    } else if (isRate(sample.type) && fusion_->addRate(sample.value, sample.timestamp)) {
        lastRate_ = {sample.value[0], sample.value[1], sample.value[2]};
        lastSampleTime_ = sample.timestamp;
        if (fusion_->isReady()) write(fusion_->getOrientation(), sample.timestamp);
        lastRateTime_ = sample.timestamp;
    }
    return true;
}

void GyroscopeSensor::integrate(const ZPR_SensorData& sample) {
    Quaternion next(1.0, 0.0, 0.0, 0.0);
    if (!isEmpty()) {
        const double seconds = sample.timestamp - newest().timestamp;
        next = newest().orientation * Quaternion::fromRotationVector(sample.value, seconds);
        next.normalize();
        if (!next.isFinite()) return;
    }
    write(next, sample.timestamp);
}

}  // namespace qlx::zpr_framehold
