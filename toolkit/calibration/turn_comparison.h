#pragma once

#include "motion/axis_mapping.h"
#include "path/gyro_path.h"
#include "tracking/feature_tracks.h"

#include <optional>
#include <vector>

namespace framehold {

/// Turn of a camera from one frame to the next by the picture, for a focal length of 1 pixel.
struct PictureTurn {
    double from;  // the frames' timestamps
    double to;
    Eigen::Vector3d turn;  // about the device axes; x and y in pixels, z in radians
};

/// Turns between the frames that have enough features.
std::vector<PictureTurn> pictureTurns(const FeatureTracks& tracks);

/// The logged camera that turns are compared with.
struct LoggedCamera {
    AxisMapping axes;
    double focal = 0.0;  // pixels
    double unit = 1.0;   // rad/s that the logged values are in
};

/// Turns of the picture beside those of a log at one time offset, sums over the pairs of frames of
/// products without slow motion. A gyroscope's bias and a moving camera are slow motion.
struct TurnProducts {
    Eigen::Matrix3d cross;         // seen, about device axes, by logged, about logged ones
    Eigen::Vector3d seenEnergy;    // about device axes
    Eigen::Vector3d loggedEnergy;  // about logged axes
    double lever = 0.0;            // pixels^2, mean square distance from the picture's centre
    size_t pairs = 0;

    /// Variance of the picture's motion, mean over the picture, in pixels^2.
    double variance() const;

    /// Share of that variance that the log explains, 1 at most; below 0 if the picture moves less
    /// than its difference from the log does.
    double explained(const LoggedCamera& camera) const;

    /// Variance of the motion that the log predicts, in pixels^2.
    double predicted(const LoggedCamera& camera) const;

    /// Focal length that explains most; not above 0 if none does.
    double bestFocal(const AxisMapping& axes, double unit) const;

    /// Sums in device axes of a mapping, for searches that try many cameras with the same axes.
    struct Agreement {
        Eigen::Vector3d agreement;
        Eigen::Vector3d energy;

        double bestFocal(double unit) const;
    };
    Agreement agreementOf(const AxisMapping& axes) const;
    double explained(const Agreement& in, double focal, double unit) const;
};

/// Compares the turns of a clip, or of parts of it, with a log at any time offset.
class TurnComparison {
public:
    /// samples: consecutive frames each; with the size of the picture. gyro: in logged axes;
    /// borrowed.
    TurnComparison(const std::vector<FeatureTracks>& samples, const GyroPath& gyro);

    /// At an offset from a frame's timestamp to its middle row, in seconds. None if the log covers
    /// less than half of the turns there, or less than 20.
    std::optional<TurnProducts> at(double offset) const;

    /// Variance of the picture's motion in all turns, in pixels^2.
    double variance() const;

    /// False if there are too few turns to compare, whatever the offset.
    bool isEnough() const;

    /// Smallest and largest offset at which the log covers any turn.
    double smallestOffset() const { return gyro_.firstTime() - lastTime_; }
    double largestOffset() const { return gyro_.lastTime() - firstTime_; }

private:
    /// About a second, in which all that is slow is a straight line.
    struct Stretch {
        std::vector<PictureTurn> turns;  // without slow motion
        std::vector<double> slope;       // over the turns, orthogonal to a constant; unit length
        Eigen::Vector3d energy;
    };

    void add(std::vector<PictureTurn> turns);

    const GyroPath& gyro_;
    std::vector<Stretch> stretches_;
    double lever_ = 0.0;
    size_t turns_ = 0;
    double firstTime_ = 0.0;
    double lastTime_ = 0.0;
};

/// Motion of the picture from one frame to the next without slow motion, RMS over picture and frames,
/// in pixels; 0 where nothing is known.
double shakeOf(const FeatureTracks& tracks);

/// All 48 signed permutations of the axes.
const std::vector<AxisMapping>& allAxes();

}  // namespace framehold
