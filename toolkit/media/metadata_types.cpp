#include "media/metadata_types.h"

#include "common/interruption.h"
#include "common/text_fields.h"

#include <array>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string_view>

namespace framehold {

namespace {

/// Part of the file between two positions.
struct Span {
    uint64_t start;
    uint64_t end;
};

/// Reads the boxes of an MP4 file that lead to the sample entries.
class BoxReader {
public:
    explicit BoxReader(const std::string& path) : file_(path, std::ios::binary) {
        if (!file_) throw FileError(path, 0, "cannot be read");
        file_.seekg(0, std::ios::end);
        size_ = static_cast<uint64_t>(file_.tellg());
    }

    void read() { read({0, size_}, 0); }

    const std::map<int, std::string>& types() const { return types_; }
    const std::map<int, uint64_t>& positions() const { return positions_; }

private:
    static constexpr int kDeepest = 5;  // moov, trak, mdia, minf, stbl
    static constexpr int kMostBoxes = 100000;

    /// Big-endian number of `bytes` bytes; none beyond the end of the span.
    std::optional<uint64_t> number(uint64_t at, int bytes, const Span& span) {
        if (at > span.end || span.end - at < static_cast<uint64_t>(bytes)) return std::nullopt;
        std::array<char, 8> data{};
        file_.clear();
        file_.seekg(static_cast<std::streamoff>(at));
        if (!file_.read(data.data(), bytes)) return std::nullopt;
        uint64_t value = 0;
        for (int i = 0; i < bytes; ++i) {
            value = value << 8 | static_cast<unsigned char>(data[static_cast<size_t>(i)]);
        }
        return value;
    }

    static constexpr uint64_t typeOf(std::string_view name) {
        uint64_t type = 0;
        for (const char c : name) type = type << 8 | static_cast<unsigned char>(c);
        return type;
    }

    void read(const Span& span, int depth) {
        constexpr uint64_t kHead = 8;
        for (uint64_t at = span.start; at < span.end;) {
            throwIfInterrupted();
            const auto shortSize = number(at, 4, span);
            const auto type = number(at + 4, 4, span);
            if (!shortSize || !type || ++boxes_ > kMostBoxes) return;
            uint64_t head = kHead;
            uint64_t size = *shortSize;
            if (size == 1) {
                size = number(at + kHead, 8, span).value_or(0);
                head = 2 * kHead;
            } else if (size == 0) {
                size = span.end - at;
            }
            if (size < head || size > span.end - at) return;
            readBox(*type, {at + head, at + size}, depth);
            at += size;
        }
    }

    void readBox(uint64_t type, const Span& content, int depth) {
        constexpr uint64_t kContainers[kDeepest] = {typeOf("moov"), typeOf("trak"), typeOf("mdia"),
                                                    typeOf("minf"), typeOf("stbl")};
        if (depth < kDeepest && type == kContainers[depth]) {
            if (depth == 1) track_ = 0;
            return read(content, depth + 1);
        }
        if (type == typeOf("tkhd") && depth == 2) {
            const bool isLong = number(content.start, 1, content) == 1;
            const auto id = number(content.start + (isLong ? 20 : 12), 4, content);
            track_ = static_cast<int>(id.value_or(0) & INT32_MAX);
        }
        if (type == typeOf("stsd") && depth == kDeepest) readSampleEntry(content);
    }

    /// The first entry: its size and type, 8 bytes, and two texts that end in a zero, of which the
    /// first is the encoding.
    void readSampleEntry(const Span& content) {
        constexpr uint64_t kBeforeEntry = 8, kBeforeTexts = 16;
        const uint64_t entry = content.start + kBeforeEntry;
        positions_[track_] = entry + 4;
        if (number(entry + 4, 4, content) != typeOf("mett")) return;
        constexpr int kLongest = 256;  // of both texts
        std::string text;
        int ends = 0;
        for (int i = 0; i < kLongest && ends < 2; ++i) {
            const auto c = number(entry + kBeforeTexts + static_cast<uint64_t>(i), 1, content);
            if (!c) return;
            if (*c == 0) {
                ++ends;
            } else if (ends == 1) {
                text += static_cast<char>(*c);
            }
        }
        if (ends == 2) types_[track_] = text;
    }

    std::ifstream file_;
    uint64_t size_ = 0;
    int boxes_ = 0;
    int track_ = 0;
    std::map<int, std::string> types_;
    std::map<int, uint64_t> positions_;
};

}  // namespace

std::map<int, std::string> metadataTypes(const std::string& path) {
    BoxReader reader(path);
    reader.read();
    return reader.types();
}

std::map<int, uint64_t> trackTypePositions(const std::string& path) {
    BoxReader reader(path);
    reader.read();
    return reader.positions();
}

}  // namespace framehold
