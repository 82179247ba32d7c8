#pragma once

#include "common/lens_distortion.h"

#include <optional>
#include <string>

namespace framehold {

/// Options that describe a lens.
struct LensOptions {
    std::string model;  // name; empty: not given
    std::string k;      // coefficients, see coefficientsIn; empty: not given

    /// The lens; none where nothing is said of it. Coefficients without a model are a polynomial's.
    /// Throws std::invalid_argument for a model whose coefficients are missing, or that has none.
    std::optional<LensDistortion> lens() const;
};

/// One to four numbers with commas between them. Throws std::invalid_argument.
LensDistortion::Coefficients coefficientsIn(const std::string& text);

/// Text about a lens for the user: "fisheye, k1 -0.03, k2 0.004".
std::string describe(const LensDistortion& lens);

/// Throws std::runtime_error if the lens's model does not hold for all of a picture. origin: of the
/// lens, for the message. focal, width, height: in pixels.
void requireCovered(const std::string& origin, const LensDistortion& lens, double focal, int width,
                    int height);

}  // namespace framehold
