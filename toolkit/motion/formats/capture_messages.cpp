#include "common/interruption.h"
#include "common/text_fields.h"
#include "motion/formats/text_formats.h"
#include "motion/formats/wire_reader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

constexpr double kNanosecond = 1e-9;

/// Largest number of a field that is read over where it is not known.
constexpr uint64_t kLastField = 31;

[[noreturn]] void fail(const std::string& what) { throw std::invalid_argument(what); }

/// The fields of a message, one after another, each handed to `use`, which returns false for one that
/// is not known.
template <class Use>
void readMessage(std::string_view message, const char* name, Use use) {
    WireReader reader(message);
    while (!reader.atEnd()) {
        const auto field = reader.field();
        if (!field) fail(fmt::format("{}: does not end with a field", name));
        try {
            if (!use(*field) && field->number > kLastField) fail("is not known");
        } catch (const std::invalid_argument& error) {
            fail(fmt::format("{}: field {}: {}", name, field->number, error.what()));
        }
    }
}

uint64_t varintOf(const WireField& field) {
    if (field.type != WireType::kVarint) fail("is no whole number");
    return field.value;
}

/// Seconds of a time or a duration in nanoseconds, from 0 to `most`.
double secondsOf(const WireField& field, double most) {
    const double seconds = static_cast<double>(varintOf(field)) * kNanosecond;
    if (seconds > most) fail(fmt::format("{:g} s where at most {:g} are allowed", seconds, most));
    return seconds;
}

/// Longest time since a clock's start: 300 years in seconds are the range of nanoseconds.
constexpr double kLatest = 9.3e9;

double floatOf(uint64_t bits, double most) {
    const auto narrow = static_cast<uint32_t>(bits);
    float value;
    std::memcpy(&value, &narrow, sizeof value);
    if (!(std::abs(value) <= most)) {
        fail(fmt::format("{:g} is not a number from {:g} to {:g}", value, -most, most));
    }
    return value;
}

double numberOf(const WireField& field, double most) {
    if (field.type != WireType::kFixed32) fail("is no number of 4 bytes");
    return floatOf(field.value, most);
}

/// Three numbers, one after another.
Vec3 vectorOf(const WireField& field, double most) {
    constexpr size_t kSize = 3 * sizeof(float);
    if (field.type != WireType::kBytes || field.bytes.size() != kSize) {
        fail("is not three numbers of 4 bytes");
    }
    ByteReader reader(field.bytes, ByteOrder::kLittleEndian);
    Vec3 vector;
    for (double& v : vector) v = floatOf(*reader.number<uint32_t>(), most);
    return vector;
}

std::string_view messageOf(const WireField& field) {
    if (field.type != WireType::kBytes) fail("is no message");
    return field.bytes;
}

void subtract(Vec3& value, const Vec3& offset) {
    for (size_t i = 0; i < 3; ++i) value[i] -= offset[i];
}

/// Collects what the messages hold.
class CaptureParser {
public:
    /// size: bytes of the file, which bound what is kept.
    explicit CaptureParser(size_t size) : size_(size) {}

    /// A whole session, or the records of a stream, each with its size before it. Returns the number
    /// of messages that were read; fewer than there are, if the last one is cut off.
    size_t readSession(std::string_view content) {
        WireReader reader(content);
        size_t messages = 0;
        for (; !reader.atEnd(); ++messages) {
            throwIfInterrupted();
            const auto field = reader.field();
            if (!field) break;
            readOf(kSession, *field);
        }
        bytesLeft_ = reader.left();
        return messages;
    }

    size_t readStream(std::string_view content) {
        WireReader reader(content);
        size_t messages = 0;
        for (; !reader.atEnd(); ++messages) {
            throwIfInterrupted();
            const auto record = reader.counted();
            if (!record) break;
            WireReader inside(*record);
            const auto field = inside.field();
            if (!field || !inside.atEnd()) fail("a record is not one message");
            readOf(kRecord, *field);
        }
        bytesLeft_ = reader.left();
        return messages;
    }

    bool isCutOff() const { return bytesLeft_ > 0; }

    MotionLog finish() {
        log_.lensShiftWidth = arrayWidth_;
        for (FrameMetadata& frame : log_.frames) {
            if (frame.focalLength && pictureWidth_ > 0.0) frame.width = pictureWidth_;
        }
        if (!log_.frames.empty()) log_.readoutTime = log_.frames.front().readout;
        if (hasOffsets_) {
            log_.notes.push_back(
                "the phone's estimates of drift and bias are taken from the readings");
        }
        if (isCutOff()) {
            log_.notes.push_back(fmt::format(
                "cut off in its last message, or broken: the last {} bytes are left out",
                bytesLeft_));
        }
        return std::move(log_);
    }

private:
    /// Numbers of the messages' fields.
    struct Numbers {
        uint64_t camera;
        uint64_t motion;
        uint64_t frame;
        uint64_t passedOver[2];
    };
    static constexpr Numbers kSession = {2, 4, 5, {1, 3}};
    static constexpr Numbers kRecord = {1, 2, 4, {3, 3}};

    void readOf(const Numbers& numbers, const WireField& field) {
        if (field.type != WireType::kBytes) fail("is no message");
        if (field.number == numbers.motion) return readMotion(field.bytes);
        if (field.number == numbers.frame) return readFrame(field.bytes);
        if (field.number == numbers.camera) return readCamera(field.bytes);
        if (field.number != numbers.passedOver[0] && field.number != numbers.passedOver[1]) {
            fail(fmt::format("a message of number {} is not known", field.number));
        }
        readMessage(field.bytes, "message", [](const WireField&) { return false; });
    }

    void readMotion(std::string_view message) {
        constexpr double kFastest = 200.0, kStrongest = 2000.0;  // rad/s, m/s^2
        std::optional<Vec3> rate, gravity;
        Vec3 drift{}, bias{};
        double time = 0.0;
        readMessage(message, "motion", [&](const WireField& field) {
            if (field.number == 1) time = secondsOf(field, kLatest);
            if (field.number == 2) rate = vectorOf(field, kFastest);
            if (field.number == 3) drift = vectorOf(field, kFastest);
            if (field.number == 4) gravity = vectorOf(field, kStrongest);
            if (field.number == 5) bias = vectorOf(field, kStrongest);
            return field.number <= 5;
        });
        if (!rate) fail("motion: field 2, the rates, is missing");
        hasOffsets_ = hasOffsets_ || drift != Vec3{} || bias != Vec3{};
        subtract(*rate, drift);
        log_.rates.push_back({time, *rate});
        if (!gravity) return;
        subtract(*gravity, bias);
        log_.gravity.push_back({time, *gravity});
    }

    void readFrame(std::string_view message) {
        constexpr double kLongestExposure = 100.0, kLongestReadout = 10.0, kLongestFocal = 1e6;
        FrameMetadata frame;
        readMessage(message, "frame", [&](const WireField& field) {
            if (field.number == 1) frame.time = secondsOf(field, kLatest);
            if (field.number == 3) frame.exposure = secondsOf(field, kLongestExposure);
            if (field.number == 5) frame.readout = secondsOf(field, kLongestReadout);
            if (field.number == 8) {
                const double focalLength = numberOf(field, kLongestFocal);
                if (focalLength > 0.0) frame.focalLength = focalLength;
            }
            if (field.number == 10) readShift(messageOf(field));
            return field.number <= 11;
        });
        if (!frame.time) fail("frame: field 1, the time, is missing");
        keep(log_.frames, frame);
    }

    void readShift(std::string_view message) {
        constexpr double kFarthest = 1e5;  // pixels
        LensShift shift{};
        readMessage(message, "lens shift", [&](const WireField& field) {
            if (field.number == 1) shift.time = secondsOf(field, kLatest);
            if (field.number == 2) shift.x = numberOf(field, kFarthest);
            if (field.number == 3) shift.y = numberOf(field, kFarthest);
            return field.number <= 3;
        });
        keep(log_.lensShifts, shift);
    }

    void readCamera(std::string_view message) {
        readMessage(message, "camera", [&](const WireField& field) {
            if (field.number == 11) pictureWidth_ = widthOf(messageOf(field));
            if (field.number == 12) arrayWidth_ = widthOf(messageOf(field));
            return field.number <= 14;
        });
    }

    static double widthOf(std::string_view message) {
        constexpr uint64_t kWidest = 100'000;
        uint64_t width = 0;
        readMessage(message, "size", [&](const WireField& field) {
            if (field.number == 1) width = varintOf(field);
            return field.number <= 2;
        });
        if (width > kWidest) fail(fmt::format("{} pixels are not a width", width));
        return static_cast<double>(width);
    }

    /// Messages without what apps write in them are small, and what they become is not.
    template <class T>
    void keep(std::vector<T>& list, const T& item) {
        constexpr size_t kTimesSize = 3;
        if ((list.size() + 1) * sizeof(T) > kTimesSize * size_ + 1000) {
            fail("there are more of them than messages of an app's size would be");
        }
        list.push_back(item);
    }

    size_t size_;
    MotionLog log_;
    double pictureWidth_ = 0.0;  // 0: not known
    double arrayWidth_ = 0.0;
    bool hasOffsets_ = false;
    size_t bytesLeft_ = 0;  // from where no whole message follows
};

using Read = size_t (CaptureParser::*)(std::string_view);
constexpr Read kLayouts[] = {&CaptureParser::readSession, &CaptureParser::readStream};

/// True if a file may start so in one of the layouts.
bool startsIn(Read layout, std::string_view head) {
    constexpr size_t kFewestMessages = 2;
    CaptureParser parser(head.size());
    try {
        return (parser.*layout)(head) >= kFewestMessages || !parser.isCutOff();
    } catch (const std::invalid_argument&) {
        return false;
    }
}

/// The layout of a file that starts so; null for another file.
Read layoutOf(std::string_view content) {
    const std::string_view head = content.substr(0, kCaptureHead);
    for (const Read layout : kLayouts) {
        if (!head.empty() && startsIn(layout, head)) return layout;
    }
    return nullptr;
}

}  // namespace

bool detectCapture(std::string_view content) { return layoutOf(content) != nullptr; }

MotionLog parseCapture(const std::string& name, std::string_view content) {
    const Read layout = layoutOf(content);
    if (layout == nullptr) throw FileError(name, 0, "is no session of messages");
    CaptureParser parser(content.size());
    try {
        (parser.*layout)(content);
    } catch (const std::invalid_argument& error) {
        throw FileError(name, 0, error.what());
    }
    MotionLog log = parser.finish();
    if (log.rates.empty()) throw FileError(name, 0, "its messages hold no readings of a gyroscope");
    log.format = "protobuf session";
    log.detectedBy = layout == kLayouts[0] ? "the fields of its message" : "its stream of messages";
    log.sortByTime();
    return log;
}

}  // namespace framehold
