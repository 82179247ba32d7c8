#pragma once

#include "measures/picture_measures.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Path of the whole picture, added up from the motions between frames: one value for each frame.
struct PicturePath {
    std::vector<double> x;         // pixels of the video, to the right
    std::vector<double> y;         // pixels of the video, down
    std::vector<double> rotation;  // radians, clockwise for the viewer
    std::vector<double> logScale;  // natural logarithm
};

/// Shake of a clip. All figures of the path are root mean squares of its part above the cut-off
/// frequency, see `highPass`.
struct ClipMeasures {
    std::string video;
    int width = 0;  // pixels
    int height = 0;
    std::vector<double> times;        // seconds, of each frame
    std::vector<std::string> losses;  // what of the video could not be read, for the user
    size_t lostFrames = 0;  // whose motion was not found; that of the frame before is taken
    PicturePath path;
    PicturePath shake;  // the path after `highPass`

    double translation = 0.0;  // pixels of the video, of both directions together
    double rotation = 0.0;     // radians
    double scale = 0.0;        // natural logarithm; 0.01: the picture grows and shrinks by 1 %
    /// Pixels of the video: the three above together, as the displacement of the picture's points,
    /// root mean square over the picture. Points are (w^2 + h^2) / 12 from its centre in the mean
    /// square, and shift, rotation and scaling about the centre are independent in the mean.
    double displacement = 0.0;
    double wobble = 0.0;                // pixels of the video, see rowWobble
    double translationStability = 0.0;  // see stabilityScore
    double rotationStability = 0.0;
    PictureMeasures pictures;
    /// See the function of this name; none for an original, and where frames do not match.
    std::optional<double> croppingRatio;

    /// False if most of the picture's motion was not found, as where there is no texture: figures of
    /// the path say nothing then.
    bool isPathKnown() const { return 2 * lostFrames < times.size(); }

    // In shares of the picture's width, to compare clips of different size.
    double relativeDisplacement() const { return displacement / width; }
    double relativeTranslation() const { return translation / width; }
    double relativeWobble() const { return wobble / width; }
};

/// ClipMeasures::displacement of a picture of width x height pixels.
double meanDisplacement(double translation, double rotation, double scale, int width, int height);

/// Displacement of the fast part of a path that was tracked, see ClipMeasures::displacement, in
/// pixels; none if the motion is lost between most frames, or there are fewer than ten. cutoff: Hz.
std::optional<double> displacementOf(const FeatureTracks& tracks, double cutoff);

/// Measures one clip. cutoff: Hz. `onFrame` is called for each frame, twice. Throws MediaError, also
/// for clips of fewer than ten frames or whose timestamps do not increase.
ClipMeasures measureClip(const std::string& video, double cutoff,
                         const std::function<void()>& onFrame);

}  // namespace framehold
