#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace framehold {

/// Error in a file. The text starts with the name of the file, escaped, and, unless it is 0, the line.
class FileError : public std::runtime_error {
public:
    FileError(const std::string& file, int line, const std::string& what);
};

/// Text without blanks, tabs and line ends at both ends.
std::string_view trim(std::string_view text);

/// Trimmed fields of a line; one more than there are separators.
std::vector<std::string_view> splitFields(std::string_view line, char separator = ',');

/// Text with the letters A to Z in lower case; other bytes stay.
std::string lowerCase(std::string_view text);

/// Number and noun, "1 frame" or "2 frames". noun: takes an s for several.
std::string counted(size_t number, std::string_view noun);

/// Time in units that people read: "-3.2 ms", "12.345 s", "2 min 5 s", "22 h 33 min".
std::string durationText(double seconds);

/// Text with question marks for all but printable ASCII.
std::string printable(std::string_view text);

/// Text of a user or a file as a terminal may show it: control characters, characters that change
/// the direction of writing, and bytes that are not UTF-8 are written as \xNN.
std::string escaped(std::string_view text);

/// Start of a text from a file, to be quoted in a message: escaped, at most 40 characters.
std::string excerpt(std::string_view text);

/// Largest number of bytes in a line of text, without its end.
constexpr size_t kLongestLine = 65536;

/// First line that is not blank, trimmed and without a byte order mark. Empty if there is none in
/// the first `kLongestLine` bytes.
std::string_view firstLine(std::string_view text);

/// UTF-8 of a text in UTF-16 with a byte order mark, question marks for what is broken; none for
/// another text.
std::optional<std::string> fromUtf16(std::string_view text);

/// True for the byte order mark of UTF-16 at the start.
bool startsAsUtf16(std::string_view text);

/// True for the first bytes of a zip archive.
bool startsAsArchive(std::string_view bytes);

/// Content of a regular file, at most its first `most` bytes. Other files, such as pipes, are
/// refused without waiting for them. Throws FileError, also for files that are empty.
std::string readFile(const std::string& path, size_t most = SIZE_MAX);

/// Everything that comes from a pipe until its other end is closed, at most `kLongestPipe` bytes.
/// Waiting ends when the program is interrupted. Throws FileError, also if nothing comes.
std::string readPipe(const std::string& path);
constexpr size_t kLongestPipe = size_t{1} << 30;

/// Reads a text line by line, trimmed, and counts the lines. A byte order mark is left out. Lines of
/// more than `kLongestLine` bytes are refused.
class LineReader {
public:
    /// file: its name, for messages. text: borrowed.
    LineReader(std::string file, std::string_view text);

    /// Goes to the next line that is not blank; false at the end. Throws FileError for a line that
    /// is too long; Interrupted.
    bool next();

    /// Line that `next` went to.
    std::string_view line() const { return line_; }

    /// Throws FileError with the number of the line.
    [[noreturn]] void fail(const std::string& what) const;

    /// True if the text ends in the line: it may have been cut off there.
    bool isUnterminated() const { return isUnterminated_; }

    /// Number of the line, from 1.
    int lineNumber() const { return number_; }

    /// Number of bytes after the line.
    size_t bytesLeft() const { return rest_.size(); }

    /// Finite number in a field of the line. Throws FileError with the line and `name`.
    double number(std::string_view field, std::string_view name) const;

private:
    std::string file_;
    std::string_view rest_;
    std::string_view line_;
    int number_ = 0;
    bool isUnterminated_ = false;
};

}  // namespace framehold
