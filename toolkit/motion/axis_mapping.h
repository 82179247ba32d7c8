#pragma once

#include <array>
#include <string>

namespace framehold {

/// Vector with the components x, y, z.
using Vec3 = std::array<double, 3>;

/// Signed permutation of axes: the logged axis, with its sign, that each device axis is read from.
/// Device axes are those of Android: x to the right, y up, z towards the viewer.
class AxisMapping {
public:
    /// Device axes are the logged ones.
    AxisMapping() = default;

    /// From three letters, one for each device axis: the logged axis, in lower case if negated.
    /// "YxZ": device x is logged y, device y is minus logged x. Throws std::invalid_argument.
    static AxisMapping fromLetters(const std::string& letters);

    /// From three terms "+x", "-y", ...: the logged axis of each device axis. Throws
    /// std::invalid_argument.
    static AxisMapping fromTerms(const std::array<std::string, 3>& terms);

    Vec3 toDevice(const Vec3& logged) const;
    Vec3 toLogged(const Vec3& device) const;

    /// True for rotations; false for mappings that mirror (determinant -1).
    bool isProper() const;

    /// Three letters as `fromLetters` takes them.
    std::string letters() const;

    /// Logged axis of a device axis (0 to 2), as `fromTerms` takes it.
    std::string term(size_t device) const;

private:
    void set(size_t device, char letter, bool negated);
    void requirePermutation(const std::string& source) const;

    std::array<size_t, 3> axis_{0, 1, 2};
    std::array<double, 3> sign_{1.0, 1.0, 1.0};
};

}  // namespace framehold
