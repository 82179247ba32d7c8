#include "motion/log_archive.h"

#include "common/interruption.h"
#include "common/output_file.h"
#include "common/text_fields.h"
#include "motion/formats/text_columns.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include <fmt/format.h>
#include <zip.h>

namespace framehold {

namespace fs = std::filesystem;

namespace {

constexpr zip_int64_t kMostEntries = 10000;

// Tables of numbers shrink to a third or less, of a sensor that is read too often to a tenth.
constexpr uint64_t kMostTimes = 20;
constexpr uint64_t kBytesAnyway = 16 << 20;
constexpr uint64_t kMostBytes = uint64_t{1} << 30;

std::string textOf(zip_error_t& error) {
    std::string text = zip_error_strerror(&error);
    zip_error_fini(&error);
    return text;
}

/// True for folders, hidden files, and what macOS adds.
bool isPassedOver(const std::string& name) {
    const std::string file = fs::path(name).filename().string();
    return file.empty() || file[0] == '.' || name.rfind("__MACOSX/", 0) == 0;
}

bool isLogName(const fs::path& path) {
    const std::string extension = lowerCase(path.extension().string());
    return extension == ".csv" || extension == ".txt" || extension == ".gcsv" ||
           extension == ".log" || extension == ".tsv" || extension == ".pb" || extension == ".pb3";
}

std::vector<ArchiveEntry> logsOf(const LogArchive& archive, SensorKind kind) {
    std::vector<ArchiveEntry> logs;
    for (const ArchiveEntry& entry : archive.entries()) {
        const fs::path path(entry.name);
        const bool isOfKind = sensorNamedIn(path.filename().string()) == kind;
        if (isLogName(path) && isOfKind) logs.push_back(entry);
    }
    return logs;
}

bool isUncalibrated(const ArchiveEntry& entry) {
    return lowerCase(entry.name).find("uncalib") != std::string::npos;
}

}  // namespace

void LogArchive::Close::operator()(zip* archive) const { zip_discard(archive); }

LogArchive::LogArchive(const std::string& path) : path_(path) {
    int code = 0;
    archive_.reset(zip_open(path.c_str(), ZIP_RDONLY, &code));
    if (!archive_) {
        zip_error_t error;
        zip_error_init_with_code(&error, code);
        throw FileError(path, 0, "is no zip archive that can be read: " + textOf(error));
    }
    listEntries(fs::file_size(path));
}

LogArchive::LogArchive(const std::string& name, std::string_view content) : path_(name) {
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* source = zip_source_buffer_create(content.data(), content.size(), 0, &error);
    if (source != nullptr) archive_.reset(zip_open_from_source(source, ZIP_RDONLY, &error));
    if (!archive_) {
        zip_source_free(source);
        throw FileError(name, 0, "is no zip archive that can be read: " + textOf(error));
    }
    listEntries(content.size());
}

void LogArchive::listEntries(uint64_t size) {
    bytesLeft_ = std::min(kMostTimes * size + kBytesAnyway, kMostBytes);
    const zip_int64_t count = zip_get_num_entries(archive_.get(), 0);
    if (count > kMostEntries) {
        throw FileError(
            path_, 0,
            fmt::format("holds {} files where at most {} are allowed", count, kMostEntries));
    }
    for (zip_int64_t i = 0; i < count; ++i) {
        zip_stat_t stat;
        zip_stat_init(&stat);
        const auto index = static_cast<zip_uint64_t>(i);
        const zip_uint64_t needed = ZIP_STAT_NAME | ZIP_STAT_SIZE;
        const bool isKnown =
            zip_stat_index(archive_.get(), index, 0, &stat) == 0 && (stat.valid & needed) == needed;
        if (!isKnown || isPassedOver(stat.name)) continue;
        entries_.push_back({stat.name, stat.size, index});
    }
}

std::string LogArchive::read(const ArchiveEntry& entry) {
    const auto fail = [&](const std::string& what) { throw FileError(pathOf(entry), 0, what); };
    if (!allows(entry)) {
        fail(
            fmt::format("has {} bytes unpacked, more than an archive of this size may hold; unpack "
                        "it to use it all the same",
                        entry.size));
    }
    bytesLeft_ -= entry.size;
    const auto close = [](zip_file_t* file) { zip_fclose(file); };
    const std::unique_ptr<zip_file_t, decltype(close)> file(
        zip_fopen_index(archive_.get(), entry.index, 0), close);
    if (!file) fail(fmt::format("cannot be unpacked: {}", zip_strerror(archive_.get())));
    std::string content;
    constexpr size_t kPart = 1 << 16;
    // One byte more than there should be, to see the end.
    while (content.size() <= entry.size) {
        throwIfInterrupted();
        const size_t filled = content.size();
        content.resize(std::min<uint64_t>(filled + kPart, entry.size + 1));
        const zip_int64_t got =
            zip_fread(file.get(), content.data() + filled, content.size() - filled);
        if (got < 0) fail(fmt::format("cannot be unpacked: {}", zip_file_strerror(file.get())));
        content.resize(filled + static_cast<size_t>(got));
        if (got == 0) break;
    }
    if (content.size() != entry.size) fail("has not the size that the archive says");
    if (content.empty()) fail("is empty");
    return content;
}

bool isArchive(const std::string& path) {
    return !isSpecialFile(path) && startsAsArchive(readFile(path, 4));
}

std::vector<ArchiveEntry> gyroscopeLogs(const LogArchive& archive) {
    std::vector<ArchiveEntry> logs = logsOf(archive, SensorKind::kRate);
    if (!std::all_of(logs.begin(), logs.end(), isUncalibrated)) {
        logs.erase(std::remove_if(logs.begin(), logs.end(), isUncalibrated), logs.end());
    }
    return logs;
}

std::vector<ArchiveEntry> unnamedLogs(const LogArchive& archive) {
    std::vector<ArchiveEntry> logs = logsOf(archive, SensorKind::kUnnamed);
    for (ArchiveEntry& entry : logsOf(archive, SensorKind::kOrientation)) {
        logs.push_back(std::move(entry));
    }
    return logs;
}

}  // namespace framehold
