#pragma once

#include "common/output_file.h"
#include "zpr_framehold.h"

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace framehold {

/// Writes a session: all input of an instance, in order, so that it can be fed to another build of
/// the library. The file holds a head line, the parameters, then events. Numbers are little-endian;
/// frames are stored without padding. The file appears under its name when it is finished.
class SessionWriter {
public:
    /// Throws std::runtime_error if the file cannot be opened.
    SessionWriter(const OutputName& name, const ZPR_Param& param);

    void sample(const ZPR_SensorData& sample);
    void frame(double timestamp, const ZPR_Image& image);
    /// Sets the smoothing level from the next frame on; until the first call it is the parameters'.
    void level(int32_t level);
    /// Writes the event of a call without an input frame.
    void drain();

    /// Throws std::runtime_error if anything could not be written.
    void finish();

private:
    OutputFile file_;
};

/// Reads a session. All functions throw std::runtime_error for files that are no session, or are
/// damaged.
class SessionReader {
public:
    enum class Event { kEnd, kSample, kFrame, kDrain, kLevel };

    /// Refused are pictures with sides below 2 or above 65536, and parameters whose instance would
    /// keep more than 1 GiB of pictures, if that is more than twice the file's size. What is not a
    /// regular file is refused, too.
    explicit SessionReader(const std::string& path);

    /// Parameters of the instance; pitches are the widths.
    const ZPR_Param& param() const { return param_; }

    /// Goes to the next event. Its content is valid until the next call.
    Event next();

    // Content of the event, where it has such.

    const ZPR_SensorData& sample() const { return sample_; }
    double timestamp() const { return timestamp_; }
    const ZPR_Image& frame() const { return frame_; }
    int32_t level() const { return level_; }

private:
    /// Number of bytes from the current position to the end.
    uint64_t bytesLeft();
    /// Throws for parameters that would take more memory than the file accounts for.
    void requireMemory();

    std::string path_;
    std::ifstream in_;
    ZPR_Param param_{};
    ZPR_SensorData sample_{};
    double timestamp_ = 0.0;
    ZPR_Image frame_{};
    std::vector<uint8_t> pixels_;
    int32_t level_ = 0;
};

}  // namespace framehold
