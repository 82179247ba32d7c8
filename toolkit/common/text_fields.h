#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace framehold {

/// What is wrong with a file, told by its name, the line (0 if none) and the field.
class FileError : public std::runtime_error {
public:
    FileError(const std::string& file, int line, const std::string& what);
};

std::string_view trim(std::string_view text);

/// The trimmed fields of a line.
std::vector<std::string_view> splitFields(std::string_view line, char separator = ',');

std::string lowerCase(std::string_view text);

/// The first line that is not blank, trimmed and without a byte order mark.
std::string_view firstLine(std::string_view text);

/// The whole of a file; throws FileError.
std::string readFile(const std::string& path);

/// Walks over the lines of a text, counting them. A byte order mark is left out.
class LineReader {
public:
    LineReader(std::string file, std::string_view text);

    /// Goes to the next line that is not blank; false at the end.
    bool next();

    std::string_view line() const { return line_; }

    [[noreturn]] void fail(const std::string& what) const;

    /// A finite number, or a failure that names the field.
    double number(std::string_view field, std::string_view name) const;

private:
    std::string file_;
    std::string_view rest_;
    std::string_view line_;
    int number_ = 0;
};

}  // namespace framehold
