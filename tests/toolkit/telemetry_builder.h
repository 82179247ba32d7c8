// Makes GPMF and CAMM packets and video files that hold them.
#pragma once

#include "media/libav.h"
#include "media/telemetry_track.h"

#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace zpr_test {

/// The low bytes of a number, the first one last or first.
inline std::string bytesOf(uint64_t bits, int size, bool bigEndian) {
    std::string bytes;
    for (int i = 0; i < size; ++i) {
        const int shift = 8 * (bigEndian ? size - 1 - i : i);
        bytes += static_cast<char>(bits >> shift & 0xFF);
    }
    return bytes;
}

/// A GPMF record; `size` bytes to an element.
inline std::string gpmf(const std::string& key, char type, size_t size, std::string data) {
    const std::string head =
        key + type + bytesOf(size, 1, true) + bytesOf(data.size() / size, 2, true);
    data.resize((data.size() + 3) / 4 * 4);
    return head + data;
}

inline std::string gpmfInside(const std::string& key, const std::string& records) {
    return gpmf(key, '\0', 1, records);
}

inline std::string shorts(const std::vector<int>& values) {
    std::string bytes;
    for (const int v : values) bytes += bytesOf(static_cast<uint64_t>(v), 2, true);
    return bytes;
}

/// A packet with ten samples of each sensor, the gyroscope's with channels Y, -X, Z.
inline std::string gpmfPacket(int samplesSoFar,
                              const std::string& axes = gpmf("ORIN", 'c', 1, "YxZ")) {
    const auto count = [&] {
        return gpmf("TSMP", 'L', 4, bytesOf(static_cast<uint64_t>(samplesSoFar), 4, true));
    };
    std::vector<int> rates, gravity;
    for (int i = 0; i < 10; ++i) {
        rates.insert(rates.end(), {100 + i, -200, 50});
        gravity.insert(gravity.end(), {40, -30 - i, 981});
    }
    return gpmfInside(
        "DEVC", gpmf("DVID", 'L', 4, bytesOf(1, 4, true)) +
                    gpmfInside("STRM", count() + gpmf("SIUN", 'c', 5, "rad/s") +
                                           gpmf("SCAL", 's', 2, shorts({1000})) + axes +
                                           gpmf("GYRO", 's', 6, shorts(rates))) +
                    gpmfInside("STRM", count() + gpmf("SIUN", 'c', 4, "m/s\xB2") +
                                           gpmf("SCAL", 's', 2, shorts({100, 100, 200})) + axes +
                                           gpmf("ACCL", 's', 6, shorts(gravity))));
}

/// A CAMM reading of floats.
inline std::string camm(uint64_t type, const std::vector<float>& values) {
    std::string bytes = bytesOf(0, 2, false) + bytesOf(type, 2, false);
    for (const float v : values) {
        uint32_t bits;
        std::memcpy(&bits, &v, sizeof bits);
        bytes += bytesOf(bits, 4, false);
    }
    return bytes;
}

/// Writes a MOV file with a GPMF track and nothing else; times in milliseconds.
inline void writeTelemetryFile(const std::string& path,
                               const std::vector<framehold::TelemetryPacket>& packets) {
    AVFormatContext* out = nullptr;
    avformat_alloc_output_context2(&out, nullptr, "mov", path.c_str());
    AVStream* stream = avformat_new_stream(out, nullptr);
    stream->codecpar->codec_type = AVMEDIA_TYPE_DATA;
    stream->codecpar->codec_id = AV_CODEC_ID_BIN_DATA;
    stream->codecpar->codec_tag = MKTAG('g', 'p', 'm', 'd');
    stream->time_base = {1, 1000};
    avio_open(&out->pb, path.c_str(), AVIO_FLAG_WRITE);
    const bool isOpen = avformat_write_header(out, nullptr) >= 0;
    for (const auto& p : packets) {
        framehold::AvPtr<AVPacket> packet = framehold::makePacket();
        av_new_packet(packet.get(), static_cast<int>(p.bytes.size()));
        std::memcpy(packet->data, p.bytes.data(), p.bytes.size());
        packet->pts = packet->dts = static_cast<int64_t>(p.time * 1000.0 + 0.5);
        packet->duration = static_cast<int64_t>(p.duration * 1000.0 + 0.5);
        av_packet_rescale_ts(packet.get(), {1, 1000}, stream->time_base);
        if (isOpen) av_write_frame(out, packet.get());
    }
    if (isOpen) av_write_trailer(out);
    avio_closep(&out->pb);
    avformat_free_context(out);
}

}  // namespace zpr_test
