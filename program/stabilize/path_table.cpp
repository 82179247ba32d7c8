#include "stabilize/path_table.h"

#include "common/angles.h"
#include "common/output_file.h"

#include <cmath>

#include <fmt/format.h>

namespace framehold {

using qlx::zpr_framehold::Quaternion;

namespace {

std::string fieldsOf(const std::optional<Quaternion>& q) {
    return q ? fmt::format("{:.9f},{:.9f},{:.9f},{:.9f}", q->w, q->x, q->y, q->z) : ",,,";
}

double degreesBetween(const Quaternion& a, const Quaternion& b) {
    const Quaternion d = a.inverse() * b;
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
    return fmt::format("{},{:.6f},{},{},{},{},{:.3f}\n", number, frame.time,
                       fieldsOf(frame.measured), fieldsOf(frame.corrected), angle, margin,
                       frame.milliseconds);
}

}  // namespace

void writePathTable(const std::string& path, const RunRecord& run) {
    OutputFile file(path);
    std::ostream& out = file.stream();
    out << "frame,time_s,measured_w,measured_x,measured_y,measured_z,corrected_w,corrected_x,"
           "corrected_y,corrected_z,correction_deg,margin_used,milliseconds\n";
    for (size_t i = 0; i < run.frames.size(); ++i) out << rowOf(i, run.frames[i]);
    file.commit();
}

}  // namespace framehold
