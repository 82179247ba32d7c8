#pragma once

#include "media/pixel_converter.h"
#include "media/task_thread.h"
#include "media/video_reader.h"
#include "media/video_writer.h"
#include "stabilize/run_summary.h"
#include "stabilize/stabilize_options.h"

namespace framehold {

/// Throws MediaError if the encoder that the options name does not exist or take them.
void checkEncoding(const StabilizeOptions& options);

/// Throws std::runtime_error if the clip's result cannot be encoded or its file not be made, before
/// the work on its frames begins.
void checkOutput(const StabilizeOptions& options, const VideoReader& source);

/// True for a run whose frames keep the source's depth and chroma: the library takes, and frames
/// side by side are, 8-bit two-plane ones.
inline bool keepsPixels(const StabilizeOptions& options) {
    return options.clip.engine == Engine::kOffline && !options.sideBySide;
}

/// The video that a clip is written to, by a thread of its own: errors come with a later call.
class ClipOutput {
public:
    /// source: borrowed. hdr: of its frames. Throws MediaError, as all functions.
    ClipOutput(const StabilizeOptions& options, const VideoReader& source, const HdrMetadata& hdr);

    /// Prints what the result cannot keep of the source.
    void announce(RunMessages& messages) const;

    /// Takes a stabilized frame, and for frames side by side the frame of the source that it was made
    /// of (else it may be null). Both are kept, and must not be written to.
    void write(const AVFrame& stable, const AVFrame* original);

    /// Takes a packet of the source's other streams.
    void copyPacket(const AVPacket& packet);

    void finish();

private:
    void encode(const AVFrame& stable, const AVFrame* original);

    const VideoReader& source_;
    bool isSideBySide_;
    VideoSettings settings_;
    VideoWriter writer_;
    PixelConverter converter_;  // to two planes, for frames side by side
    TaskThread thread_;         // last: it uses the others
};

}  // namespace framehold
