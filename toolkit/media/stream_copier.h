#pragma once

#include "media/libav.h"

#include <map>
#include <string>
#include <vector>

namespace framehold {

/// Copies the streams of a file that are not re-encoded (sound, subtitles, data, attachments, cover
/// pictures) to another file, packet by packet, and its chapters.
class StreamCopier {
public:
    /// Adds a stream to `to`, whose header is not yet written, for each stream of `from` that the
    /// container can hold, but not for the one of index `leaveOut`, and none for telemetry.
    /// to: borrowed. whyNoTelemetry: for the user.
    StreamCopier(
        AVFormatContext& to, const AVFormatContext& from, int leaveOut,
        const std::string& whyNoTelemetry = "its motion is not that of the stabilized picture");

    /// Streams that are left out, each a sentence for the user.
    const std::vector<std::string>& losses() const { return losses_; }

    /// Writes a packet of the source, if its stream is one of those that are copied. Returns a code
    /// of FFmpeg's libraries, below 0 for errors.
    int copy(const AVPacket& packet) const;

private:
    struct Copy {
        AVStream* stream;
        AVRational sourceTimeBase;
    };

    static void copySideData(const AVStream& from, AVStream& to);
    void addStream(const AVStream& from);
    void addCover(const AVStream& from);
    void addChapters(const AVFormatContext& from);

    AVFormatContext& to_;
    std::map<int, Copy> copies_;  // by stream index in the source
    std::vector<std::string> losses_;
};

}  // namespace framehold
