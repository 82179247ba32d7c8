#pragma once

#include "common/output_file.h"
#include "zpr_framehold.h"

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace framehold {

/// Everything that an instance was fed, in order, so that it can be fed to another build of the
/// library: a head line, the parameters, then events. Numbers are little-endian; frames are
/// stored without padding. The file appears when it is finished.
class SessionWriter {
public:
    /// Throws std::runtime_error, as all functions here do.
    SessionWriter(const std::string& path, const ZPR_Param& param);

    void sample(const ZPR_SensorData& sample);
    void frame(double timestamp, const ZPR_Image& image);
    void drain();
    void finish();

private:
    OutputFile file_;
};

/// Reads a session.
class SessionReader {
public:
    enum class Event { kEnd, kSample, kFrame, kDrain };

    /// Refuses pictures with sides below 2 or above 65536.
    explicit SessionReader(const std::string& path);

    /// The parameters; pitches are the widths.
    const ZPR_Param& param() const { return param_; }

    /// Goes to the next event. Its content is valid until the next call.
    Event next();

    const ZPR_SensorData& sample() const { return sample_; }
    double timestamp() const { return timestamp_; }
    const ZPR_Image& frame() const { return frame_; }

private:
    uint64_t bytesLeft();

    std::string path_;
    std::ifstream in_;
    ZPR_Param param_{};
    ZPR_SensorData sample_{};
    double timestamp_ = 0.0;
    ZPR_Image frame_{};
    std::vector<uint8_t> pixels_;
};

}  // namespace framehold
