#pragma once

#include "math/matrix3.h"
#include "math/quaternion.h"

namespace qlx::zpr_framehold {

/// Turns raw motion samples, in device coordinates, into one device-to-world orientation.
class Fusion {
public:
    virtual ~Fusion() = default;

    /// Takes an accelerometer sample: `a` along device x, y, z; `t` in seconds.
    virtual void addGravity(const double a[3], double t) = 0;

    /// Takes an angular-rate sample: `w` about device x, y, z in rad/s; `t` in seconds.
    /// Returns false, with nothing changed, if the orientation would not stay finite.
    virtual bool addRate(const double w[3], double t) = 0;

    virtual bool auxiliaryFlag() const = 0;

    /// The current orientation; meaningful once `isReady`.
    virtual Quaternion getOrientation() const = 0;

    virtual Vector3 auxiliaryVector() const = 0;

    virtual bool isReady() const = 0;

protected:
    Fusion() = default;
    Fusion(const Fusion&) = default;
    Fusion& operator=(const Fusion&) = default;
};

}  // namespace qlx::zpr_framehold
