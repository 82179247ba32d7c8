#pragma once

#include "math/matrix3.h"
#include "math/quaternion.h"

#include <cstdint>

namespace qlx::zpr_framehold {

/// Computes the device-to-world orientation from raw motion samples in device coordinates.
class Fusion {
public:
    virtual ~Fusion() = default;

    /// Takes an accelerometer sample: `a` along device x, y, z; `t` in seconds.
    virtual void addGravity(const double a[3], double t) = 0;

    /// Takes an angular-rate sample: `w` about device x, y, z in rad/s; `t` in seconds.
    /// Returns false, with nothing changed, if the orientation would not stay finite.
    virtual bool addRate(const double w[3], double t) = 0;

    /// Not used, like auxiliaryVector.
    virtual bool auxiliaryFlag() const = 0;

    /// Returns the current orientation; unset before `isReady`.
    virtual Quaternion getOrientation() const = 0;

    virtual Vector3 auxiliaryVector() const = 0;

    /// Returns true once there is an orientation.
    virtual bool isReady() const = 0;

protected:
    Fusion() = default;
    Fusion(const Fusion&) = default;
    Fusion& operator=(const Fusion&) = default;
};

/// Complementary filter: integrates angular rates and corrects a tenth of the tilt error with each
/// trusted gravity sample. The heading comes from the integration alone.
class Complementary final : public Fusion {
public:
    /// unitMode: 1 for gravity samples of length 1 pointing down, else m/s^2 pointing up.
    Complementary(int kind, int unitMode);

    void addGravity(const double a[3], double t) override;
    bool addRate(const double w[3], double t) override;
    bool auxiliaryFlag() const override { return false; }
    Quaternion getOrientation() const override { return orientation_; }
    Vector3 auxiliaryVector() const override { return {0.0, 0.0, 0.0}; }
    bool isReady() const override { return gravityTime_ >= 0.0; }

private:
    Quaternion orientationFromGravity(const Vector3& a) const;
    Quaternion correctTilt(const Quaternion& orientation) const;

    static constexpr double kStandardGravity = 9.81;  // m/s^2
    static constexpr double kTrustTolerance = 0.03;   // g
    static constexpr double kGain = 0.1;              // share of the tilt error corrected at once

    [[maybe_unused]] int32_t kind_;
    Quaternion orientation_;        // unset until the first gravity sample
    double gravityScale_;           // gravity sample length to g
    double gravityTime_ = -1.0;     // of the latest gravity sample
    double integratedTime_ = -1.0;  // up to where rates are integrated
    Vector3 lastRate_{};
    Vector3 lastGravity_{};
    bool trusted_ = false;  // the latest gravity sample is close to 1 g
    Vector3 reference_;     // world direction that gravity samples must map to
};

}  // namespace qlx::zpr_framehold
