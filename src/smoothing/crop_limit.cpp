#include "smoothing/crop_limit.h"

namespace qlx::zpr_framehold {

namespace {

/// Returns true if the output position (x, y) is known to lie in the input.
bool isInside(PointMapper& mapper, const ViewGeometry& view, int32_t x, int32_t y) {
    MeshPoint p;
    return mapper.mapOutputPoint(x, y, -1.0, p) && p.x >= 0.0 && p.x <= view.inputWidth - 1 &&
           p.y >= 0.0 && p.y <= view.inputHeight - 1;
}

}  // namespace

bool CropLimit::violatesCrop(const Quaternion& q, const RowTiming& timing) const {
    if (timing.isRolling && bound_.provesInside(hub_, q, timing)) {
        return false;
    }
    PointMapper mapper(view_, hub_, q, timing);
    const int32_t right = view_.outputWidth - 1;
    const int32_t bottom = view_.outputHeight - 1;
    const auto rowIsInside = [&](int32_t y) {
        return isInside(mapper, view_, 0, y) && isInside(mapper, view_, right, y);
    };
    // The corners first: most violations are there. Between them only the left and right edges are
    // tested.
    if (!rowIsInside(0) || !rowIsInside(bottom)) return true;
    // 64 bits, so that the step past the last row of the tallest frame does not overflow.
    for (int64_t y = kMeshStep; y < bottom; y += kMeshStep) {
        if (!rowIsInside(static_cast<int32_t>(y))) return true;
    }
    return false;
}

bool CropLimit::pullIntoCrop(Quaternion& q, const RowTiming& timing) const {
    if (!violatesCrop(q, timing)) return false;
    Quaternion measured;
    if (!hub_.getOrientation(timing.start + sensorTimeOffset_, measured)) return true;
    float lo = 0.0f;
    float hi = 1.0f;
    do {
        const float mid = (lo + hi) * 0.5f;
        if (violatesCrop(slerp(q, measured, mid), timing)) {
            lo = mid;
        } else {
            hi = mid;
        }
    } while (hi - lo > 0.001f);
    q = slerp(q, measured, hi);
    return true;
}

}  // namespace qlx::zpr_framehold
