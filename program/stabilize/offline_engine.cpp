#include "stabilize/offline_engine.h"

#include <chrono>
#include <stdexcept>

namespace framehold {

namespace {

qlx::zpr_framehold::Quaternion quaternion(const Eigen::Quaterniond& q) {
    return {q.w(), q.x(), q.y(), q.z()};
}

}  // namespace

void OfflineEngine::push(const AVFrame& frame, double /*time*/) {
    using Clock = std::chrono::steady_clock;
    if (next_ == plan_.views.size()) {
        throw std::runtime_error("the video has more frames than when it was read first");
    }
    const double rowTime = plan_.rowTimes[next_];
    const View& view = plan_.views[next_];
    StabilizedFrame result;
    const Clock::time_point start = Clock::now();
    result.picture = renderer_.render(frame, rowTime, plan_.track, view);
    result.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    if (keepsOriginals_) result.original.reset(av_frame_clone(&frame));
    result.time = rowTime;
    result.path = {quaternion(plan_.track.at(rowTime)), quaternion(view.orientation),
                   plan_.marginUsed[next_], view.zoom};
    ++next_;
    sink_(result);
}

}  // namespace framehold
