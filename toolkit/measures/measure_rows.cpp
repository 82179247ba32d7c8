#include "measures/measure_rows.h"

#include "common/angles.h"

namespace framehold {

namespace {

using Value = std::optional<double>;
using Clip = const ClipMeasures&;

constexpr double kPercent = 100.0;

/// A figure of the path, if that is known.
Value ofPath(Clip clip, double figure) { return clip.isPathKnown() ? Value(figure) : std::nullopt; }

}  // namespace

const std::vector<MeasureRow>& measureRows() {
    static const std::vector<MeasureRow> rows{
        {"shake_px", "shake, px RMS over the picture", 3,
         [](Clip c) -> Value { return ofPath(c, c.displacement); },
         [](Clip c) { return c.relativeDisplacement(); },
         "How far points of the picture are off their slow path: shift, rotation and scaling."},
        {"translation_px", "translation, px RMS", 3,
         [](Clip c) -> Value { return ofPath(c, c.translation); },
         [](Clip c) { return c.relativeTranslation(); },
         "How far the picture is off its slow path, in pixels of the clip."},
        {"translation_percent", "translation, % of width", 4,
         [](Clip c) -> Value { return ofPath(c, kPercent * c.relativeTranslation()); },
         [](Clip c) { return c.relativeTranslation(); },
         "The same as a share of the picture's width, for clips of different size."},
        {"rotation_deg", "rotation, degrees RMS", 4,
         [](Clip c) -> Value { return ofPath(c, toDegrees(c.rotation)); },
         [](Clip c) { return c.rotation; },
         "How far the picture turns about its centre, off its slow path."},
        {"scale_percent", "scale, % RMS", 4,
         [](Clip c) -> Value { return ofPath(c, kPercent * c.scale); },
         [](Clip c) { return c.scale; },
         "How far the picture grows and shrinks, off its slow path."},
        {"wobble_px", "rolling-shutter wobble, px RMS", 3,
         [](Clip c) -> Value { return ofPath(c, c.wobble); },
         [](Clip c) { return c.relativeWobble(); },
         "How far bands of rows move against the picture as a whole."},
        {"fidelity_db", "inter-frame fidelity, dB", 2,
         [](Clip c) -> Value { return c.pictures.fidelity; }, nullptr,
         "Mean PSNR between consecutive frames as they are; higher is steadier."},
        {"aligned_fidelity_db", "fidelity after alignment, dB", 2,
         [](Clip c) -> Value { return ofPath(c, c.pictures.alignedFidelity); }, nullptr,
         "The same after the motion between the frames was taken out."},
        {"translation_stability", "stability score, translation", 4,
         [](Clip c) -> Value { return ofPath(c, c.translationStability); }, nullptr,
         "Share of the path's energy in its five lowest frequencies; 1 is steady."},
        {"rotation_stability", "stability score, rotation", 4,
         [](Clip c) -> Value { return ofPath(c, c.rotationStability); }, nullptr,
         "The same of the rotation about the picture's centre."},
        {"cropping_ratio_percent", "cropping ratio, % of area", 1,
         [](Clip c) -> Value {
             return c.croppingRatio ? Value(kPercent * *c.croppingRatio) : std::nullopt;
         },
         nullptr, "How much of the original's picture is still to be seen."},
        {"border_percent", "black border, % of area", 2,
         [](Clip c) -> Value { return kPercent * c.pictures.border; }, nullptr,
         "Black pixels connected to the picture's edge, on average."},
        {"largest_border_percent", "black border, worst frame", 2,
         [](Clip c) -> Value { return kPercent * c.pictures.largestBorder; }, nullptr,
         "The same in the frame where there are most."},
    };
    return rows;
}

std::optional<double> remaining(const MeasureRow& row, const ClipMeasures& original,
                                const ClipMeasures& other) {
    if (row.comparable == nullptr || !original.isPathKnown() || !other.isPathKnown()) {
        return std::nullopt;
    }
    const double before = row.comparable(original);
    if (before <= 0.0) return std::nullopt;
    return row.comparable(other) / before;
}

}  // namespace framehold
