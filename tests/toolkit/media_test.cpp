// Files and pictures as they are written.
#include "common/output_file.h"
#include "common/text_fields.h"
#include "media/still_picture.h"
#include "support/temporary_folder.h"

#include <algorithm>
#include <cstring>

#include <gtest/gtest.h>

using namespace framehold;
using namespace zpr_test;

namespace {

TEST(OutputFile, AppearsWholeOrNotAtAll) {
    const TemporaryFolder folder;
    const std::string path = folder.write("file", "old");
    const auto content = [&] {
        std::string text;
        std::getline(std::ifstream(path), text);
        return text;
    };
    {
        OutputFile file(path);
        file.stream() << "new" << std::flush;
        EXPECT_TRUE(std::filesystem::exists(file.temporary()));
        EXPECT_EQ(content(), "old");
    }
    EXPECT_FALSE(std::filesystem::exists(path + ".part"));
    EXPECT_EQ(content(), "old");
    writeFile(path, "new");
    EXPECT_EQ(content(), "new");
}

TEST(OutputFile, NamesFileAndReason) {
    const TemporaryFolder folder;
    const std::string inNoFolder = folder.path("none/file");
    EXPECT_EQ(errorOf([&] { writeFile(inNoFolder, "text"); }),
              inNoFolder + ": cannot be written: No such file or directory");
    const std::string taken = folder.path("taken");
    std::filesystem::create_directories(taken + "/full");
    EXPECT_EQ(errorOf([&] { writeFile(taken, "text"); }),
              taken + ": cannot be written: Is a directory");
    const std::string onFullDisk = folder.path("full");
    std::filesystem::create_symlink("/dev/full", onFullDisk + ".part");
    EXPECT_EQ(errorOf([&] { writeFile(onFullDisk, "text"); }),
              onFullDisk + ": cannot be written: No space left on device");
}

TEST(OpenInput, ReadsTheNamedFileOnly) {
    keepLibavMessages();
    const TemporaryFolder folder;
    const std::string video = "YUV4MPEG2 W2 H2 F30:1\nFRAME\n" + std::string(6, 'x');
    for (const char* name : {"a:b.y4m", "-dash.y4m", "http:x.y4m", "50%d.y4m", "\xff\n.y4m"}) {
        folder.write(name, video);
        const std::string path = folder.path(name);
        EXPECT_EQ(errorOf([&] { openInput(path); }), "none") << name;
        // Relative names, too: nothing but the name is before the colon or the dash.
        const auto before = std::filesystem::current_path();
        std::filesystem::current_path(folder.path(""));
        EXPECT_EQ(errorOf([&] { openInput(name); }), "none") << name;
        std::filesystem::current_path(before);
    }
    const std::string target = folder.path("a:b.y4m");
    const std::pair<const char*, std::string> kLists[] = {
        {"list.txt", "ffconcat version 1.0\nfile a.y4m\n"},
        {"list.m3u8", "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\n" + target + "\n"},
        {"list.mpd",
         "<MPD xmlns=\"urn:mpeg:dash:schema:mpd:2011\" "
         "profiles=\"urn:mpeg:dash:profile:isoff-main:2011\"></MPD>"},
        {"list.sdp",
         "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=x\nc=IN IP4 127.0.0.1\nt=0 0\nm=video 5000 RTP/AVP "
         "96\n"},
        {"clip.mp4", "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nhttp://127.0.0.1/a\n"}};
    for (const auto& [name, text] : kLists) {
        const std::string path = folder.write(name, text);
        EXPECT_NE(errorOf([&] { openInput(path); }).find("a list of other files"),
                  std::string::npos)
            << errorOf([&] { openInput(path); });
    }
}

/// A frame of one colour.
AvPtr<AVFrame> plainFrame(uint8_t y, uint8_t cb, uint8_t cr) {
    AvPtr<AVFrame> frame = makeNv12Frame(16, 16);
    std::fill_n(frame->data[0], 16 * frame->linesize[0], y);
    for (int i = 0; i < 8 * frame->linesize[1]; ++i) frame->data[1][i] = i % 2 == 0 ? cb : cr;
    return frame;
}

AvPtr<AVFrame> decodePng(const std::string& path) {
    const std::string bytes = readFile(path);
    const AvPtr<AVPacket> packet = makePacket();
    EXPECT_EQ(av_new_packet(packet.get(), static_cast<int>(bytes.size())), 0);
    std::memcpy(packet->data, bytes.data(), bytes.size());
    const AVCodec* decoder = avcodec_find_decoder(AV_CODEC_ID_PNG);
    const AvPtr<AVCodecContext> codec(avcodec_alloc_context3(decoder));
    AvPtr<AVFrame> frame = makeFrame();
    EXPECT_EQ(avcodec_open2(codec.get(), decoder, nullptr), 0);
    EXPECT_EQ(avcodec_send_packet(codec.get(), packet.get()), 0);
    EXPECT_EQ(avcodec_receive_frame(codec.get(), frame.get()), 0);
    return frame;
}

TEST(WritePng, TakesLevelsByTheFramesRangeAndMatrix) {
    struct Case {
        AVColorRange range;
        AVColorSpace matrix;
        uint8_t yuv[3];
        int rgb[3];
    };
    constexpr Case kCases[] = {
        {AVCOL_RANGE_MPEG, AVCOL_SPC_UNSPECIFIED, {16, 128, 128}, {0, 0, 0}},
        {AVCOL_RANGE_MPEG, AVCOL_SPC_UNSPECIFIED, {235, 128, 128}, {255, 255, 255}},
        {AVCOL_RANGE_UNSPECIFIED, AVCOL_SPC_UNSPECIFIED, {16, 128, 128}, {0, 0, 0}},
        {AVCOL_RANGE_JPEG, AVCOL_SPC_UNSPECIFIED, {0, 128, 128}, {0, 0, 0}},
        {AVCOL_RANGE_JPEG, AVCOL_SPC_UNSPECIFIED, {16, 128, 128}, {16, 16, 16}},
        {AVCOL_RANGE_JPEG, AVCOL_SPC_UNSPECIFIED, {235, 128, 128}, {235, 235, 235}},
        // Green by ITU-R BT.601 and BT.709.
        {AVCOL_RANGE_MPEG, AVCOL_SPC_SMPTE170M, {145, 54, 34}, {0, 255, 0}},
        {AVCOL_RANGE_MPEG, AVCOL_SPC_BT709, {173, 42, 26}, {0, 255, 0}},
    };
    const TemporaryFolder folder;
    for (const Case& c : kCases) {
        const AvPtr<AVFrame> frame = plainFrame(c.yuv[0], c.yuv[1], c.yuv[2]);
        frame->color_range = c.range;
        frame->colorspace = c.matrix;
        const std::string path = folder.path("plain.png");
        writePng(path, *frame);
        const AvPtr<AVFrame> picture = decodePng(path);
        ASSERT_EQ(picture->format, AV_PIX_FMT_RGB24);
        for (int i = 0; i < 3; ++i) {
            EXPECT_NEAR(picture->data[0][5 * picture->linesize[0] + 5 * 3 + i], c.rgb[i], 2)
                << "range " << c.range << ", matrix " << c.matrix << ", luma " << int{c.yuv[0]};
        }
    }
}

}  // namespace
