#include "common/text_fields.h"

#include <charconv>
#include <cmath>
#include <fstream>
#include <sstream>

#include <fmt/format.h>

namespace framehold {

FileError::FileError(const std::string& file, int line, const std::string& what)
    : std::runtime_error(line > 0 ? fmt::format("{}:{}: {}", file, line, what)
                                  : fmt::format("{}: {}", file, what)) {}

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

std::string printable(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        if (c < ' ' || c > '~') c = '?';
    }
    return result;
}

std::string_view firstLine(std::string_view text) {
    LineReader lines({}, text);
    return lines.next() ? lines.line() : std::string_view();
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    if (!in || !(text << in.rdbuf())) throw FileError(path, 0, "cannot be read, or is empty");
    return text.str();
}

LineReader::LineReader(std::string file, std::string_view text)
    : file_(std::move(file)), rest_(text) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (rest_.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        rest_.remove_prefix(kByteOrderMark.size());
    }
}

bool LineReader::next() {
    while (!rest_.empty()) {
        const size_t end = rest_.find('\n');
        line_ = trim(rest_.substr(0, end));
        rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
        ++number_;
        if (!line_.empty()) return true;
    }
    return false;
}

void LineReader::fail(const std::string& what) const { throw FileError(file_, number_, what); }

double LineReader::number(std::string_view field, std::string_view name) const {
    double value = 0.0;
    const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
    if (error != std::errc() || end != field.data() + field.size() || !std::isfinite(value)) {
        fail(fmt::format("{}: '{}' is not a finite number", name, field));
    }
    return value;
}

}  // namespace framehold
