#pragma once

#include "media/video_reader.h"
#include "media/video_writer.h"
#include "stabilize/run_summary.h"
#include "stabilize/stabilize_options.h"

namespace framehold {

/// Throws MediaError if the encoder that the options name does not exist or take them.
void checkEncoding(const StabilizeOptions& options);

/// The video that a clip is written to.
class ClipOutput {
public:
    /// source: borrowed. Throws MediaError, as all functions.
    ClipOutput(const StabilizeOptions& options, const VideoReader& source);

    /// Prints what the result cannot keep of the source.
    void announce(RunMessages& messages) const;

    /// Takes a stabilized frame, and the frame of the source that it was made of.
    void write(const AVFrame& stable, const AVFrame& original);

    /// Takes a packet of the source's other streams.
    void copyPacket(const AVPacket& packet) { writer_.copyPacket(packet); }

    void finish() { writer_.finish(); }

private:
    const VideoReader& source_;
    bool isSideBySide_;
    VideoSettings settings_;
    VideoWriter writer_;
};

}  // namespace framehold
