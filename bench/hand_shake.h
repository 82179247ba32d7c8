#pragma once

#include "math/quaternion.h"
#include "zpr_framehold.h"

namespace framehold::bench {

/// The gravity and rate sensor, 200 samples per second each, of a camera held by hand.
class HandShake {
public:
    /// Hands over the samples up to a time that were not handed over before.
    void feed(ZPR_Handle stabilizer, double until);

private:
    int next_ = 0;
    qlx::zpr_framehold::Quaternion orientation_{1.0, 0.0, 0.0, 0.0};
};

}  // namespace framehold::bench
