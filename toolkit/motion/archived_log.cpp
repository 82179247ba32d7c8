// The log in a zip archive: which of its files are taken, and what is said of the others.
#include "common/text_fields.h"
#include "motion/clip_metadata.h"
#include "motion/frame_metadata.h"
#include "motion/motion_log_reader.h"
#include "motion/other_sensor.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <optional>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace framehold {

namespace fs = std::filesystem;

namespace {

std::string namesOf(const std::vector<ArchiveEntry>& entries) {
    constexpr size_t kMost = 5;
    std::vector<std::string> names;
    for (size_t i = 0; i < std::min(entries.size(), kMost); ++i) {
        names.push_back(excerpt(entries[i].name));
    }
    const std::string end =
        entries.size() > kMost ? fmt::format(" and {} more", entries.size() - kMost) : "";
    return fmt::format("{}{}", fmt::join(names, ", "), end);
}

[[noreturn]] void refuse(const LogArchive& archive, const std::vector<ArchiveEntry>& logs) {
    throw FileError(
        archive.path(), 0,
        fmt::format("holds several logs: {}; unpack the right one and give that", namesOf(logs)));
}

MotionLog parse(LogArchive& archive, const ArchiveEntry& entry) {
    MotionLog log = parseTextLog(archive.pathOf(entry), archive.read(entry));
    log.files = {entry.name};
    return log;
}

/// The only log among files that name neither sensor.
MotionLog findByContent(LogArchive& archive) {
    constexpr size_t kMostFiles = 16;
    const std::vector<ArchiveEntry> entries = unnamedLogs(archive);
    std::vector<ArchiveEntry> found;
    MotionLog result;
    size_t leftOut = 0;
    for (size_t i = 0; i < entries.size(); ++i) {
        const bool isOnlyOne = entries.size() == 1;  // and its own error is the archive's
        if (!isOnlyOne && (i >= kMostFiles || !archive.allows(entries[i]))) {
            ++leftOut;
            continue;
        }
        try {
            MotionLog log = parse(archive, entries[i]);
            if (log.rates.empty() && log.orientations.empty()) continue;
            found.push_back(entries[i]);
            if (found.size() == 1) result = std::move(log);
        } catch (const FileError&) {
            // Deliberate: whatever else is in the archive need not be a log.
            if (isOnlyOne) throw;
        }
    }
    if (found.size() > 1) refuse(archive, found);
    if (found.empty()) {
        throw FileError(archive.path(), 0,
                        archive.entries().empty() ? "holds no files"
                                                  : fmt::format("holds no motion log; in it are {}",
                                                                namesOf(archive.entries())));
    }
    if (leftOut > 0) {
        result.notes.push_back(fmt::format(
            "{} files in the archive were not looked at: they are too many or too large", leftOut));
    }
    return result;
}

/// Files beside an entry, in its folder and of its extension.
std::vector<fs::path> filesBeside(const fs::path& path, const LogArchive& archive) {
    std::vector<fs::path> files;
    for (const ArchiveEntry& entry : archive.entries()) {
        const fs::path file(entry.name);
        const bool isBeside =
            file.parent_path() == path.parent_path() && file != path &&
            lowerCase(file.extension().string()) == lowerCase(path.extension().string());
        if (isBeside) files.push_back(file);
    }
    return files;
}

void addSibling(LogArchive& archive, MotionLog& log) {
    const ReadLog read = [&archive](const fs::path& file) -> std::optional<MotionLog> {
        const auto& entries = archive.entries();
        const auto entry = std::find_if(entries.begin(), entries.end(),
                                        [&](const auto& e) { return e.name == file.string(); });
        if (entry == entries.end() || !archive.allows(*entry)) return std::nullopt;
        return parse(archive, *entry);
    };
    const fs::path path = log.files.front();
    if (lacksSensor(log)) addOtherSensor(path, filesBeside(path, archive), read, log);
}

bool endsIn(const std::string& name, const std::vector<std::string_view>& ends) {
    const std::string lower = lowerCase(name);
    return std::any_of(ends.begin(), ends.end(), [&](std::string_view end) {
        return lower.size() >= end.size() &&
               std::string_view(lower).substr(lower.size() - end.size()) == end;
    });
}

/// The only file beside the log whose name ends so; where there are several a note says so.
std::optional<ArchiveEntry> onlyBeside(const LogArchive& archive,
                                       const std::vector<std::string_view>& ends, const char* what,
                                       MotionLog& log) {
    const fs::path folder = fs::path(log.files.front()).parent_path();
    std::vector<ArchiveEntry> found;
    for (const ArchiveEntry& entry : archive.entries()) {
        const bool isBeside = fs::path(entry.name).parent_path() == folder;
        if (isBeside && endsIn(entry.name, ends)) found.push_back(entry);
    }
    if (found.size() > 1) {
        log.notes.push_back(
            fmt::format("several files in the archive are named as {}, and none is used: {}", what,
                        namesOf(found)));
    }
    return found.size() == 1 ? std::optional(found.front()) : std::nullopt;
}

/// Takes what a parser makes of a table with a row for each frame, if it can be read.
template <class Parser>
void addTable(LogArchive& archive, const std::optional<ArchiveEntry>& entry, MotionLog& log,
              const Parser& parser) {
    if (!entry) return;
    try {
        constexpr ptrdiff_t kMost = 1'000'000;  // nine hours
        const std::string path = archive.pathOf(*entry);
        const std::string text = archive.read(*entry);
        const ptrdiff_t rows = std::count(text.begin(), text.end(), '\n');
        if (rows > kMost) throw FileError(path, 0, fmt::format("{} rows of frames", rows));
        log.frames = parser(path, text);
        log.files.push_back(entry->name);
    } catch (const FileError& error) {
        // Deliberate: the motion can be used without.
        log.notes.push_back(fmt::format("not used: {}", error.what()));
    }
}

/// Takes what is logged of each frame from the only files of such names beside the log.
void addFrames(LogArchive& archive, MotionLog& log) {
    const auto metadata = onlyBeside(archive, {"_metadata.csv"}, "metadata of frames", log);
    const auto times =
        onlyBeside(archive, {"_timestamps.csv", "_timestamps.txt"}, "times of frames", log);
    if (!log.frames.empty()) return;
    addTable(archive, metadata, log, parseFrameMetadata);
    addTable(archive, times, log, [&log](const std::string& path, std::string_view text) {
        return metadataAt(parseFrameTimes(path, text), log.frames);
    });
}

void addNotes(const LogArchive& archive, MotionLog& log) {
    std::vector<std::string> taken;
    for (const std::string& file : log.files) taken.push_back(excerpt(file));
    log.notes.insert(log.notes.begin(),
                     fmt::format("taken from the archive: {}", fmt::join(taken, ", ")));
    const std::pair<std::vector<std::string_view>, const char*> kNotUsed[] = {
        {{".mp4", ".mov", ".m4v", ".3gp", ".mkv"}, "videos are read unpacked only"},
        {{".zip"}, "archives in archives are not opened"}};
    for (const auto& [ends, reason] : kNotUsed) {
        for (const ArchiveEntry& entry : archive.entries()) {
            if (!endsIn(entry.name, ends)) continue;
            log.notes.push_back(
                fmt::format("{} in the archive is not used: {}", excerpt(entry.name), reason));
            break;
        }
    }
}

}  // namespace

MotionLog readArchivedLog(LogArchive& archive) {
    const std::vector<ArchiveEntry> logs = gyroscopeLogs(archive);
    if (logs.size() > 1) refuse(archive, logs);
    MotionLog log = logs.empty() ? findByContent(archive) : parse(archive, logs.front());
    addSibling(archive, log);
    if (log.rates.empty() && log.orientations.empty()) {
        throw FileError(archive.path(), 0,
                        fmt::format("{} holds no gyroscope", excerpt(log.files.front())));
    }
    addFrames(archive, log);
    addNotes(archive, log);
    log.files = {archive.path()};
    return log;
}

}  // namespace framehold
