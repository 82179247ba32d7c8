#pragma once

#include "sensors/fusion.h"
#include "sensors/rotational_sensor.h"

#include <memory>

namespace qlx::zpr_framehold {

/// Orientations from angular rates (types 3 and 4) fused with gravity (types 1 and 2): one record
/// for each rate sample after the first gravity sample.
class GyroscopeSensor final : public RotationalSensor {
public:
    /// mask: the enabled sensor types. Fuses with a `Complementary` for samples in m/s^2.
    GyroscopeSensor(int mask, int capacity);

    /// With a null `fusion` the sensor integrates by itself, whatever a sample's type says: the
    /// first record is the identity.
    GyroscopeSensor(int mask, int capacity, std::unique_ptr<Fusion> fusion);

    bool addSample(const ZPR_SensorData& sample) override;

    /// Deliberate: does not reset the fusion, so the orientation continues where it was.
    void reset() override;

private:
    void integrate(const ZPR_SensorData& sample);

    Vector3 lastRate_{};
    double lastSampleTime_ = -1.0;
    double lastRateTime_ = -1.0;
    int32_t gravitySource_;  // not used, like rateSource_
    int32_t rateSource_;
    std::unique_ptr<Fusion> fusion_;
};

}  // namespace qlx::zpr_framehold
