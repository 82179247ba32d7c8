#include "common/image_sequence.h"

#include "common/text_fields.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <string_view>

#include <fmt/format.h>

namespace framehold {

namespace fs = std::filesystem;

namespace {

/// A file's name with a number in it.
struct NumberedName {
    std::string before;
    std::string after;
    size_t digits = 0;  // fewest

    std::string with(int number) const {
        return fmt::format("{}{:0{}}{}", before, number, digits, after);
    }

    /// The number in a name; none if it is not one of these names.
    std::optional<int> numberIn(const std::string& name) const {
        const size_t around = before.size() + after.size();
        if (name.size() <= around) return std::nullopt;
        const char* from = name.data() + before.size();
        const char* to = name.data() + name.size() - after.size();
        int number = 0;
        const auto [end, error] = std::from_chars(from, to, number);
        const bool isNumber = error == std::errc() && end == to && number >= 0;
        return isNumber && with(number) == name ? std::optional(number) : std::nullopt;
    }
};

/// None unless there is exactly one number.
std::optional<NumberedName> parsePattern(std::string_view pattern) {
    constexpr size_t kMostDigits = 9;
    NumberedName name;
    bool hasNumber = false;
    while (!pattern.empty()) {
        std::string& text = hasNumber ? name.after : name.before;
        const size_t percent = pattern.find('%');
        text += pattern.substr(0, percent);
        if (percent == std::string_view::npos) break;
        pattern.remove_prefix(percent + 1);
        if (pattern.substr(0, 1) == "%") {
            text += '%';
        } else {
            const size_t digits = std::min(pattern.find_first_not_of("0123456789"), pattern.size());
            std::from_chars(pattern.data(), pattern.data() + digits, name.digits);
            pattern.remove_prefix(digits);
            if (hasNumber || pattern.substr(0, 1) != "d" || name.digits > kMostDigits) {
                return std::nullopt;
            }
            hasNumber = true;
        }
        pattern.remove_prefix(1);
    }
    return hasNumber ? std::optional(name) : std::nullopt;
}

struct Numbers {
    NumberedName name;
    std::vector<int> found;
};

/// Numbers of the files that a path is the pattern of, in no order; may be none.
Numbers findNumbers(const fs::path& path) {
    std::error_code failed;
    if (path.native().find('%') == std::string::npos || fs::exists(path, failed)) return {};
    const auto name = parsePattern(path.filename().string());
    if (!name) return {};
    Numbers numbers{*name, {}};
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    for (fs::directory_iterator i(folder, failed), end; !failed && i != end; i.increment(failed)) {
        std::error_code unknown;
        const auto number = name->numberIn(i->path().filename().string());
        if (number && i->is_regular_file(unknown)) numbers.found.push_back(*number);
    }
    return numbers;
}

}  // namespace

std::optional<ImageSequence> findImageSequence(const std::string& path) {
    Numbers numbers = findNumbers(path);
    if (numbers.found.empty()) return std::nullopt;
    std::sort(numbers.found.begin(), numbers.found.end());
    const size_t slash = path.rfind('/') + 1;
    ImageSequence sequence{path.substr(0, slash), path.substr(slash), {}, numbers.found.front()};
    int next = sequence.first;
    for (const int number : numbers.found) {
        if (number != next) {
            throw FileError(path, 0,
                            fmt::format("{} is missing, and {} is there", numbers.name.with(next),
                                        numbers.name.with(number)));
        }
        sequence.files.push_back(sequence.folder + numbers.name.with(number));
        ++next;
    }
    return sequence;
}

bool isImageSequence(const std::string& path) { return !findNumbers(path).found.empty(); }

std::string besideVideo(const std::string& video, const std::string& end) {
    const fs::path path(video);
    std::string name = path.stem().string();
    if (isImageSequence(video)) {
        name = parsePattern(path.filename().string())->before;
        name.erase(name.find_last_not_of("-_. ") + 1);
        if (name.empty()) name = fs::absolute(path).lexically_normal().parent_path().filename();
    }
    return (path.parent_path() / (name + end)).string();
}

}  // namespace framehold
