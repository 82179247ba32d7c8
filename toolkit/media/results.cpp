#include "media/results.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace framehold {

namespace {

constexpr const char* kMark = "Framehold result";
constexpr const char* kEncoder = "encoder";
/// Tags of files whose streams have none.
constexpr const char* kEncodedBy = "encoded_by";
constexpr const char* kProvider = "service_provider";

bool isMark(const AVDictionary* tags, const char* key) {
    const AVDictionaryEntry* tag = av_dict_get(tags, key, nullptr, 0);
    return tag != nullptr && std::strncmp(tag->value, kMark, std::strlen(kMark)) == 0;
}

AVStream* videoOf(AVFormatContext& file) {
    const int index = av_find_best_stream(&file, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    return index < 0 ? nullptr : file.streams[index];
}

/// Time of the end of the last packet that can be read, in the stream's time base.
int64_t readableEnd(AVFormatContext& file, const AVStream& video) {
    avformat_seek_file(&file, video.index, INT64_MIN, INT64_MAX, INT64_MAX, 0);
    int64_t end = INT64_MIN;
    const AvPtr<AVPacket> packet = makePacket();
    while (av_read_frame(&file, packet.get()) >= 0) {
        const bool isWhole = (packet->flags & AV_PKT_FLAG_CORRUPT) == 0;
        if (packet->stream_index == video.index && isWhole && packet->pts != AV_NOPTS_VALUE) {
            end = std::max(end, packet->pts + packet->duration);
        }
        av_packet_unref(packet.get());
    }
    return end;
}

}  // namespace

void markAsResult(AVFormatContext& file, AVStream& video, const std::string& encoder) {
    const std::string_view container = file.oformat->name;
    const std::string text = kMark + (" (" + encoder + ")");
    av_dict_set(&video.metadata, kEncoder, text.c_str(), 0);
    if (container == "mpegts") av_dict_set(&file.metadata, kProvider, kMark, 0);
    if (container == "avi" || container == "flv") av_dict_set(&file.metadata, kEncodedBy, kMark, 0);
}

bool isMarkedAsResult(const AVFormatContext& file) {
    if (isMark(file.metadata, kEncodedBy) || isMark(file.metadata, kProvider)) return true;
    for (unsigned i = 0; i < file.nb_programs; ++i) {
        if (isMark(file.programs[i]->metadata, kProvider)) return true;
    }
    for (unsigned i = 0; i < file.nb_streams; ++i) {
        if (isMark(file.streams[i]->metadata, kEncoder)) return true;
    }
    return false;
}

bool isResult(const std::string& path) {
    try {
        const AvInput file = openContainer(path);
        // Such files tell what they hold only as they are read.
        if ((file->ctx_flags & AVFMTCTX_NOHEADER) != 0) readStreamInfo(*file, path);
        return isMarkedAsResult(*file);
    } catch (const MediaError&) {
        return false;
    }
}

bool isCompleteVideo(const std::string& path) {
    try {
        const AvInput file = openInput(path);
        AVStream* video = videoOf(*file);
        if (video == nullptr) return false;
        const int64_t end = readableEnd(*file, *video);
        if (end == INT64_MIN || video->duration <= 0) return end != INT64_MIN;
        const int64_t start = video->start_time == AV_NOPTS_VALUE ? 0 : video->start_time;
        // Where frames are not counted, the duration is that of the file, and sound may go on longer.
        const AVRational frame = av_inv_q(av_guess_frame_rate(file.get(), video, nullptr));
        const int64_t slack = video->nb_frames > 0 ? av_rescale_q(1, frame, video->time_base)
                                                   : av_rescale_q(1, {1, 2}, video->time_base);
        return end + slack >= start + video->duration;
    } catch (const MediaError&) {
        return false;
    }
}

}  // namespace framehold
