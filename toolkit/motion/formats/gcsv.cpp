#include "common/library_constants.h"
#include "motion/formats/text_formats.h"
#include "motion/formats/text_rows.h"

#include <algorithm>

#include <fmt/format.h>

namespace framehold {

namespace {

struct Scales {
    double time = 1.0;
    double rate = 1.0;
    double gravity = 1.0;
};

/// The lines above the table.
class GcsvHeader {
public:
    GcsvHeader(const LineReader& lines, MotionLog& log) : lines_(lines), log_(log) {}

    const Scales& scales() const { return scales_; }

    /// Adds the notes on what was read.
    void addNotes() const {
        if (isNewer_) {
            log_.notes.push_back(
                fmt::format("version {} is newer than {}, and read as that", version_, kNewest));
        }
        if (isReadOddly_) {
            log_.notes.push_back(
                "the picture is not read from its first row to its last, as is assumed: the "
                "rolling shutter will be corrected wrongly; rotate the video so that it is, or "
                "give --readout 0");
        }
        if (unknown_ == 1) {
            log_.notes.push_back(
                fmt::format("header key '{}' is not known and not used", firstUnknown_));
        } else if (unknown_ > 1) {
            log_.notes.push_back(fmt::format(
                "{} header keys are not known and not used, '{}' first", unknown_, firstUnknown_));
        }
    }

    /// Reads one line, "key,value".
    void read() {
        const std::string_view line = lines_.line();
        const size_t comma = line.find(',');
        key_ = std::string(trim(line.substr(0, comma)));
        value_ = comma == std::string_view::npos ? "" : std::string(trim(line.substr(comma + 1)));
        if (readScale() || readCamera() || isKept()) return keep();
        // Counted only, so that no number of them takes memory.
        if (unknown_++ == 0) firstUnknown_ = excerpt(key_);
    }

private:
    static constexpr double kNewest = 1.3;

    /// Hands a line on; of several with one key the last one.
    void keep() {
        for (auto& [key, value] : log_.headers) {
            if (key != key_) continue;
            value = value_;
            return;
        }
        log_.headers.emplace_back(key_, value_);
    }

    double number() const { return lines_.number(value_, key_); }

    [[noreturn]] void fail(const std::string& what) const {
        lines_.fail(fmt::format("{}: {} {}", key_, excerpt(value_), what));
    }

    double scale() const {
        constexpr double kLargest = 1e30;
        const double value = number();
        if (!(value > 0.0 && value <= kLargest)) fail("is not above 0 and at most 1e30");
        return value;
    }

    bool readScale() {
        if (key_ == "tscale")
            scales_.time = scale();
        else if (key_ == "gscale")
            scales_.rate = scale();
        else if (key_ == "ascale")
            scales_.gravity = scale();
        else if (key_ == "mscale")
            scale();
        else
            return false;
        return true;
    }

    bool readCamera() {
        if (key_ == "version")
            readVersion();
        else if (key_ == "orientation")
            readOrientation();
        else if (key_ == "frame_readout_time")
            readReadoutTime();
        else if (key_ == "frame_readout_direction")
            readReadoutDirection();
        else
            return false;
        return true;
    }

    bool isKept() const {
        constexpr std::string_view kKept[] = {"id",          "note",     "fwversion",
                                              "timestamp",   "vendor",   "videofilename",
                                              "lensprofile", "lens_info"};
        return std::find(std::begin(kKept), std::end(kKept), key_) != std::end(kKept);
    }

    void readVersion() {
        isNewer_ = number() > kNewest;
        version_ = excerpt(value_);
        log_.format = "gcsv " + version_;
    }

    void readOrientation() {
        try {
            log_.orientation = AxisMapping::fromLetters(value_);
        } catch (const std::invalid_argument& error) {
            lines_.fail(fmt::format("orientation: {}", error.what()));
        }
    }

    void readReadoutTime() {
        const double milliseconds = number();
        if (milliseconds < 0.0) fail("is below 0");
        log_.readoutTime = milliseconds / 1000.0;
    }

    void readReadoutDirection() {
        const double direction = number();
        if (direction != 0.0 && direction != 1.0 && direction != 2.0 && direction != 3.0) {
            fail("is not 0 (down), 1 (up), 2 (to the left) or 3 (to the right)");
        }
        isReadOddly_ = direction != 0.0;
    }

    const LineReader& lines_;
    MotionLog& log_;
    Scales scales_;
    std::string key_;
    std::string value_;
    std::string version_;
    bool isNewer_ = false;
    bool isReadOddly_ = false;
    size_t unknown_ = 0;
    std::string firstUnknown_;
};

}  // namespace

bool detectGcsv(std::string_view content) {
    const std::string_view line = firstLine(content);
    return line == "CAMERA IMU LOG" || line == "GYROFLOW IMU LOG";
}

MotionLog parseGcsv(const std::string& name, std::string_view content) {
    LineReader lines(name, content);
    if (!lines.next() || !detectGcsv(content)) {
        lines.fail(
            "not a .gcsv motion log: the first line is not \"CAMERA IMU LOG\" or "
            "\"GYROFLOW IMU LOG\"");
    }
    MotionLog log;
    log.format = "gcsv";
    log.detectedBy = fmt::format("the first line, \"{}\"", lines.line());
    GcsvHeader header(lines, log);
    RowLayout layout;
    while (layout.names.empty()) {
        if (!lines.next()) lines.fail("ends before the line of column names, t,gx,gy,gz");
        const auto fields = splitFields(lines.line());
        if (fields[0] == "t") {
            layout.names.assign(fields.begin(), fields.end());
        } else {
            header.read();
        }
    }
    header.addNotes();
    constexpr std::string_view kColumns[] = {"t", "gx", "gy", "gz", "ax", "ay", "az"};
    const bool hasGravity = layout.names.size() >= 7;
    for (size_t i = 0; i < (hasGravity ? 7 : 4); ++i) {
        if (i >= layout.names.size() || layout.names[i] != kColumns[i]) {
            lines.fail(fmt::format("column {} is not {}", i + 1, kColumns[i]));
        }
    }

    const Scales& scales = header.scales();
    std::vector<RowReading> readings = {
        vectorReading({0, scales.time}, {1, 2, 3}, scales.rate, log.rates)};
    if (hasGravity) {
        readings.push_back(vectorReading({0, scales.time}, {4, 5, 6},
                                         scales.gravity * kStandardGravity, log.gravity));
    }
    readRows(lines, layout, readings, log.notes);
    log.sortByTime();
    return log;
}

}  // namespace framehold
