#pragma once

#include "sensors/rotational_sensor.h"

namespace qlx::zpr_framehold {

/// Orientations delivered ready-made (types 5 and 6), recorded as they come: neither normalised
/// nor checked for order.
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
