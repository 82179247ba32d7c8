#include "stabilize/path_observer.h"

#include "common/angles.h"
#include "common/library_constants.h"
#include "common/output_file.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace framehold {

namespace fh = qlx::zpr_framehold;

namespace {

static_assert(kMeshStep == fh::kMeshStep, "the library's grid is another one");

/// As much look-ahead as an instance gives its hub.
double lookAheadSeconds(const ZPR_Param& param) { return param.delayFrames * kDelayFramePeriod; }

/// Distance of `position` from `plain` towards the nearer end of 0 to `last`, as a share of the
/// distance to that end; below 0 if it went inwards.
double shareUsed(double position, double plain, double last) {
    const bool nearStart = plain < last / 2.0;
    const double way = nearStart ? plain : last - plain;
    const double gone = nearStart ? plain - position : position - plain;
    if (way <= 0.0) return gone > 0.0 ? 1.0 : 0.0;
    return gone / way;
}

/// The library's own orientations drift off unit length, which changes nothing for directions.
fh::Quaternion unit(fh::Quaternion q) {
    q.normalize();
    return q;
}

std::string fieldsOf(const std::optional<fh::Quaternion>& q) {
    return q ? fmt::format("{:.9f},{:.9f},{:.9f},{:.9f}", q->w, q->x, q->y, q->z) : ",,,";
}

double degreesBetween(const fh::Quaternion& a, const fh::Quaternion& b) {
    const fh::Quaternion d = a.inverse() * b;
    // The sine resolves small angles, which the cosine does not.
    return toDegrees(2.0 * std::atan2(std::hypot(d.x, d.y, d.z), std::abs(d.w)));
}

std::string rowOf(size_t number, const FrameRecord& frame) {
    std::string angle;
    std::string margin;
    if (frame.measured && frame.corrected) {
        angle = fmt::format("{:.6f}", degreesBetween(*frame.measured, *frame.corrected));
        margin = fmt::format("{:.4f}", frame.marginUsed);
    }
    return fmt::format("{},{:.6f},{},{},{},{},{:.3f},{:.6f}\n", number, frame.time,
                       fieldsOf(frame.measured), fieldsOf(frame.corrected), angle, margin,
                       frame.milliseconds, frame.zoom);
}

}  // namespace

PathObserver::PathObserver(const ZPR_Param& param)
    : param_(param), hub_(param.sensorMask, lookAheadSeconds(param)), smoother_(&param_, &hub_) {
    fh::FrameCorrection plain;
    smoother_.fallbackCorrection(&plain);
    plainCrop_ = borderNodes(plain);
}

void PathObserver::setLevel(int32_t level) {
    param_.smoothingLevel = level;
    smoother_.updateParams(param_);
}

std::optional<ObservedPath> PathObserver::takeFrame(double timestamp) {
    hub_.findOrientationSensor();
    const double time = std::max(0.0, timestamp + param_.timeOffset);
    fh::Quaternion measured;
    const bool isKnown = hub_.getOrientation(time, measured);
    measured_.push_back(isKnown ? std::optional(unit(measured)) : std::nullopt);
    if (measured_.size() <= static_cast<size_t>(param_.delayFrames)) {
        smoother_.smoothFrame(time, nullptr);
        return std::nullopt;
    }
    ObservedPath path;
    path.measured = measured_.front();
    measured_.pop_front();
    fh::FrameCorrection correction;
    if (smoother_.smoothFrame(time, &correction)) {
        path.corrected = unit(smoother_.virtualOrientation());
        path.marginUsed = marginUsedBy(correction);
    }
    return path;
}

PathObserver::Nodes PathObserver::borderNodes(const fh::FrameCorrection& correction) const {
    const fh::SharedArray<fh::MeshPoint>& mesh = *correction[0].mesh;
    const uint32_t columns = fh::meshNodes(param_.outputImage.width);
    const uint32_t rows = fh::meshNodes(param_.outputImage.height);
    Nodes nodes;
    for (uint32_t i = 0; i < rows; ++i) {
        for (uint32_t j = 0; j < columns; ++j) {
            const bool isBorder = i == 0 || j == 0 || i + 1 == rows || j + 1 == columns;
            if (isBorder) nodes.push_back(mesh[i * columns + j]);
        }
    }
    return nodes;
}

double PathObserver::marginUsedBy(const fh::FrameCorrection& correction) const {
    const Nodes nodes = borderNodes(correction);
    const double right = param_.inputImage.width - 1;
    const double bottom = param_.inputImage.height - 1;
    double used = 0.0;
    for (size_t i = 0; i < nodes.size(); ++i) {
        used = std::max({used, shareUsed(nodes[i].x, plainCrop_[i].x, right),
                         shareUsed(nodes[i].y, plainCrop_[i].y, bottom)});
    }
    return used;
}

void writePathTable(const OutputName& name, const RunRecord& run) {
    OutputFile file(name);
    std::ostream& out = file.stream();
    out << "frame,time_s,measured_w,measured_x,measured_y,measured_z,corrected_w,corrected_x,"
           "corrected_y,corrected_z,correction_deg,margin_used,milliseconds,zoom\n";
    for (size_t i = 0; i < run.frames.size(); ++i) out << rowOf(i, run.frames[i]);
    file.commit();
}

}  // namespace framehold
