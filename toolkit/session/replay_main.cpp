// framehold_replay: feeds a recorded session to this build of the library and prints a checksum of
// every output frame, so that builds can be compared. Needs nothing but the library.
#include "session/session_file.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <exception>

namespace {

using framehold::SessionReader;

/// An output frame that keeps what was rendered before, as a camera's buffer would.
class OutputFrame {
public:
    explicit OutputFrame(const ZPR_Image& description)
        : image_(description),
          pixels_(static_cast<size_t>(image_.width) * static_cast<size_t>(image_.height) * 3 / 2) {
        image_.plane[0] = pixels_.data();
        image_.plane[1] = pixels_.data() + pixels_.size() / 3 * 2;
    }

    ZPR_Image* image() { return &image_; }

    /// FNV-1a, 64 bits.
    uint64_t checksum() const {
        uint64_t hash = 0xcbf29ce484222325u;
        for (const uint8_t byte : pixels_) hash = (hash ^ byte) * 0x100000001b3u;
        return hash;
    }

private:
    ZPR_Image image_;
    std::vector<uint8_t> pixels_;
};

int replay(const char* path) {
    SessionReader session(path);
    ZPR_Handle handle = nullptr;
    if (const int code = ZPR_Init(nullptr, &session.param(), &handle); code != ZPR_OK) {
        std::fprintf(stderr, "%s: ZPR_Init returned %d\n", path, code);
        return 1;
    }
    OutputFrame output(session.param().outputImage);
    ZPR_Param update = session.param();
    int frames = 0;
    for (auto event = session.next(); event != SessionReader::Event::kEnd; event = session.next()) {
        if (event == SessionReader::Event::kSample) {
            ZPR_SetSensorData(handle, &session.sample());
            continue;
        }
        if (event == SessionReader::Event::kLevel) {
            update.smoothingLevel = session.level();
            continue;
        }
        const ZPR_Image* input = event == SessionReader::Event::kFrame ? &session.frame() : nullptr;
        const int code = ZPR_Stabilize(handle, session.timestamp(), input, output.image(), &update);
        if (code == ZPR_OK) std::printf("%d %016" PRIx64 "\n", frames++, output.checksum());
        if (code != ZPR_OK && code != ZPR_FRAME_BUFFERED) {
            std::printf("ZPR_Stabilize returned %d\n", code);
        }
    }
    ZPR_Deinit(&handle);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || std::strcmp(argv[1], "--help") == 0) {
        std::puts(
            "Usage: framehold_replay SESSION\n"
            "Feeds a session recorded by `framehold stabilize --record-session` to this build\n"
            "of the library; prints number and checksum of every output frame.");
        return argc == 2 ? 0 : 2;
    }
    try {
        return replay(argv[1]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "framehold_replay: %s\n", error.what());
        return 1;
    }
}
