#pragma once

#include "core/array_planes.h"
#include "zpr_framehold.h"
#include "zpr_smoothing_policy.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

#include <pybind11/numpy.h>
#include <sys/types.h>

namespace framehold {

/// Base of the Python class framehold.Stabilizer: an instance of the library.
///
/// Calls that take long release the interpreter's lock. Calls of two threads at once are an error of
/// the later one, and change nothing; `close` may come at any time, and what is running then ends as
/// usual and releases the instance.
class StabilizerClass {
public:
    /// parameters: a framehold.Parameters. choosesLevel: the smoothing level of every frame, by
    /// zpr_smoothing_policy.h. Throws std::bad_alloc.
    StabilizerClass(const pybind11::object& parameters, bool choosesLevel);
    ~StabilizerClass();
    StabilizerClass(const StabilizerClass&) = delete;
    StabilizerClass& operator=(const StabilizerClass&) = delete;

    /// sample: a framehold.Sample, or an array of framehold.SAMPLE_DTYPE. Throws ParameterError for a
    /// type that is not enabled, and takes none of the samples then.
    void push(const pybind11::object& sample);

    /// The stabilized frame; None while frames are only buffered. Throws ParameterError.
    pybind11::object stabilize(const pybind11::object& frame, double time,
                               const pybind11::object& out);

    /// The oldest frame that is still delayed; None if there is none. Throws ParameterError.
    pybind11::object drain(const pybind11::object& out);

    void reset();
    void close();
    bool isClosed() const { return state_ >= kClosing; }

    /// Addresses that the last `stabilize` gave to the library: luma and chroma of the input, then of
    /// the output; 0 before.
    const std::array<uintptr_t, 4>& lastAddresses() const { return lastAddresses_; }

    /// Level of the next frame; if it is chosen, of the last one.
    int32_t smoothingLevel() const { return param_.smoothingLevel; }
    void setSmoothingLevel(const pybind11::object& value);

private:
    enum State { kIdle, kBusy, kClosing, kClosed };

    /// Sole use of the instance for the length of a call.
    class Use {
    public:
        /// Throws std::runtime_error if the instance is closed, or used by another thread, or not of
        /// this process.
        explicit Use(StabilizerClass& owner);
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

    private:
        StabilizerClass& owner_;
    };

    void startPolicy();
    bool isForeign() const;
    void release();
    ArrayPlanes outputFor(const pybind11::object& out, bool isPair) const;
    const ZPR_Image& laidOutForDelay(const ZPR_Image& image);
    int feed(const ZPR_SensorData* samples, size_t count);

    ZPR_Param param_{};
    int32_t strongest_;                          // level of the parameters
    std::optional<ZPR_SmoothingPolicy> policy_;  // if it chooses the level
    ZPR_Handle handle_ = nullptr;
    pid_t process_;  // that the instance and its workers belong to
    std::atomic<int> state_{kIdle};
    bool isLastPair_ = false;      // the last frame's form
    std::vector<uint8_t> pixels_;  // of `packed_`
    ZPR_Image packed_{};
    std::array<uintptr_t, 4> lastAddresses_{};
};

/// Adds the class to the module, as `Stabilizer`, and smoothing_levels.
void addStabilizer(pybind11::module_& module);

}  // namespace framehold
