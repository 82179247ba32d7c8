#pragma once

#include "session/session_file.h"
#include "zpr_framehold.h"

#include <stdexcept>

namespace framehold {

/// One instance of the library, released with the object.
class Stabilizer {
public:
    /// recorder: null, or what records everything that the instance is fed.
    /// Throws std::runtime_error if the instance cannot be made.
    explicit Stabilizer(const ZPR_Param& param, SessionWriter* recorder = nullptr);
    ~Stabilizer() { ZPR_Deinit(&handle_); }
    Stabilizer(const Stabilizer&) = delete;
    Stabilizer& operator=(const Stabilizer&) = delete;

    void addSample(const ZPR_SensorData& sample);

    /// Takes a frame; returns whether `output` was written.
    bool stabilize(double timestamp, const ZPR_Image& input, ZPR_Image& output);

    /// Writes a delayed frame to `output`; there must be one.
    void drain(ZPR_Image& output);

private:
    ZPR_Handle handle_ = nullptr;
    SessionWriter* recorder_;
};

}  // namespace framehold
