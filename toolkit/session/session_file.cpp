#include "session/session_file.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace framehold {

namespace {

constexpr char kHead[] = "FRAMEHOLD SESSION 1\n";
constexpr char kSampleTag = 'S';
constexpr char kFrameTag = 'F';
constexpr char kDrainTag = 'D';
constexpr char kLevelTag = 'L';

constexpr char kCut[] = ": ends within an event";

constexpr int32_t kLargestSide = 65536;

/// Bytes of a picture of two planes.
uint64_t bytesOf(const ZPR_Image& image) {
    const uint64_t luma = static_cast<uint64_t>(image.width) * static_cast<uint64_t>(image.height);
    return luma + luma / 2;
}

bool isPossible(int32_t side) { return side >= 2 && side <= kLargestSide; }

#if __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "numbers are stored as they lie in memory, which has to be little-endian"
#endif

template <class T>
void put(std::ostream& out, const T& value) {
    out.write(reinterpret_cast<const char*>(&value), sizeof value);
}

template <class T>
void get(std::istream& in, T& value) {
    in.read(reinterpret_cast<char*>(&value), sizeof value);
}

/// Calls `visit` with every number of the parameters that is stored.
template <class Param, class Visit>
void visitParam(Param& p, Visit visit) {
    for (auto* image : {&p.inputImage, &p.outputImage}) {
        visit(image->format);
        visit(image->width);
        visit(image->height);
    }
    visit(p.fieldOfView);
    visit(p.fieldOfViewMode);
    visit(p.readoutTime);
    visit(p.timeOffset);
    visit(p.sensorMask);
    visit(p.cropPercent);
    visit(p.smoothingLevel);
    visit(p.delayFrames);
}

void putPlane(std::ostream& out, const uint8_t* plane, int32_t pitch, int32_t width, int32_t rows) {
    for (int32_t y = 0; y < rows; ++y) {
        out.write(reinterpret_cast<const char*>(plane + ptrdiff_t{y} * pitch), width);
    }
}

}  // namespace

SessionWriter::SessionWriter(const OutputName& name, const ZPR_Param& param) : file_(name) {
    file_.stream() << kHead;
    visitParam(param, [this](const auto& value) { put(file_.stream(), value); });
}

void SessionWriter::sample(const ZPR_SensorData& sample) {
    std::ostream& out = file_.stream();
    put(out, kSampleTag);
    put(out, sample.type);
    put(out, sample.timestamp);
    put(out, sample.value);
}

void SessionWriter::frame(double timestamp, const ZPR_Image& image) {
    std::ostream& out = file_.stream();
    put(out, kFrameTag);
    put(out, timestamp);
    putPlane(out, image.plane[0], image.pitch[0], image.width, image.height);
    putPlane(out, image.plane[1], image.pitch[1], image.width, image.height / 2);
}

void SessionWriter::level(int32_t level) {
    put(file_.stream(), kLevelTag);
    put(file_.stream(), level);
}

void SessionWriter::drain() { put(file_.stream(), kDrainTag); }

void SessionWriter::finish() { file_.commit(); }

SessionReader::SessionReader(const std::string& path) : path_(path) {
    std::error_code failed;
    if (!std::filesystem::is_regular_file(path, failed)) {
        throw std::runtime_error(path_ + ": is not a file that can be read");
    }
    in_.open(path, std::ios::binary);
    std::string head(sizeof kHead - 1, '\0');
    in_.read(head.data(), static_cast<std::streamsize>(head.size()));
    visitParam(param_, [this](auto& value) { get(in_, value); });
    if (!in_ || head != kHead) throw std::runtime_error(path_ + ": not a session file");
    for (ZPR_Image* image : {&param_.inputImage, &param_.outputImage}) {
        if (!isPossible(image->width) || !isPossible(image->height)) {
            throw std::runtime_error(path_ + ": damaged: a picture of " +
                                     std::to_string(image->width) + " x " +
                                     std::to_string(image->height) + ", where sides of 2 to " +
                                     std::to_string(kLargestSide) + " are possible");
        }
        image->pitch[0] = image->pitch[1] = image->width;
    }
    frame_ = param_.inputImage;
    requireMemory();
}

void SessionReader::requireMemory() {
    constexpr uint64_t kAlwaysFine = uint64_t{1} << 30;
    const uint64_t most = std::max(kAlwaysFine, 2 * bytesLeft());
    // The frames that wait, the one that comes in, and one that comes out.
    const auto waiting = static_cast<uint64_t>(std::max(param_.delayFrames, 0));
    const uint64_t frame = bytesOf(param_.inputImage);
    const uint64_t fixed = frame + bytesOf(param_.outputImage);
    if (fixed <= most && waiting <= (most - fixed) / frame) return;
    throw std::runtime_error(path_ + ": damaged: " + std::to_string(waiting) +
                             " waiting frames of " + std::to_string(param_.inputImage.width) +
                             " x " + std::to_string(param_.inputImage.height) +
                             " pixels would take more " + "memory than the file accounts for");
}

uint64_t SessionReader::bytesLeft() {
    const auto here = in_.tellg();
    in_.seekg(0, std::ios::end);
    const auto end = in_.tellg();
    in_.seekg(here);
    return static_cast<uint64_t>(end - here);
}

SessionReader::Event SessionReader::next() {
    char tag = 0;
    if (!in_.get(tag)) return Event::kEnd;
    Event event = Event::kDrain;
    if (tag == kSampleTag) {
        event = Event::kSample;
        get(in_, sample_.type);
        get(in_, sample_.timestamp);
        get(in_, sample_.value);
    } else if (tag == kFrameTag) {
        event = Event::kFrame;
        get(in_, timestamp_);
        const uint64_t bytes = bytesOf(frame_);
        if (bytes > bytesLeft()) throw std::runtime_error(path_ + kCut);
        pixels_.resize(static_cast<size_t>(bytes));
        in_.read(reinterpret_cast<char*>(pixels_.data()),
                 static_cast<std::streamsize>(pixels_.size()));
        frame_.plane[0] = pixels_.data();
        frame_.plane[1] = pixels_.data() + bytes / 3 * 2;
    } else if (tag == kLevelTag) {
        event = Event::kLevel;
        get(in_, level_);
    } else if (tag != kDrainTag) {
        throw std::runtime_error(path_ + ": damaged: unknown event");
    }
    if (!in_) throw std::runtime_error(path_ + kCut);
    return event;
}

}  // namespace framehold
