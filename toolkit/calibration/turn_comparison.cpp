#include "calibration/turn_comparison.h"

#include "tracking/global_motion.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace framehold {

namespace {

constexpr double kStretch = 1.0;  // seconds; motion slower than this is taken out
constexpr size_t kFewestInStretch = 8;
constexpr size_t kFewestTurns = 20;

}  // namespace

std::vector<PictureTurn> pictureTurns(const FeatureTracks& tracks) {
    std::vector<PictureTurn> turns;
    for (size_t i = 0; i < tracks.motions.size(); ++i) {
        const auto motion = estimateGlobalMotion(tracks.motions[i], tracks.width, tracks.height);
        if (!motion) continue;
        turns.push_back({tracks.frameTimes[i],
                         tracks.frameTimes[i + 1],
                         {motion->dx, -motion->dy, motion->rotation}});
    }
    return turns;
}

const std::vector<AxisMapping>& allAxes() {
    static const std::vector<AxisMapping> all = [] {
        std::vector<AxisMapping> mappings;
        for (const std::string letters : {"XYZ", "XZY", "YXZ", "YZX", "ZXY", "ZYX"}) {
            for (int signs = 0; signs < 8; ++signs) {
                std::string signedLetters = letters;
                for (size_t axis = 0; axis < 3; ++axis) {
                    if ((signs >> axis & 1) != 0) signedLetters[axis] += 'a' - 'A';
                }
                mappings.push_back(AxisMapping::fromLetters(signedLetters));
            }
        }
        return mappings;
    }();
    return all;
}

TurnProducts::Agreement TurnProducts::agreementOf(const AxisMapping& axes) const {
    Agreement result;
    for (size_t axis = 0; axis < 3; ++axis) {
        Vec3 unit{};
        unit[axis] = 1.0;
        const Vec3 logged = axes.toLogged(unit);
        const Eigen::Map<const Eigen::Vector3d> direction(logged.data());
        const auto a = static_cast<Eigen::Index>(axis);
        result.agreement[a] = cross.row(a).dot(direction);
        result.energy[a] = loggedEnergy.dot(direction.cwiseAbs());
    }
    return result;
}

double TurnProducts::variance() const {
    return (seenEnergy[0] + seenEnergy[1] + lever * seenEnergy[2]) / static_cast<double>(pairs);
}

double TurnProducts::predicted(const LoggedCamera& camera) const {
    const Eigen::Vector3d energy =
        agreementOf(camera.axes).energy * (camera.unit * camera.unit / static_cast<double>(pairs));
    return camera.focal * camera.focal * (energy[0] + energy[1]) + lever * energy[2];
}

double TurnProducts::explained(const LoggedCamera& camera) const {
    return explained(agreementOf(camera.axes), camera.focal, camera.unit);
}

double TurnProducts::explained(const Agreement& in, double focal, double unit) const {
    const double scale = focal * unit;
    const double unexplained =
        seenEnergy[0] + seenEnergy[1] - 2.0 * scale * (in.agreement[0] + in.agreement[1]) +
        scale * scale * (in.energy[0] + in.energy[1]) +
        lever * (seenEnergy[2] - 2.0 * unit * in.agreement[2] + unit * unit * in.energy[2]);
    const double all = seenEnergy[0] + seenEnergy[1] + lever * seenEnergy[2];
    return all > 0.0 ? 1.0 - unexplained / all : 0.0;
}

double TurnProducts::bestFocal(const AxisMapping& axes, double unit) const {
    return agreementOf(axes).bestFocal(unit);
}

double TurnProducts::Agreement::bestFocal(double unit) const {
    const double across = unit * (energy[0] + energy[1]);
    return across > 0.0 ? (agreement[0] + agreement[1]) / across : 0.0;
}

TurnComparison::TurnComparison(const std::vector<FeatureTracks>& samples, const GyroPath& gyro)
    : gyro_(gyro) {
    for (const FeatureTracks& sample : samples) {
        lever_ = (std::pow(sample.width, 2) + std::pow(sample.height, 2)) / 12.0;
        const std::vector<PictureTurn> turns = pictureTurns(sample);
        if (turns.empty()) continue;
        const double seconds = turns.back().to - turns.front().from;
        const auto parts = static_cast<size_t>(std::max(1.0, std::round(seconds / kStretch)));
        for (size_t i = 0; i < parts; ++i) {
            const auto at = [&](size_t part) {
                return turns.begin() + static_cast<ptrdiff_t>(turns.size() * part / parts);
            };
            add({at(i), at(i + 1)});
        }
    }
}

void TurnComparison::add(std::vector<PictureTurn> turns) {
    if (turns.size() < kFewestInStretch) return;
    Stretch stretch;
    const auto count = static_cast<double>(turns.size());
    double length = 0.0;
    for (size_t i = 0; i < turns.size(); ++i) {
        stretch.slope.push_back(static_cast<double>(i) - (count - 1.0) / 2.0);
        length += stretch.slope.back() * stretch.slope.back();
    }
    Eigen::Vector3d mean = Eigen::Vector3d::Zero(), tilt = Eigen::Vector3d::Zero();
    for (size_t i = 0; i < turns.size(); ++i) {
        stretch.slope[i] /= std::sqrt(length);
        mean += turns[i].turn / count;
        tilt += stretch.slope[i] * turns[i].turn;
    }
    stretch.energy.setZero();
    for (size_t i = 0; i < turns.size(); ++i) {
        turns[i].turn -= mean + stretch.slope[i] * tilt;
        stretch.energy += turns[i].turn.cwiseAbs2();
    }
    firstTime_ = turns_ == 0 ? turns.front().from : std::min(firstTime_, turns.front().from);
    lastTime_ = turns_ == 0 ? turns.back().to : std::max(lastTime_, turns.back().to);
    turns_ += turns.size();
    stretch.turns = std::move(turns);
    stretches_.push_back(std::move(stretch));
}

bool TurnComparison::isEnough() const { return turns_ >= kFewestTurns; }

double TurnComparison::variance() const {
    Eigen::Vector3d energy = Eigen::Vector3d::Zero();
    for (const Stretch& stretch : stretches_) energy += stretch.energy;
    if (turns_ == 0) return 0.0;
    return (energy[0] + energy[1] + lever_ * energy[2]) / static_cast<double>(turns_);
}

double shakeOf(const FeatureTracks& tracks) {
    const GyroPath still({{0.0, {}}, {1.0, {}}});
    return std::sqrt(TurnComparison({tracks}, still).variance());
}

std::optional<TurnProducts> TurnComparison::at(double offset) const {
    TurnProducts sums;
    sums.cross.setZero();
    sums.seenEnergy.setZero();
    sums.loggedEnergy.setZero();
    sums.lever = lever_;
    for (const Stretch& stretch : stretches_) {
        const auto& turns = stretch.turns;
        if (turns.front().from + offset < gyro_.firstTime() ||
            turns.back().to + offset > gyro_.lastTime()) {
            continue;
        }
        Eigen::Vector3d sum = Eigen::Vector3d::Zero(), tilt = Eigen::Vector3d::Zero();
        Eigen::Vector3d squares = Eigen::Vector3d::Zero();
        double time = NAN;
        Eigen::Vector3d before = Eigen::Vector3d::Zero();
        for (size_t i = 0; i < turns.size(); ++i) {
            if (turns[i].from != time) before = gyro_.turned(turns[i].from + offset);
            time = turns[i].to;
            const Eigen::Vector3d now = gyro_.turned(time + offset);
            const Eigen::Vector3d turn = now - before;
            before = now;
            sums.cross += turns[i].turn * turn.transpose();
            squares += turn.cwiseAbs2();
            sum += turn;
            tilt += stretch.slope[i] * turn;
        }
        sums.loggedEnergy +=
            squares - sum.cwiseAbs2() / static_cast<double>(turns.size()) - tilt.cwiseAbs2();
        sums.seenEnergy += stretch.energy;
        sums.pairs += turns.size();
    }
    if (sums.pairs < kFewestTurns || 2 * sums.pairs < turns_) return std::nullopt;
    return sums;
}

}  // namespace framehold
