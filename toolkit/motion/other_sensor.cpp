#include "motion/other_sensor.h"

#include "common/text_fields.h"
#include "motion/formats/text_columns.h"

#include <algorithm>

#include <fmt/format.h>

namespace framehold {

namespace fs = std::filesystem;

namespace {

/// The name in lower case without extension, words that name a sensor, and separators.
std::string nameWithoutSensor(const fs::path& file) {
    std::string name = lowerCase(file.stem().string());
    // Longer words before the words that they contain.
    for (const std::string_view word :
         {"uncalibrated", "total", "accelerometer", "acceleration", "accel", "acc", "gyroscope",
          "gyro", "angularvelocity", "rotationrate", "gravity", "_", "-", " ", "."}) {
        for (size_t at; (at = name.find(word)) != std::string::npos;) name.erase(at, word.size());
    }
    return name;
}

/// Some apps write, beside what they call accelerometer, the sum with gravity and gravity alone;
/// the accelerometer's is then without it.
int gravityRank(const fs::path& file) {
    const std::string name = lowerCase(file.filename().string());
    if (name.find("total") != std::string::npos) return 2;
    return name.find("gravity") != std::string::npos ? 1 : 0;
}

struct Candidates {
    std::vector<fs::path> byName;  // the best one first
    std::vector<fs::path> others;
};

Candidates candidatesAmong(const std::vector<fs::path>& files, const fs::path& path,
                           SensorKind missing) {
    Candidates candidates;
    for (const fs::path& file : files) {
        const SensorKind kind = sensorNamedIn(file.filename().string());
        if (kind == missing && nameWithoutSensor(file) == nameWithoutSensor(path)) {
            candidates.byName.push_back(file);
        } else if (kind == missing || kind == SensorKind::kUnnamed) {
            candidates.others.push_back(file);
        }
    }
    std::sort(candidates.others.begin(), candidates.others.end());
    std::sort(candidates.byName.begin(), candidates.byName.end(),
              [](const fs::path& a, const fs::path& b) {
                  return std::pair(-gravityRank(a), a) < std::pair(-gravityRank(b), b);
              });
    return candidates;
}

bool overlap(const std::vector<MotionSample>& a, const std::vector<MotionSample>& b) {
    return !a.empty() && !b.empty() && a.front().time <= b.back().time &&
           b.front().time <= a.back().time;
}

bool fits(const MotionLog& other, const MotionLog& log) {
    return log.gravity.empty() ? overlap(log.rates, other.gravity)
                               : overlap(log.gravity, other.rates);
}

void complete(const fs::path& file, MotionLog&& other, MotionLog& log) {
    if (log.gravity.empty()) {
        log.gravity = std::move(other.gravity);
        log.outOfOrder.gravity = other.outOfOrder.gravity;
    } else {
        log.rates = std::move(other.rates);
        log.outOfOrder.rates = other.outOfOrder.rates;
    }
    log.files.push_back(file.string());
    for (const std::string& note : other.notes) {
        log.notes.push_back(file.filename().string() + ": " + note);
    }
}

}  // namespace

bool lacksSensor(const MotionLog& log) {
    return log.orientations.empty() && log.rates.empty() != log.gravity.empty();
}

void addOtherSensor(const fs::path& path, const std::vector<fs::path>& files,
                    const ReadLog& readLog, MotionLog& log) {
    const SensorKind missing = log.rates.empty() ? SensorKind::kRate : SensorKind::kGravity;
    const Candidates candidates = candidatesAmong(files, path, missing);
    size_t leftOut = 0;
    const auto read = [&](const fs::path& file) {
        auto other = readLog(file);
        if (!other) ++leftOut;
        return other && fits(*other, log) ? std::move(other) : std::nullopt;
    };
    for (const fs::path& file : candidates.byName) {
        if (auto other = read(file)) return complete(file, *std::move(other), log);
    }
    std::optional<std::pair<fs::path, MotionLog>> found;  // the first
    size_t fitting = 0;
    for (const fs::path& file : candidates.others) {
        try {
            auto other = read(file);
            if (other && fitting++ == 0) found.emplace(file, *std::move(other));
        } catch (const FileError&) {
            // Deliberate: whatever else lies in the folder need not be a log.
        }
    }
    if (leftOut > 0) {
        log.notes.push_back(fmt::format(
            "{} files beside it were not looked at for the other sensor: they are too many or too "
            "large; name the right one as this one, with gyro or accel for the sensor",
            leftOut));
    } else if (fitting == 1) {
        return complete(found->first, std::move(found->second), log);
    } else if (fitting > 1) {
        log.notes.push_back(fmt::format(
            "{} files beside it could be the other sensor's, and none was taken; name the right "
            "one as this one, with gyro or accel for the sensor",
            fitting));
    }
}

}  // namespace framehold
