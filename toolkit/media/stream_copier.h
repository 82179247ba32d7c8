#pragma once

#include "media/libav.h"

#include <map>
#include <string>
#include <vector>

namespace framehold {

/// Carries the streams of a file that are not re-encoded (sound, subtitles, data, attachments,
/// cover pictures) over to another file, packet by packet, and its chapters.
class StreamCopier {
public:
    /// Adds a stream to `to`, whose header is not yet written, for each one of `from` but
    /// `leaveOut` that the container can hold.
    StreamCopier(AVFormatContext& to, const AVFormatContext& from, int leaveOut);

    /// What is left behind, each a sentence for the user.
    const std::vector<std::string>& losses() const { return losses_; }

    /// Writes a packet of the source, if its stream is one of those that are copied. Returns
    /// libav's code.
    int copy(const AVPacket& packet) const;

private:
    struct Copy {
        AVStream* stream;
        AVRational sourceTimeBase;
    };

    void addStream(const AVStream& from);
    void addChapters(const AVFormatContext& from);

    AVFormatContext& to_;
    std::map<int, Copy> copies_;  // by stream index in the source
    std::vector<std::string> losses_;
};

}  // namespace framehold
