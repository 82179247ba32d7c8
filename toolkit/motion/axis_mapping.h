#pragma once

#include <array>
#include <string>

namespace framehold {

using Vec3 = std::array<double, 3>;

/// Which logged axis, with which sign, each device axis (Android: x right, y up, z towards the
/// viewer) is read from.
class AxisMapping {
public:
    /// Device axes as logged.
    AxisMapping() = default;

    /// From three letters, one for each device axis: the logged axis, in lower case if negated.
    /// "YxZ": device x is logged y, device y is minus logged x. Throws std::invalid_argument.
    static AxisMapping fromLetters(const std::string& letters);

    /// From three terms "+x", "-y", ...: the logged axis of each device axis. Throws as above.
    static AxisMapping fromTerms(const std::array<std::string, 3>& terms);

    Vec3 toDevice(const Vec3& logged) const;
    Vec3 toLogged(const Vec3& device) const;

    /// Whether a right hand stays one.
    bool isProper() const;

    std::string letters() const;

    /// The logged axis of a device axis (0 to 2) as fromTerms takes it.
    std::string term(size_t device) const;

private:
    void set(size_t device, char letter, bool negated);
    void requirePermutation(const std::string& source) const;

    std::array<size_t, 3> axis_{0, 1, 2};
    std::array<double, 3> sign_{1.0, 1.0, 1.0};
};

}  // namespace framehold
