// Files and pictures as they are written.
#include "common/output_file.h"
#include "common/text_fields.h"
#include "media/pixel_converter.h"
#include "media/still_picture.h"
#include "support/temporary_folder.h"

#include <algorithm>
#include <cstring>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

using namespace framehold;
using namespace zpr_test;

namespace {

/// First line of a file.
std::string lineOf(const std::string& path) {
    std::string text;
    std::getline(std::ifstream(path), text);
    return text;
}

size_t countFiles(const TemporaryFolder& folder) {
    const auto files = std::filesystem::directory_iterator(folder.path(""));
    return static_cast<size_t>(std::distance(begin(files), end(files)));
}

TEST(OutputFile, AppearsWholeOrNotAtAll) {
    const TemporaryFolder folder;
    const std::string path = folder.write("file", "old");
    const std::string foreign = folder.write("file.part", "foreign");
    {
        OutputFile file({path, true});
        file.stream() << "new" << std::flush;
        EXPECT_EQ(lineOf(file.temporary()), "new");
        EXPECT_EQ(lineOf(path), "old");
    }
    EXPECT_EQ(countFiles(folder), 2u);
    EXPECT_EQ(lineOf(path), "old");
    writeFile({path, true}, "new");
    EXPECT_EQ(lineOf(path), "new");
    EXPECT_EQ(lineOf(foreign), "foreign");
    EXPECT_EQ(countFiles(folder), 2u);
}

TEST(OutputFile, OfSeveralWritersOneSucceeds) {
    for (const bool isThere : {false, true}) {
        SCOPED_TRACE(isThere);
        const TemporaryFolder folder;
        const OutputName name{folder.path("file"), true};
        if (isThere) folder.write("file", "old");
        OutputFile first(name);
        OutputFile second(name);
        first.stream() << "first";
        second.stream() << "second";
        first.commit();
        EXPECT_NE(errorOf([&] { second.commit(); }).find("another program has written it"),
                  std::string::npos);
        EXPECT_EQ(lineOf(name.path), "first");
    }
}

TEST(OutputFile, KeepsModesAndLinks) {
    using std::filesystem::perms;
    const TemporaryFolder folder;
    const std::string path = folder.write("file", "old");
    for (const auto mode : {perms(0600), perms(0444), perms(0755)}) {
        std::filesystem::permissions(path, mode);
        OutputFile file({path, true});
        // While it is written nobody may read it who may not read the old one.
        EXPECT_EQ(std::filesystem::status(file.temporary()).permissions() & ~mode & perms(0077),
                  perms::none);
        file.commit();
        EXPECT_EQ(std::filesystem::status(path).permissions(), mode);
    }
    const std::string link = folder.path("link");
    const std::string toNothing = folder.path("to-nothing");
    std::filesystem::create_symlink("file", link);
    std::filesystem::create_symlink("none", toNothing);
    writeFile({link, true}, "new");
    writeFile({toNothing}, "made");
    EXPECT_TRUE(std::filesystem::is_symlink(link) && std::filesystem::is_symlink(toNothing));
    EXPECT_EQ(lineOf(path), "new");
    EXPECT_EQ(lineOf(folder.path("none")), "made");
}

TEST(OutputFile, IsWrittenInPlaceWhereItIsNoFile) {
    const TemporaryFolder folder;
    const std::string pipe = folder.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
    writeFile({pipe}, "text");
    char text[8] = {};
    EXPECT_EQ(read(reader, text, sizeof text), 4);
    EXPECT_STREQ(text, "text");
    close(reader);
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
    EXPECT_EQ(countFiles(folder), 1u);
}

TEST(OutputFile, NamesFileAndReason) {
    const TemporaryFolder folder;
    const std::string inNoFolder = folder.path("none/file");
    const std::string taken = folder.path("taken");
    const std::string onFullDisk = folder.path("full");
    const std::string circle = folder.path("circle");
    const std::string old = folder.write("old", "old");
    std::filesystem::create_directories(taken + "/full");
    std::filesystem::create_symlink("/dev/full", onFullDisk);
    std::filesystem::create_symlink("circle", circle);
    // More than a stream keeps back, so that the reason is known before the last byte.
    const std::string text(1000000, 'x');
    const struct {
        OutputName name;
        const char* reason;
    } kCases[] = {
        {{inNoFolder}, "cannot be written: No such file or directory"},
        {{taken}, "cannot be written: Is a directory"},
        {{taken, true}, "cannot be written: Is a directory"},
        {{onFullDisk}, "cannot be written: No space left on device"},
        {{circle}, "cannot be written: Too many levels of symbolic links"},
        {{old}, "is there already; --overwrite replaces it"},
    };
    for (const auto& c : kCases) {
        EXPECT_EQ(errorOf([&] { writeFile(c.name, text); }), c.name.path + ": " + c.reason);
    }
    EXPECT_EQ(countFiles(folder), 4u);
    EXPECT_EQ(lineOf(old), "old");
}

TEST(FileIdentity, IsThatOfTheFileWhateverItsName) {
    const TemporaryFolder folder;
    const std::string file = folder.write("file", "");
    std::filesystem::create_directory(folder.path("sub"));
    std::filesystem::create_hard_link(file, folder.path("hard"));
    std::filesystem::create_symlink("file", folder.path("soft"));
    std::filesystem::create_symlink(folder.path(""), folder.path("sub/up"));
    std::filesystem::create_symlink("new", folder.path("to-new"));
    const struct {
        const char* a;
        const char* b;
        bool areSame;
    } kCases[] = {
        {"file", "hard", true},        {"file", "soft", true},     {"file", "sub/up/file", true},
        {"file", "sub/../file", true}, {"file", "new", false},     {"new", "sub/up/new", true},
        {"new", "to-new", true},       {"new", "sub/new", false},  {"no/new", "no/./new", true},
        {"sub/to/new", "sub", false},  {"new", "no/../new", true},
    };
    for (const auto& c : kCases) {
        EXPECT_EQ(identityOf(folder.path(c.a)) == identityOf(folder.path(c.b)), c.areSame)
            << c.a << ", " << c.b;
    }
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

TEST(DurationText, IsInUnitsThatPeopleRead) {
    const std::pair<double, const char*> kCases[] = {
        {0.0, "0.0 ms"},      {-0.0032, "-3.2 ms"},    {1.5, "1.500 s"},
        {125.0, "2 min 5 s"}, {-3599.6, "-1 h 0 min"}, {81234.5, "22 h 33 min"},
    };
    for (const auto& [seconds, text] : kCases) EXPECT_EQ(durationText(seconds), text);
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
        writePng({path, true}, *frame);
        const AvPtr<AVFrame> picture = decodePng(path);
        ASSERT_EQ(picture->format, AV_PIX_FMT_RGB24);
        for (int i = 0; i < 3; ++i) {
            EXPECT_NEAR(picture->data[0][5 * picture->linesize[0] + 5 * 3 + i], c.rgb[i], 2)
                << "range " << c.range << ", matrix " << c.matrix << ", luma " << int{c.yuv[0]};
        }
    }
}

TEST(PixelConverter, CopiesAllPlanesWhereNothingChanges) {
    const FrameArea area{16, 8};
    for (const AVPixelFormat format :
         {AV_PIX_FMT_NV12, AV_PIX_FMT_P010, AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P10}) {
        const AvPtr<AVFrame> from = makeFrame(format, area.width, area.height);
        const AvPtr<AVFrame> to = makeFrame(format, area.width, area.height);
        const int planes = av_pix_fmt_count_planes(format);
        for (int plane = 0; plane < planes; ++plane) {
            const int rows = plane == 0 ? area.height : area.height / 2;
            std::memset(from->data[plane], 1, static_cast<size_t>(rows * from->linesize[plane]));
            std::memset(to->data[plane], 0, static_cast<size_t>(rows * to->linesize[plane]));
        }
        PixelConverter().convert(*from, area, *to, area);
        for (int plane = 0; plane < planes; ++plane) {
            const int rows = plane == 0 ? area.height : area.height / 2;
            const auto bytes =
                static_cast<size_t>(av_image_get_linesize(format, area.width, plane));
            for (int y = 0; y < rows; ++y) {
                EXPECT_EQ(std::memcmp(to->data[plane] + y * to->linesize[plane],
                                      from->data[plane] + y * from->linesize[plane], bytes),
                          0)
                    << av_get_pix_fmt_name(format) << ", plane " << plane << ", row " << y;
            }
        }
    }
}

}  // namespace
