// Videos in and out: depth, chroma and HDR; work on a thread of its own.
#include "media/planar_frame.h"
#include "media/task_thread.h"
#include "media/video_writer.h"
#include "support/temporary_folder.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

// What the leak checker leaves out: libx265 loses a little memory of its own.
extern "C" const char* __lsan_default_suppressions();
const char* __lsan_default_suppressions() { return "leak:libx265\n"; }

using namespace framehold;
using namespace zpr_test;

namespace {

constexpr int kWidth = 64;
constexpr int kHeight = 48;

AvPtr<AVFrame> grayFrame(AVPixelFormat format, int64_t pts) {
    AvPtr<AVFrame> frame = makeFrame(format, kWidth, kHeight);
    const ptrdiff_t pitches[4] = {frame->linesize[0], frame->linesize[1], frame->linesize[2],
                                  frame->linesize[3]};
    av_image_fill_black(frame->data, pitches, format, AVCOL_RANGE_MPEG, kWidth, kHeight);
    frame->pts = pts;
    return frame;
}

HdrMetadata hdrOfStudio() {
    const auto in = [](int value) { return AVRational{value, 50000}; };
    AVMasteringDisplayMetadata display{};
    const int primaries[3][2] = {{34000, 16000}, {13250, 34500}, {7500, 3000}};
    for (int i = 0; i < 3; ++i) {
        for (int k = 0; k < 2; ++k) display.display_primaries[i][k] = in(primaries[i][k]);
    }
    display.white_point[0] = in(15635);
    display.white_point[1] = in(16450);
    display.min_luminance = {50, 10000};
    display.max_luminance = {10000000, 10000};
    display.has_primaries = display.has_luminance = 1;
    return {display, AVContentLightMetadata{1000, 400}};
}

/// Writes two frames of 10-bit PQ as HEVC with all metadata, by FFmpeg's libraries alone.
void writeHdrClip(const std::string& path) {
    const AVCodec* encoder = avcodec_find_encoder_by_name("libx265");
    const AvPtr<AVCodecContext> codec(avcodec_alloc_context3(encoder));
    codec->width = kWidth;
    codec->height = kHeight;
    codec->pix_fmt = AV_PIX_FMT_YUV420P10;
    codec->time_base = {1, 30};
    codec->framerate = {30, 1};
    codec->flags = AV_CODEC_FLAG_GLOBAL_HEADER;
    codec->color_range = AVCOL_RANGE_MPEG;
    codec->color_primaries = AVCOL_PRI_BT2020;
    codec->color_trc = AVCOL_TRC_SMPTE2084;
    codec->colorspace = AVCOL_SPC_BT2020_NCL;
    codec->chroma_sample_location = AVCHROMA_LOC_TOPLEFT;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "x265-params",
                "log-level=none:max-cll=1000,400:master-display=G(13250,34500)B(7500,3000)"
                "R(34000,16000)WP(15635,16450)L(10000000,50)",
                0);
    ASSERT_EQ(avcodec_open2(codec.get(), encoder, &options), 0);
    av_dict_free(&options);
    AVFormatContext* file = nullptr;
    avformat_alloc_output_context2(&file, nullptr, "mp4", path.c_str());
    AVStream* stream = avformat_new_stream(file, nullptr);
    avcodec_parameters_from_context(stream->codecpar, codec.get());
    stream->time_base = codec->time_base;
    ASSERT_GE(avio_open(&file->pb, path.c_str(), AVIO_FLAG_WRITE), 0);
    ASSERT_GE(avformat_write_header(file, nullptr), 0);
    const AvPtr<AVPacket> packet = makePacket();
    for (int i = 0; i < 3; ++i) {
        const AvPtr<AVFrame> frame = grayFrame(codec->pix_fmt, i);
        avcodec_send_frame(codec.get(), i < 2 ? frame.get() : nullptr);
        while (avcodec_receive_packet(codec.get(), packet.get()) == 0) {
            av_packet_rescale_ts(packet.get(), codec->time_base, stream->time_base);
            av_interleaved_write_frame(file, packet.get());
        }
    }
    av_write_trailer(file);
    avio_closep(&file->pb);
    avformat_free_context(file);
}

/// The metadata in words, to be compared.
std::string text(const HdrMetadata& metadata) { return hdrParameters(metadata, "libx265"); }

TEST(VideoWriter, KeepsHdrUnlessSomethingElseIsAskedFor) {
    keepLibavMessages();
    const TemporaryFolder folder;
    const std::string source = folder.path("source.mp4");
    writeHdrClip(source);
    VideoReader whole(source);
    while (whole.next() != nullptr) continue;
    EXPECT_EQ(text(whole.hdrMetadata()), text(hdrOfStudio()));
    const struct {
        const char* file;
        const char* encoder;
        const char* pixelFormat;
        AVCodecID codec;
        AVPixelFormat result;
        const char* error;
    } kCases[] = {
        {"out.mp4", "", "", AV_CODEC_ID_HEVC, AV_PIX_FMT_YUV420P10, nullptr},
        {"out.mkv", "", "", AV_CODEC_ID_HEVC, AV_PIX_FMT_YUV420P10, nullptr},
        {"high10.mp4", "libx264", "", AV_CODEC_ID_H264, AV_PIX_FMT_YUV420P10, nullptr},
        {"asked.mp4", "libx264", "yuv420p", AV_CODEC_ID_H264, AV_PIX_FMT_YUV420P, nullptr},
        {"mpeg4.mp4", "mpeg4", "", {}, {}, "--pixel-format yuv420p to have it so"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.file);
        const std::string path = folder.path(c.file);
        const std::string error = errorOf([&] {
            VideoReader reader(source);
            const AVFrame* frame = reader.nextPlanar();
            ASSERT_NE(frame, nullptr);
            VideoSettings settings;
            settings.width = kWidth;
            settings.height = kHeight;
            settings.timeBase = reader.timeBase();
            settings.frameFormat = reader.planarFormat();
            settings.encoder = c.encoder;
            settings.pixelFormat = c.pixelFormat;
            VideoWriter writer({path}, settings, &reader);
            for (; frame != nullptr; frame = reader.nextPlanar()) writer.write(*frame);
            writer.finish();
        });
        if (c.error != nullptr) {
            EXPECT_NE(error.find(c.error), std::string::npos) << error;
            continue;
        }
        ASSERT_EQ(error, "none");
        VideoReader reader(path);
        ASSERT_NE(reader.nextPlanar(), nullptr);
        EXPECT_EQ(reader.codec().codec_id, c.codec);
        EXPECT_EQ(reader.codec().pix_fmt, c.result);
        const ColourTags tags = reader.colours();
        EXPECT_EQ(tags.range, AVCOL_RANGE_MPEG);
        EXPECT_EQ(tags.primaries, AVCOL_PRI_BT2020);
        EXPECT_EQ(tags.transfer, AVCOL_TRC_SMPTE2084);
        EXPECT_EQ(tags.matrix, AVCOL_SPC_BT2020_NCL);
        EXPECT_EQ(tags.chromaLocation, AVCHROMA_LOC_TOPLEFT);
        EXPECT_EQ(text(reader.hdrMetadata()), text(hdrOfStudio()));
        if (c.codec == AV_CODEC_ID_HEVC && path.find(".mp4") != std::string::npos) {
            EXPECT_EQ(reader.stream().codecpar->codec_tag, MKTAG('h', 'v', 'c', '1'));
        }
    }
}

TEST(VideoWriter, KeepsDepthAndChromaWhereTheEncoderCan) {
    keepLibavMessages();
    const TemporaryFolder folder;
    const struct {
        const char* file;
        AVPixelFormat frames;
        int width;
        const char* encoder;
        AVPixelFormat result;
    } kCases[] = {
        {"a.mp4", AV_PIX_FMT_NV12, kWidth, "libx264", AV_PIX_FMT_YUV420P},
        {"a.mp4", AV_PIX_FMT_YUV422P, kWidth, "libx264", AV_PIX_FMT_YUV422P},
        {"a.mp4", AV_PIX_FMT_YUV444P10, kWidth, "libx265", AV_PIX_FMT_YUV444P10},
        {"a.mp4", AV_PIX_FMT_YUV420P16, kWidth, "libx265", AV_PIX_FMT_YUV420P12},
        {"a.mp4", AV_PIX_FMT_GRAY10, kWidth, "libx265", AV_PIX_FMT_YUV420P10},
        {"a.mp4", AV_PIX_FMT_YUV420P10, kWidth - 1, "libx265", AV_PIX_FMT_YUV444P10},
        {"a.webm", AV_PIX_FMT_YUV420P10, kWidth, "libvpx-vp9", AV_PIX_FMT_YUV420P10},
        {"a.avi", AV_PIX_FMT_YUV420P10, kWidth, "libx264", AV_PIX_FMT_YUV420P10},
        {"a.y4m", AV_PIX_FMT_YUV422P10, kWidth, "wrapped_avframe", AV_PIX_FMT_YUV422P10},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(std::string(c.file) + " " + av_get_pix_fmt_name(c.frames));
        VideoSettings settings;
        settings.width = c.width;
        settings.height = kHeight;
        settings.frameFormat = c.frames;
        VideoWriter writer({folder.path(c.file), true}, settings);
        EXPECT_STREQ(writer.codec().codec->name, c.encoder);
        EXPECT_STREQ(av_get_pix_fmt_name(writer.codec().pix_fmt), av_get_pix_fmt_name(c.result));
        const std::string error = errorOf([&] {
            writer.write(*grayFrame(c.frames, 0));
            writer.finish();
        });
        EXPECT_EQ(error, "none");
    }
}

TEST(TaskThread, DoesAllInOrderUntilOneFails) {
    std::vector<int> done;
    const auto note = [&](int i) { return [&done, i] { done.push_back(i); }; };
    {
        TaskThread thread(2);
        for (int i = 0; i < 100; ++i) thread.add(note(i));
        thread.finish();
        EXPECT_EQ(done.size(), 100u);
        EXPECT_TRUE(std::is_sorted(done.begin(), done.end()));
    }
    TaskThread thread(2);
    const std::string error = errorOf([&] {
        thread.add([] { throw std::runtime_error("full disk"); });
        for (int i = 0; i < 3; ++i) thread.add(note(i));
        thread.finish();
    });
    EXPECT_EQ(error, "full disk");
    EXPECT_EQ(errorOf([&] { thread.add(note(0)); }), "full disk");
    EXPECT_EQ(errorOf([&] { thread.finish(); }), "full disk");
    EXPECT_EQ(done.size(), 100u);
}

}  // namespace
