#include "common/text_fields.h"

#include "common/interruption.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <iconv.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace framehold {

FileError::FileError(const std::string& file, int line, const std::string& what)
    : std::runtime_error(line > 0 ? fmt::format("{}:{}: {}", escaped(file), line, what)
                                  : fmt::format("{}: {}", escaped(file), what)) {}

std::string_view trim(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::vector<std::string_view> splitFields(std::string_view line, char separator) {
    std::vector<std::string_view> fields;
    for (;;) {
        const size_t end = line.find(separator);
        fields.push_back(trim(line.substr(0, end)));
        if (end == std::string_view::npos) return fields;
        line.remove_prefix(end + 1);
    }
}

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return lower;
}

std::string counted(size_t number, std::string_view noun) {
    return fmt::format("{} {}{}", number, noun, number == 1 ? "" : "s");
}

std::string durationText(double seconds) {
    const char* sign = seconds < 0.0 ? "-" : "";
    const double length = std::abs(seconds);
    if (length < 1.0) return fmt::format("{}{:.1f} ms", sign, 1000.0 * length);
    if (length < 60.0) return fmt::format("{}{:.3f} s", sign, length);
    const auto whole = static_cast<int64_t>(std::min(length, 1e15) + 0.5);
    if (whole < 3600) return fmt::format("{}{} min {} s", sign, whole / 60, whole % 60);
    return fmt::format("{}{} h {} min", sign, whole / 3600, whole / 60 % 60);
}

std::string printable(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        if (c < ' ' || c > '~') c = '?';
    }
    return result;
}

namespace {

/// Number of bytes of the character that a text starts with; 0 if it is not UTF-8.
size_t characterSize(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    if (first < 0x80) return 1;
    const size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < size) return 0;
    for (size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
    }
    // Longer than needed, halves of pairs, and beyond the last character.
    const unsigned char second = byte(1);
    const bool isWrong = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                         (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
    return isWrong ? 0 : size;
}

/// True for characters that move the cursor, end the line or turn the direction of writing.
bool isControl(std::string_view character) {
    if (character.size() == 1) return character[0] < ' ' || character[0] == '\x7F';
    if (character.size() == 2) return character[0] == '\xC2' && character < "\xC2\xA0";
    return (character >= "\xE2\x80\x8E" && character <= "\xE2\x80\x8F") ||
           (character >= "\xE2\x80\xA8" && character <= "\xE2\x80\xAE") ||
           (character >= "\xE2\x81\xA6" && character <= "\xE2\x81\xA9");
}

/// At most `most` bytes, and three points for what is left out.
std::string escapedStart(std::string_view text, size_t most) {
    std::string result;
    while (!text.empty()) {
        const size_t size = characterSize(text);
        const std::string_view character = text.substr(0, std::max<size_t>(size, 1));
        std::string shown(character);
        if (size == 0 || isControl(character)) {
            shown.clear();
            for (const char c : character) {
                shown += fmt::format("\\x{:02X}", static_cast<unsigned char>(c));
            }
        }
        if (shown.size() > most - result.size()) return result + "...";
        result += shown;
        text.remove_prefix(character.size());
    }
    return result;
}

/// Open file for reading, closed at the end.
class InputFile {
public:
    /// Does not wait for the other end of a pipe, which may never come.
    explicit InputFile(const std::string& path)
        : path_(path), descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
        if (descriptor_ < 0) fail();
    }
    ~InputFile() { close(descriptor_); }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    /// Throws FileError unless it is a regular file.
    size_t regularSize() const {
        struct stat about {};
        if (fstat(descriptor_, &about) != 0) fail();
        if (!S_ISREG(about.st_mode)) throw FileError(path_, 0, "is not a regular file");
        return static_cast<size_t>(std::max<off_t>(about.st_size, 0));
    }

    /// Reads to the end of `text` or of the file, whichever comes first, and makes it that long.
    void fill(std::string& text) const {
        constexpr size_t kAtOnce = 1 << 20;  // reading a regular file is not interrupted
        size_t got = 0;
        while (got < text.size()) {
            waitForData();
            const size_t wanted = std::min(text.size() - got, kAtOnce);
            const ssize_t more = read(descriptor_, text.data() + got, wanted);
            if (more < 0 && errno != EINTR && errno != EAGAIN) fail();
            if (more == 0) break;
            got += static_cast<size_t>(std::max<ssize_t>(more, 0));
        }
        text.resize(got);
    }

private:
    /// Waits in steps: what interrupts between a check and a wait would not end the wait.
    void waitForData() const {
        constexpr int kStep = 100;  // ms
        pollfd event{descriptor_, POLLIN, 0};
        for (;;) {
            throwIfInterrupted();
            const int ready = poll(&event, 1, kStep);
            if (ready > 0) return;
            if (ready < 0 && errno != EINTR) fail();
        }
    }

    [[noreturn]] void fail() const {
        throw FileError(path_, 0, "cannot be read: " + std::generic_category().message(errno));
    }

    std::string path_;
    int descriptor_;
};

}  // namespace

std::string escaped(std::string_view text) { return escapedStart(text, std::string_view::npos); }

std::string excerpt(std::string_view text) {
    constexpr size_t kShown = 40;
    return escapedStart(text, kShown);
}

std::string_view firstLine(std::string_view text) {
    LineReader lines({}, text.substr(0, kLongestLine));
    return lines.next() ? lines.line() : std::string_view();
}

bool startsAsUtf16(std::string_view text) {
    const std::string_view mark = text.substr(0, 2);
    return mark == "\xFF\xFE" || mark == "\xFE\xFF";
}

bool startsAsArchive(std::string_view bytes) {
    // A first file, or none.
    return bytes.substr(0, 4) == "PK\x03\x04" || bytes.substr(0, 4) == "PK\x05\x06";
}

std::optional<std::string> fromUtf16(std::string_view text) {
    if (!startsAsUtf16(text)) return std::nullopt;
    const bool isLittleEndian = text[0] == '\xFF';
    const iconv_t converter = iconv_open("UTF-8", isLittleEndian ? "UTF-16LE" : "UTF-16BE");
    if (converter == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
    constexpr size_t kUnit = 2;           // bytes of UTF-16
    constexpr size_t kLongestOfUnit = 3;  // bytes of UTF-8
    text.remove_prefix(kUnit);
    std::string result(text.size() / kUnit * kLongestOfUnit, '\0');
    char* in = const_cast<char*>(text.data());  // iconv only reads it
    size_t inLeft = text.size() / kUnit * kUnit;
    char* out = result.data();
    size_t outLeft = result.size();
    while (iconv(converter, &in, &inLeft, &out, &outLeft) == SIZE_MAX && inLeft >= kUnit) {
        in += kUnit;
        inLeft -= kUnit;
        *out++ = '?';
        --outLeft;
    }
    iconv_close(converter);
    result.resize(result.size() - outLeft);
    return result;
}

std::string readFile(const std::string& path, size_t most) {
    const InputFile file(path);
    std::string text(std::min(most, file.regularSize()), '\0');
    file.fill(text);
    if (text.empty()) throw FileError(path, 0, "is empty");
    return text;
}

std::string readPipe(const std::string& path) {
    const InputFile pipe(path);
    constexpr size_t kChunk = size_t{1} << 20;
    std::string text;
    for (std::string chunk(kChunk, '\0'); chunk.size() == kChunk; text += chunk) {
        if (text.size() >= kLongestPipe) {
            throw FileError(path, 0, fmt::format("holds more than {} MiB", kLongestPipe >> 20));
        }
        pipe.fill(chunk);
    }
    if (text.empty()) throw FileError(path, 0, "is empty");
    return text;
}

LineReader::LineReader(std::string file, std::string_view text)
    : file_(std::move(file)), rest_(text) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (rest_.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        rest_.remove_prefix(kByteOrderMark.size());
    }
}

bool LineReader::next() {
    constexpr int kLinesBetweenLooks = 4096;
    while (!rest_.empty()) {
        if (++number_ % kLinesBetweenLooks == 0) throwIfInterrupted();
        const size_t end = rest_.find('\n');
        if (std::min(end, rest_.size()) > kLongestLine) {
            fail(fmt::format("is longer than {} bytes", kLongestLine));
        }
        line_ = trim(rest_.substr(0, end));
        isUnterminated_ = end == std::string_view::npos;
        rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
        if (!line_.empty()) return true;
    }
    return false;
}

void LineReader::fail(const std::string& what) const { throw FileError(file_, number_, what); }

double LineReader::number(std::string_view field, std::string_view name) const {
    double value = 0.0;
    const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
    if (error != std::errc() || end != field.data() + field.size() || !std::isfinite(value)) {
        fail(fmt::format("{}: '{}' is not a finite number", excerpt(name), excerpt(field)));
    }
    return value;
}

}  // namespace framehold
