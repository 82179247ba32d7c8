#include "sensors/sensor_hub.h"

#include "sensors/gyroscope_sensor.h"

#include <cmath>
#include <limits>
#include <new>

namespace qlx::zpr_framehold {

namespace {

constexpr double kSamplesPerSecond = 200.0;
constexpr int64_t kHistorySamples = 200;

bool isFiniteSample(const ZPR_SensorData& sample) {
    const int used = sample.type >= ZPR_SENSOR_ROTATION_1 ? 4 : 3;
    bool finite = std::isfinite(sample.timestamp);
    for (int i = 0; i < used; ++i) finite = finite && std::isfinite(sample.value[i]);
    return finite;
}

}  // namespace

void SensorHub::reset() {
    for (auto& sensor : sensors_) {
        if (sensor) sensor->reset();
    }
}

/// Number of samples in the look-ahead and one second of history, rounded up to a power of two.
int SensorHub::ringCapacity() const {
    const double samples = lookAhead_ * kSamplesPerSecond;
    if (!(samples < std::numeric_limits<int32_t>::max())) throw std::bad_alloc();
    int64_t n = static_cast<int64_t>(samples > 0.0 ? samples + 0.5 : samples - 0.5);
    if (static_cast<double>(n) < samples) ++n;
    n += kHistorySamples;
    while ((n & (n - 1)) != 0) n += n & -n;
    if (n > std::numeric_limits<int32_t>::max()) throw std::bad_alloc();
    return static_cast<int>(n);
}

Sensor* SensorHub::getSensor(int type) {
    const int slot = type <= kGyroscopeSlot ? kGyroscopeSlot : type;
    std::unique_ptr<Sensor>& sensor = sensors_[static_cast<size_t>(slot)];
    if (!sensor) {
        if (slot == kGyroscopeSlot) {
            sensor = std::make_unique<GyroscopeSensor>(mask_, ringCapacity());
        } else {
            sensor = std::make_unique<RotationVectorSensor>(ringCapacity());
        }
    }
    return sensor.get();
}

void SensorHub::addSample(const ZPR_SensorData& sample) {
    if (isFiniteSample(sample)) getSensor(sample.type)->addSample(sample);
}

RotationalSensor* SensorHub::makeOrientationSensor() {
    for (const int type : {ZPR_SENSOR_ROTATION_1, ZPR_SENSOR_ROTATION_2}) {
        if (isEnabled(type)) return dynamic_cast<RotationVectorSensor*>(getSensor(type));
    }
    for (const int type : {ZPR_SENSOR_RATE_1, ZPR_SENSOR_RATE_2}) {
        if (isEnabled(type)) return dynamic_cast<GyroscopeSensor*>(getSensor(type));
    }
    return nullptr;
}

RotationalSensor* SensorHub::findOrientationSensor() {
    // The mask is fixed and sensors are kept, so the answer does not change.
    if (orientationSensor_ == nullptr) orientationSensor_ = makeOrientationSensor();
    return orientationSensor_;
}

bool SensorHub::getOrientation(double timestamp, Quaternion& out) {
    RotationalSensor* sensor = findOrientationSensor();
    return sensor != nullptr && sensor->getOrientation(timestamp, out);
}

}  // namespace qlx::zpr_framehold
