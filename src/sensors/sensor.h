#pragma once

#include "zpr_framehold.h"

namespace qlx::zpr_framehold {

/// Something that takes motion samples.
class Sensor {
public:
    virtual ~Sensor() = default;
    Sensor(const Sensor&) = delete;
    Sensor& operator=(const Sensor&) = delete;

    /// Always true: what becomes of a sample is not reported.
    virtual bool addSample(const ZPR_SensorData& sample) = 0;

    /// Forgets the samples taken so far.
    virtual void reset() = 0;

protected:
    Sensor() = default;
};

}  // namespace qlx::zpr_framehold
