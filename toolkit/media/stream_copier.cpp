#include "media/stream_copier.h"

#include "media/metadata_types.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include <fmt/format.h>

extern "C" {
#include <libavutil/mem.h>
}

namespace framehold {

namespace {

/// Tracks that containers make by themselves, of the video's metadata and of the chapters.
bool isMadeByContainer(const AVFormatContext& file, const AVStream& stream) {
    const uint32_t tag = stream.codecpar->codec_tag;
    const bool isData = stream.codecpar->codec_type == AVMEDIA_TYPE_DATA;
    const bool isTimecode = tag == MKTAG('t', 'm', 'c', 'd');
    const bool isChapters = tag == MKTAG('t', 'e', 'x', 't') && file.nb_chapters > 0;
    return isData && (isTimecode || isChapters);
}

/// True for logs of the camera's motion, CAMM, GPMF and timed metadata of sensors: a stabilized
/// picture moves otherwise.
bool isMotionLog(const AVFormatContext& file, const AVStream& stream) {
    const AVCodecParameters& codec = *stream.codecpar;
    if (codec.codec_type != AVMEDIA_TYPE_DATA) return false;
    if (codec.codec_tag != MKTAG('m', 'e', 't', 't')) {
        return codec.codec_tag == MKTAG('g', 'p', 'm', 'd') ||
               codec.codec_tag == MKTAG('c', 'a', 'm', 'm');
    }
    const std::string path = pathOf(file);
    if (path.empty()) return false;
    const auto types = metadataTypes(path);
    const auto type = types.find(stream.id);
    return type != types.end() && isSensorMetadata(type->second);
}

bool isMatroska(const AVOutputFormat& container) {
    return std::string_view(container.name) == "matroska";
}

bool hasTag(const AVStream& stream, const char* key) {
    return av_dict_get(stream.metadata, key, nullptr, 0) != nullptr;
}

/// Matroska holds any file, if its name and its type are known.
bool isWholeAttachment(const AVStream& stream) {
    return stream.codecpar->codec_type == AVMEDIA_TYPE_ATTACHMENT && hasTag(stream, "filename") &&
           hasTag(stream, "mimetype") && stream.codecpar->extradata_size > 0;
}

bool isCover(const AVStream& stream) {
    const bool isPicture = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
    const AVCodecID codec = stream.codecpar->codec_id;
    return isPicture && stream.attached_pic.size > 0 &&
           (codec == AV_CODEC_ID_MJPEG || codec == AV_CODEC_ID_PNG);
}

/// The tag that the container is to give the stream; 0 leaves the choice to it.
uint32_t tagFor(const AVOutputFormat& container, const AVCodecParameters& codec) {
    if (container.codec_tag == nullptr) return codec.codec_tag;
    const bool isItsOwn = av_codec_get_id(container.codec_tag, codec.codec_tag) == codec.codec_id;
    return isItsOwn ? codec.codec_tag : 0;
}

bool canHold(const AVOutputFormat& container, const AVCodecParameters& codec) {
    const int answer = avformat_query_codec(&container, codec.codec_id, FF_COMPLIANCE_NORMAL);
    // Containers without a list of codecs, as transport streams, say that they do not know.
    const bool isSound = codec.codec_type == AVMEDIA_TYPE_AUDIO;
    if (answer < 0 && isSound) return container.audio_codec != AV_CODEC_ID_NONE;
    if (answer != 1) return false;
    // Data without a codec of its own is identified by the tag alone.
    return codec.codec_type != AVMEDIA_TYPE_DATA || tagFor(container, codec) != 0;
}

std::string describe(const AVStream& stream) {
    const AVCodecParameters& codec = *stream.codecpar;
    if (codec.codec_type == AVMEDIA_TYPE_ATTACHMENT && hasTag(stream, "filename")) {
        return fmt::format("stream {} (attachment, {})", stream.index,
                           av_dict_get(stream.metadata, "filename", nullptr, 0)->value);
    }
    const char* type = av_get_media_type_string(codec.codec_type);
    char tag[AV_FOURCC_MAX_STRING_SIZE] = {};
    const bool isKnown =
        codec.codec_id != AV_CODEC_ID_NONE && codec.codec_id != AV_CODEC_ID_BIN_DATA;
    const char* name =
        isKnown ? avcodec_get_name(codec.codec_id) : av_fourcc_make_string(tag, codec.codec_tag);
    return fmt::format("stream {} ({}, {})", stream.index, type != nullptr ? type : "unknown",
                       name);
}

}  // namespace

StreamCopier::StreamCopier(AVFormatContext& to, const AVFormatContext& from, int leaveOut,
                           const std::string& whyNoTelemetry)
    : to_(to) {
    for (unsigned i = 0; i < from.nb_streams; ++i) {
        const AVStream& stream = *from.streams[i];
        if (stream.index == leaveOut || isMadeByContainer(from, stream)) continue;
        const AVCodecParameters& codec = *stream.codecpar;
        if (isMotionLog(from, stream)) {
            losses_.push_back(describe(stream) + " is left out: " + whyNoTelemetry);
        } else if (isMatroska(*to.oformat) && isCover(stream)) {
            addCover(stream);
        } else if (isCover(stream) && std::string_view(to.oformat->name) == "mov") {
            losses_.push_back(describe(stream) + " is left out: mov has no cover pictures");
        } else if (canHold(*to.oformat, codec) ||
                   (isMatroska(*to.oformat) && isWholeAttachment(stream))) {
            addStream(stream);
        } else {
            losses_.push_back(fmt::format("{} is left out: {} cannot hold it", describe(stream),
                                          to.oformat->name));
        }
    }
    addChapters(from);
}

/// Copies how pictures are to be shown and coded: rotation, HDR metadata, and the like.
void StreamCopier::copySideData(const AVStream& from, AVStream& to) {
    for (int i = 0; i < from.nb_side_data; ++i) {
        const AVPacketSideData& data = from.side_data[i];
        uint8_t* copy = av_stream_new_side_data(&to, data.type, data.size);
        if (copy == nullptr) throw std::bad_alloc();
        std::copy_n(data.data, data.size, copy);
    }
}

void StreamCopier::addStream(const AVStream& from) {
    AVStream* to = avformat_new_stream(&to_, nullptr);
    if (to == nullptr || avcodec_parameters_copy(to->codecpar, from.codecpar) < 0) {
        throw std::bad_alloc();
    }
    to->codecpar->codec_tag = tagFor(*to_.oformat, *from.codecpar);
    to->time_base = from.time_base;
    to->disposition = from.disposition;
    to->sample_aspect_ratio = from.sample_aspect_ratio;
    av_dict_copy(&to->metadata, from.metadata, 0);
    if (from.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) copySideData(from, *to);
    copies_[from.index] = {to, from.time_base};
}

/// Adds a cover picture as Matroska has it, an attachment: as a video it would be one of one frame.
void StreamCopier::addCover(const AVStream& from) {
    AVStream* to = avformat_new_stream(&to_, nullptr);
    const auto size = static_cast<size_t>(from.attached_pic.size);
    auto* bytes = static_cast<uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
    if (to == nullptr || bytes == nullptr) throw std::bad_alloc();
    std::copy_n(from.attached_pic.data, size, bytes);
    to->codecpar->codec_type = AVMEDIA_TYPE_ATTACHMENT;
    to->codecpar->codec_id = from.codecpar->codec_id;
    to->codecpar->extradata = bytes;
    to->codecpar->extradata_size = from.attached_pic.size;
    const bool isPng = from.codecpar->codec_id == AV_CODEC_ID_PNG;
    av_dict_copy(&to->metadata, from.metadata, 0);
    av_dict_set(&to->metadata, "filename", isPng ? "cover.png" : "cover.jpg", 0);
    av_dict_set(&to->metadata, "mimetype", isPng ? "image/png" : "image/jpeg", 0);
}

void StreamCopier::addChapters(const AVFormatContext& from) {
    if (from.nb_chapters == 0) return;
    to_.chapters = static_cast<AVChapter**>(av_calloc(from.nb_chapters, sizeof *to_.chapters));
    if (to_.chapters == nullptr) throw std::bad_alloc();
    for (unsigned i = 0; i < from.nb_chapters; ++i) {
        auto* chapter = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
        if (chapter == nullptr) throw std::bad_alloc();
        *chapter = *from.chapters[i];
        chapter->metadata = nullptr;
        to_.chapters[to_.nb_chapters++] = chapter;
        av_dict_copy(&chapter->metadata, from.chapters[i]->metadata, 0);
    }
}

int StreamCopier::copy(const AVPacket& packet) const {
    const auto found = copies_.find(packet.stream_index);
    if (found == copies_.end()) return 0;
    const Copy& target = found->second;
    const AvPtr<AVPacket> copy(av_packet_clone(&packet));
    if (!copy) throw std::bad_alloc();
    copy->stream_index = target.stream->index;
    copy->pos = -1;
    av_packet_rescale_ts(copy.get(), target.sourceTimeBase, target.stream->time_base);
    return av_interleaved_write_frame(&to_, copy.get());
}

}  // namespace framehold
