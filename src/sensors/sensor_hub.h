#pragma once

#include "math/quaternion.h"
#include "sensors/rotational_sensor.h"

#include <array>
#include <memory>

namespace qlx::zpr_framehold {

/// Owner of an instance's sensors: routes samples to them and answers orientation queries from the
/// preferred one. Sensors are created when first needed.
class SensorHub {
public:
    /// mask: bit (type - 1) enables a sample type. lookAheadSeconds: how far beyond the frame being
    /// output the samples reach; it sizes the rings.
    SensorHub(int mask, double lookAheadSeconds) : mask_(mask), lookAhead_(lookAheadSeconds) {}

    void reset();

    bool isEnabled(int type) const { return (mask_ & ZPR_SENSOR_BIT(type)) != 0; }

    /// Returns the sensor that takes samples of `type`, 1 to 6. Types 1 to 4 share one, so that one
    /// fusion gets gravity and rates. Throws if there is no memory to create it.
    Sensor* getSensor(int type);

    /// Takes a sample of an enabled type. A sample with a time or a used value that is not finite
    /// is dropped.
    void addSample(const ZPR_SensorData& sample);

    /// Returns the sensor that orientations come from: that of type 5 if enabled, else 6, else 3,
    /// else 4, else null.
    RotationalSensor* findOrientationSensor();

    /// See RotationalSensor::getOrientation; false if no orientation sensor is enabled.
    bool getOrientation(double timestamp, Quaternion& out);

private:
    int ringCapacity() const;
    RotationalSensor* makeOrientationSensor();

    static constexpr int kGyroscopeSlot = 4;

    std::array<std::unique_ptr<Sensor>, 7> sensors_;
    int mask_;
    double lookAhead_;
    RotationalSensor* orientationSensor_ = nullptr;  // one of sensors_, once known
};

}  // namespace qlx::zpr_framehold
