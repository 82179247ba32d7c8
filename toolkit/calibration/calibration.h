#pragma once

#include "calibration/camera_fit.h"

#include <functional>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace framehold {

/// Thrown for a clip that is as good as motionless.
class HardlyTurns : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Clip to calibrate with.
struct CalibrationClip {
    std::string name;  // for messages
    FeatureTracks tracks;
    std::vector<MotionSample> rates;  // in logged axes and in order of time
};

/// Values that are known, and the range in which to search for the time offset.
struct CalibrationSettings {
    std::optional<double> focal;       // pixels
    std::optional<double> readout;     // seconds
    std::optional<double> timeOffset;  // seconds
    std::optional<AxisMapping> axes;
    std::optional<LensDistortion> lens;
    /// Model of a lens that is to be found; none: a polynomial, if the corners show one.
    std::optional<LensModel> lensModel;
    /// Seconds to either side in which the time offset is searched; infinite: in the whole log.
    double range = std::numeric_limits<double>::infinity();
};

/// Confidence in a value, best first.
enum class Confidence {
    kGiven,           // was known before
    kWellDetermined,  // exact enough for stabilizing
    kWeak,            // better than nothing
    kUnobservable,    // the clips do not excite it: the value is not usable
};

/// Name for the user: "given", "well determined", "weak", "unobservable".
const char* nameOf(Confidence confidence);

/// Result for one value.
struct CalibratedValue {
    double value = 0.0;
    double deviation = 0.0;  // one standard deviation
    Confidence confidence = Confidence::kUnobservable;

    bool isUsable() const { return confidence != Confidence::kUnobservable; }
};

/// Clock of one clip: a frame's first row is read at timestamp * (1 + drift) + offset on the log's
/// clock.
struct ClockCalibration {
    CalibratedValue offset;               // seconds
    CalibratedValue drift;                // seconds per second; 0 where none shows
    std::optional<double> rivalOffset{};  // seconds; one far off that fits about as well
};

/// Lens by its model.
struct LensCalibration {
    LensModel model = LensModel::kNone;
    CalibratedValue k1;
    CalibratedValue k2;            // 0 where none shows
    CalibratedValue pinholeFocal;  // pixels, of the pinhole that comes closest

    /// The lens, as far as it can be used.
    LensDistortion lens() const {
        return k1.isUsable() ? LensDistortion(model, {k1.value, k2.value, 0.0, 0.0})
                             : LensDistortion();
    }
};

/// Camera and clocks of a number of clips.
struct Calibration {
    int width = 0;  // pixels
    int height = 0;
    CalibratedValue focal;                 // pixels
    CalibratedValue readout;               // seconds
    std::vector<ClockCalibration> clocks;  // one for each clip
    /// Share by which a pinhole would show the corners further out (below 0: further in).
    CalibratedValue distortion;
    /// Lens that was found. The other values go with it; without one they are those of a pinhole, or
    /// of the lens that was given.
    std::optional<LensCalibration> lens;
    AxisMapping axes;
    Confidence axesConfidence = Confidence::kUnobservable;
    std::string runnerUp;                    // letters of the next best axes; empty if given
    double runnerUpReprojectionError = 0.0;  // pixels, as `reprojectionError`
    double explainedVariance = 0.0;          // of the picture's shake, by the log, 0 to 1
    double reprojectionError = 0.0;  // pixels, median distance of tracked features from predicted
    double reprojectionErrorAtRest = 0.0;  // pixels, the same without the log
    double outliers = 0.0;                 // share of features that move on their own
};

/// True for a lens so far from a pinhole that a pinhole does not hold the corners still.
bool isDistorted(const Calibration& calibration);

/// Finds focal length, readout, axes and each clip's time offset and clock drift. The axes and a
/// first offset come from `searchAxes`, everything else from `fitCamera`. A lens is found where its
/// model is asked for, or where the clips show it. Axes that mirror are taken
/// only where they fit far better. onRound is called before each round of a fit,
/// and now and then in the search.
///
/// Throws std::runtime_error if the clips have pictures of different sizes, or are not enough: fewer
/// than 20 pairs of frames with features, or a log that covers less than half of its clip or explains
/// less than half of its shake at every offset. Throws HardlyTurns for a clip without shake.
Calibration calibrate(const std::vector<CalibrationClip>& clips,
                      const CalibrationSettings& settings,
                      const std::function<void()>& onRound = {});

}  // namespace framehold
