#include "motion/axis_mapping.h"

#include "common/text_fields.h"

#include <cctype>
#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

AxisMapping AxisMapping::fromLetters(const std::string& letters) {
    if (letters.size() != 3) {
        throw std::invalid_argument(
            fmt::format("'{}' is not an orientation: expected three letters like XYZ or xzY",
                        excerpt(letters)));
    }
    AxisMapping mapping;
    for (size_t i = 0; i < 3; ++i) {
        const char c = letters[i];
        mapping.set(i, c, std::islower(static_cast<unsigned char>(c)) != 0);
    }
    mapping.requirePermutation(letters);
    return mapping;
}

AxisMapping AxisMapping::fromTerms(const std::array<std::string, 3>& terms) {
    AxisMapping mapping;
    for (size_t i = 0; i < 3; ++i) {
        const std::string& term = terms[i];
        if (term.size() != 2 || (term[0] != '+' && term[0] != '-')) {
            throw std::invalid_argument(fmt::format(
                "'{}' is not an axis: expected +x, -x, +y, -y, +z or -z", excerpt(term)));
        }
        mapping.set(i, term[1], term[0] == '-');
    }
    mapping.requirePermutation(fmt::format("{} {} {}", terms[0], terms[1], terms[2]));
    return mapping;
}

void AxisMapping::set(size_t device, char letter, bool negated) {
    const int axis = std::tolower(static_cast<unsigned char>(letter)) - 'x';
    if (axis < 0 || axis > 2) {
        throw std::invalid_argument(
            fmt::format("'{}' is not an axis: expected x, y or z", excerpt({&letter, 1})));
    }
    axis_[device] = static_cast<size_t>(axis);
    sign_[device] = negated ? -1.0 : 1.0;
}

void AxisMapping::requirePermutation(const std::string& source) const {
    if (axis_[0] == axis_[1] || axis_[0] == axis_[2] || axis_[1] == axis_[2]) {
        throw std::invalid_argument(fmt::format("'{}' names one axis twice", excerpt(source)));
    }
}

Vec3 AxisMapping::toDevice(const Vec3& logged) const {
    return {sign_[0] * logged[axis_[0]], sign_[1] * logged[axis_[1]], sign_[2] * logged[axis_[2]]};
}

Vec3 AxisMapping::toLogged(const Vec3& device) const {
    Vec3 logged{};
    for (size_t i = 0; i < 3; ++i) logged[axis_[i]] = sign_[i] * device[i];
    return logged;
}

std::string AxisMapping::term(size_t device) const {
    return {sign_[device] < 0.0 ? '-' : '+',
            static_cast<char>('x' + static_cast<int>(axis_[device]))};
}

bool AxisMapping::isProper() const {
    const bool isCyclic = axis_[1] == (axis_[0] + 1) % 3;
    return sign_[0] * sign_[1] * sign_[2] == (isCyclic ? 1.0 : -1.0);
}

std::string AxisMapping::letters() const {
    std::string text;
    for (size_t i = 0; i < 3; ++i) {
        text += static_cast<char>((sign_[i] < 0.0 ? 'x' : 'X') + static_cast<int>(axis_[i]));
    }
    return text;
}

}  // namespace framehold
