#pragma once

#include "measures/picture_measures.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Where the picture as a whole is, added up from the motions between frames: one value for each
/// frame. Of the camera's path it is the picture's view, whatever moved the camera.
struct PicturePath {
    std::vector<double> x;         // pixels of the video, to the right
    std::vector<double> y;         // pixels of the video, down
    std::vector<double> rotation;  // radians, clockwise for the viewer
    std::vector<double> logScale;
};

/// How shaky a clip is. All path figures are root mean squares of what `highPass` leaves of the
/// path: the motion above the cut-off frequency.
struct ClipMeasures {
    std::string video;
    int width = 0;  // pixels
    int height = 0;
    std::vector<double> times;  // seconds, of each frame
    size_t lostFrames = 0;      // whose motion could not be found; taken to go on as before
    PicturePath path;
    PicturePath shake;  // the path without its slow part

    double translation = 0.0;  // pixels of the video, of both directions together
    double rotation = 0.0;     // radians
    double scale = 0.0;        // 0.01: the picture grows and shrinks by 1 %
    /// Pixels of the video by which a point of the picture is off its slow path: the three above
    /// together, on average over the picture. Points are (w^2 + h^2) / 12 from its centre in the
    /// mean square, and shift, rotation and growth about the centre are independent in the mean.
    double displacement = 0.0;
    double wobble = 0.0;                // pixels of the video, see rowWobble
    double translationStability = 0.0;  // see stabilityScore
    double rotationStability = 0.0;
    PictureMeasures pictures;
    /// See croppingRatio; none for an original, and where frames do not match.
    std::optional<double> croppingRatio;

    /// For clips of any size: in shares of the picture's width.
    double relativeDisplacement() const { return displacement / width; }
    double relativeTranslation() const { return translation / width; }
    double relativeWobble() const { return wobble / width; }
};

/// What ClipMeasures::displacement says, for a picture of width x height pixels.
double meanDisplacement(double translation, double rotation, double scale, int width, int height);

/// Measures one clip. cutoff: Hz. `onFrame` is called for each frame, twice. Throws MediaError;
/// std::runtime_error for clips that are too short or have no order in their timestamps.
ClipMeasures measureClip(const std::string& video, double cutoff,
                         const std::function<void()>& onFrame);

}  // namespace framehold
