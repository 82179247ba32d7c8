#include "cli/lens_options.h"

#include "common/angles.h"
#include "common/text_fields.h"

#include <charconv>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <vector>

#include <fmt/format.h>

namespace framehold {

std::optional<LensDistortion> LensOptions::lens() const {
    if (model.empty() && k.empty()) return std::nullopt;
    const LensModel kind = model.empty() ? LensModel::kPolynomial : *lensModelOf(model);
    if (kind == LensModel::kNone && !k.empty()) {
        throw std::invalid_argument("--lens: --lens-model none has no coefficients");
    }
    if (kind == LensModel::kPolynomial && k.empty()) {
        throw std::invalid_argument("--lens-model: polynomial needs coefficients; give --lens");
    }
    return LensDistortion(kind, k.empty() ? LensDistortion::Coefficients{} : coefficientsIn(k));
}

LensDistortion::Coefficients coefficientsIn(const std::string& text) {
    const std::vector<std::string_view> fields = splitFields(text);
    LensDistortion::Coefficients k{};
    bool fits = fields.size() <= k.size();
    for (size_t i = 0; fits && i < fields.size(); ++i) {
        const char* end = fields[i].data() + fields[i].size();
        const auto result = std::from_chars(fields[i].data(), end, k[i]);
        fits = result.ec == std::errc() && result.ptr == end && std::isfinite(k[i]);
    }
    if (!fits) throw std::invalid_argument(fmt::format("'{}' is not one to four numbers", text));
    return k;
}

std::string describe(const LensDistortion& lens) {
    std::string text = nameOf(lens.model());
    for (size_t i = 0; i < 4; ++i) {
        const double k = lens.coefficients()[i];
        if (k != 0.0) text += fmt::format(", k{} {:.4g}", i + 1, k);
    }
    return text;
}

void requireCovered(const std::string& origin, const LensDistortion& lens, double focal, int width,
                    int height) {
    const double end = focal * lens.largestRadius();
    const double corner = std::hypot(width, height) / 2.0;
    if (corner < end) return;
    throw std::runtime_error(fmt::format(
        "{}: with a focal length of {:.1f} pixels the {} lens folds back {:.0f} pixels from the "
        "middle of the picture, {:.1f} degrees off the axis; its corners are {:.0f} away",
        origin, focal, nameOf(lens.model()), end, toDegrees(lens.largestAngle()), corner));
}

}  // namespace framehold
