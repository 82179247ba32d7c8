#include "gstreamer/iio_device.h"

#include "common/text_fields.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

namespace framehold {

namespace fs = std::filesystem;

namespace {

// In the order of kinds. Samples are given from the last to the first: the library wants gravity first.
constexpr int32_t kSampleTypes[] = {ZPR_SENSOR_RATE_1, ZPR_SENSOR_GRAVITY_1};
constexpr const char* kKindNames[] = {"anglvel", "accel"};
constexpr const char* kFolderPrefix = "iio:device";

[[noreturn]] void failWithErrno(const std::string& file, const std::string& what) {
    throw FileError(file, 0, what + ": " + std::strerror(errno));
}

/// First line of a file; nullopt if there is no such file.
std::optional<std::string> textIn(const std::string& file) {
    if (!fs::exists(file)) return std::nullopt;
    std::ifstream stream(file);
    std::string line;
    if (!std::getline(stream, line) && !stream.eof()) failWithErrno(file, "cannot be read");
    return std::string(trim(line));
}

/// Finite number that is all of a text, whatever the locale.
std::optional<double> parseNumber(std::string_view text) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    double number = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isWhole = error == std::errc() && end == text.data() + text.size();
    return isWhole && std::isfinite(number) ? std::optional(number) : std::nullopt;
}

double numberIn(const std::string& file, const std::string& text) {
    const auto number = parseNumber(text);
    if (!number) throw FileError(file, 0, "'" + excerpt(text) + "' is no number");
    return *number;
}

void write(const std::string& file, const std::string& text) {
    const int descriptor = open(file.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    if (descriptor < 0) failWithErrno(file, "cannot be opened for writing");
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    const int error = errno;
    close(descriptor);
    errno = error;
    if (written != static_cast<ssize_t>(text.size())) {
        failWithErrno(file, "does not take '" + text + "'");
    }
}

bool isOn(const std::string& file) { return textIn(file).value_or("0") == "1"; }

}  // namespace

int64_t IioElement::read(const uint8_t* from) const {
    uint64_t number = 0;
    for (int i = 0; i < storageBytes; ++i) {
        const int byte = isLittleEndian ? storageBytes - 1 - i : i;
        number = number << 8 | from[byte];
    }
    number >>= shift;
    if (bits < 64) {
        number &= (uint64_t{1} << bits) - 1;
        const uint64_t sign = uint64_t{1} << (bits - 1);
        if (isSigned && (number & sign) != 0) number |= ~uint64_t{0} << bits;
    }
    return static_cast<int64_t>(number);
}

std::optional<IioElement> parseIioElement(const std::string& text) {
    char endian = 0;
    char sign = 0;
    int storageBits = 0;
    int end = 0;
    IioElement element;
    if (std::sscanf(text.c_str(), "%ce:%c%2d/%2d>>%2d%n", &endian, &sign, &element.bits,
                    &storageBits, &element.shift, &end) != 5 ||
        end != static_cast<int>(text.size())) {
        return std::nullopt;
    }
    const bool isKnown =
        (endian == 'l' || endian == 'b') && (sign == 's' || sign == 'u') &&
        (storageBits == 8 || storageBits == 16 || storageBits == 32 || storageBits == 64) &&
        element.bits > 0 && element.shift >= 0 && element.bits + element.shift <= storageBits;
    if (!isKnown) return std::nullopt;
    element.isSigned = sign == 's';
    element.isLittleEndian = endian == 'l';
    element.storageBytes = storageBits / 8;
    return element;
}

std::optional<IioMatrix> parseIioMatrix(const std::string& text) {
    IioMatrix matrix{};
    const auto rows = splitFields(text, ';');
    if (rows.size() != 3) return std::nullopt;
    for (size_t row = 0; row < 3; ++row) {
        const auto fields = splitFields(rows[row], ',');
        if (fields.size() != 3) return std::nullopt;
        for (size_t column = 0; column < 3; ++column) {
            const auto number = parseNumber(fields[column]);
            if (!number) return std::nullopt;
            matrix[3 * row + column] = *number;
        }
    }
    return matrix;
}

IioDevice::IioDevice(std::string folder, std::string file)
    : folder_(std::move(folder)), file_(std::move(file)) {
    name_ = textIn(path("name")).value_or("");
    for (size_t i = 0; i < kinds_.size(); ++i) readKind(kKindNames[i], kinds_[i]);
}

IioDevice::~IioDevice() {
    try {
        stop();
    } catch (const FileError&) {
        // The device is gone, and its buffer with it.
    }
}

IioDevice::IioDevice(IioDevice&& other) noexcept
    : folder_(std::move(other.folder_)), file_(std::move(other.file_)),
      name_(std::move(other.name_)), kinds_(std::move(other.kinds_)),
      isBuffered_(std::exchange(other.isBuffered_, false)),
      reasonToPoll_(std::move(other.reasonToPoll_)),
      descriptor_(std::exchange(other.descriptor_, -1)), recordBytes_(other.recordBytes_),
      timestamp_(std::move(other.timestamp_)), partial_(std::move(other.partial_)) {}

std::vector<IioDevice> IioDevice::find(const std::string& root, const std::string& deviceFolder,
                                       const std::vector<std::string>& names) {
    std::error_code error;
    std::vector<std::pair<int, std::string>> folders;
    for (const auto& entry : fs::directory_iterator(root, error)) {
        const std::string folder = entry.path().filename().string();
        const size_t length = std::strlen(kFolderPrefix);
        if (folder.compare(0, length, kFolderPrefix) != 0) continue;
        folders.emplace_back(std::atoi(folder.c_str() + length), folder);
    }
    if (error) throw FileError(root, 0, "cannot be read: " + error.message());
    std::sort(folders.begin(), folders.end());
    std::vector<IioDevice> devices;
    for (const auto& [number, folder] : folders) {
        const std::string own = (fs::path(root) / folder).string();
        const std::string name = textIn(own + "/name").value_or("");
        const auto isWanted = [&id = folder, &name](const std::string& wanted) {
            return wanted == id || wanted == name;
        };
        if (!names.empty() && std::none_of(names.begin(), names.end(), isWanted)) continue;
        IioDevice device(own, (fs::path(deviceFolder) / folder).string());
        if (device.hasRates() || device.hasAcceleration()) devices.push_back(std::move(device));
    }
    return devices;
}

/// The number in the first of the files that is there.
std::optional<double> IioDevice::numberFrom(const std::vector<std::string>& files) const {
    for (const std::string& file : files) {
        if (const auto text = textIn(path(file))) return numberIn(path(file), *text);
    }
    return std::nullopt;
}

void IioDevice::readKind(const std::string& type, Kind& kind) {
    const std::string prefix = "in_" + type;
    for (int axis = 0; axis < 3; ++axis) {
        Channel& channel = kind.axes[static_cast<size_t>(axis)];
        channel.prefix = prefix + "_" + "xyz"[axis];
        if (!fs::exists(path(channel.prefix + "_raw")) &&
            !fs::exists(path("scan_elements/" + channel.prefix + "_en"))) {
            return;
        }
        channel.scale = numberFrom({channel.prefix + "_scale", prefix + "_scale"}).value_or(1.0);
        channel.offset = numberFrom({channel.prefix + "_offset", prefix + "_offset"}).value_or(0.0);
    }
    for (const std::string& file :
         {prefix + "_mount_matrix", std::string("in_mount_matrix"), std::string("mount_matrix")}) {
        const auto text = textIn(path(file));
        if (!text) continue;
        kind.mount = parseIioMatrix(*text);
        if (!kind.mount)
            throw FileError(path(file), 0, "'" + excerpt(*text) + "' is no mount matrix");
        break;
    }
    kind.isThere = true;
}

std::optional<double> IioDevice::rate() const {
    const auto rate = numberFrom(
        {"sampling_frequency", "in_anglvel_sampling_frequency", "in_accel_sampling_frequency"});
    return rate && *rate > 0.0 ? rate : std::nullopt;
}

void IioDevice::setRate(double rate) {
    const std::string text = fmt::format("{:g}", rate);
    bool isSet = false;
    for (const char* file :
         {"sampling_frequency", "in_anglvel_sampling_frequency", "in_accel_sampling_frequency"}) {
        if (!fs::exists(path(file))) continue;
        write(path(file), text);
        isSet = true;
    }
    if (!isSet)
        throw FileError(path("sampling_frequency"), 0, "is missing: the rate cannot be set");
}

void IioDevice::start(IioMode mode, int bufferLength) {
    stop();
    reasonToPoll_.clear();
    if (mode == IioMode::kPoll) return;
    try {
        startBuffer(bufferLength);
    } catch (const FileError& error) {
        stop();
        if (mode == IioMode::kBuffer) throw;
        reasonToPoll_ = error.what();
    }
}

void IioDevice::startBuffer(int bufferLength) {
    write(path("buffer/enable"), "0");
    for (const Kind& kind : kinds_) {
        if (!kind.isThere) continue;
        for (const Channel& channel : kind.axes) {
            write(path("scan_elements/" + channel.prefix + "_en"), "1");
        }
    }
    const std::string timestamp = path("scan_elements/in_timestamp_en");
    if (fs::exists(timestamp)) write(timestamp, "1");
    if (fs::exists(path("buffer/length"))) {
        write(path("buffer/length"), std::to_string(bufferLength));
    }
    readLayout();
    descriptor_ = open(file_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor_ < 0) failWithErrno(file_, "cannot be opened");
    write(path("buffer/enable"), "1");
    isBuffered_ = true;
}

/// Finds where the channels that are on lie in a record: in order of their indices, each at a multiple
/// of its size, and the record's size a multiple of the largest.
void IioDevice::readLayout() {
    struct Placed {
        double index;
        Channel channel;
    };
    std::vector<Placed> placed;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(path("scan_elements"), error)) {
        const std::string file = entry.path().filename().string();
        constexpr size_t kSuffix = 3;  // _en
        if (file.size() <= kSuffix || file.compare(file.size() - kSuffix, kSuffix, "_en") != 0 ||
            !isOn(entry.path().string())) {
            continue;
        }
        Placed p{};
        p.channel.prefix = file.substr(0, file.size() - kSuffix);
        const std::string stem = path("scan_elements/" + p.channel.prefix);
        p.index = numberIn(stem + "_index", textIn(stem + "_index").value_or(""));
        const std::string type = textIn(stem + "_type").value_or("");
        const auto element = parseIioElement(type);
        if (!element) throw FileError(stem + "_type", 0, "'" + excerpt(type) + "' is not known");
        p.channel.element = *element;
        placed.push_back(p);
    }
    if (error) throw FileError(path("scan_elements"), 0, "cannot be read: " + error.message());
    std::sort(placed.begin(), placed.end(),
              [](const Placed& a, const Placed& b) { return a.index < b.index; });
    for (const Kind& kind : kinds_) {
        for (const Channel& channel : kind.axes) {
            const auto isIt = [&channel](const Placed& p) {
                return p.channel.prefix == channel.prefix;
            };
            if (!kind.isThere || std::any_of(placed.begin(), placed.end(), isIt)) continue;
            throw FileError(path("scan_elements/" + channel.prefix + "_en"), 0,
                            "cannot be set to 1");
        }
    }
    const auto roundedUp = [](size_t n, size_t step) { return (n + step - 1) / step * step; };
    size_t largest = 1;
    recordBytes_ = 0;
    timestamp_.reset();
    for (Placed& p : placed) {
        const auto size = static_cast<size_t>(p.channel.element.storageBytes);
        recordBytes_ = roundedUp(recordBytes_, size);
        p.channel.position = recordBytes_;
        recordBytes_ += size;
        largest = std::max(largest, size);
        if (p.channel.prefix == "in_timestamp") timestamp_ = p.channel;
        for (Kind& kind : kinds_) {
            for (Channel& channel : kind.axes) {
                if (channel.prefix != p.channel.prefix) continue;
                channel.element = p.channel.element;
                channel.position = p.channel.position;
            }
        }
    }
    recordBytes_ = roundedUp(recordBytes_, largest);
}

void IioDevice::stop() {
    if (descriptor_ >= 0) close(std::exchange(descriptor_, -1));
    partial_.clear();
    if (std::exchange(isBuffered_, false)) write(path("buffer/enable"), "0");
}

bool IioDevice::read(double now, std::vector<ZPR_SensorData>& samples) {
    if (descriptor_ < 0) {
        for (size_t i = kinds_.size(); i-- > 0;) {
            if (!kinds_[i].isThere) continue;
            std::array<double, 3> raw{};
            for (size_t axis = 0; axis < 3; ++axis) {
                const std::string file = path(kinds_[i].axes[axis].prefix + "_raw");
                const auto text = textIn(file);
                if (!text) throw FileError(file, 0, "is missing");
                raw[axis] = numberIn(file, *text);
            }
            append(kinds_[i], kSampleTypes[i], now, raw, samples);
        }
        return true;
    }
    std::vector<uint8_t> bytes(std::max<size_t>(recordBytes_ * 64, 4096));
    const ssize_t got =
        ::read(descriptor_, bytes.data(), bytes.size() / recordBytes_ * recordBytes_);
    if (got < 0) {
        if (errno == EAGAIN || errno == EINTR) return true;
        failWithErrno(file_, "cannot be read");
    }
    partial_.insert(partial_.end(), bytes.begin(), bytes.begin() + got);
    size_t done = 0;
    for (; done + recordBytes_ <= partial_.size(); done += recordBytes_) {
        decode(partial_.data() + done, now, samples);
    }
    partial_.erase(partial_.begin(), partial_.begin() + static_cast<ptrdiff_t>(done));
    return got > 0;
}

void IioDevice::decode(const uint8_t* record, double now,
                       std::vector<ZPR_SensorData>& samples) const {
    constexpr double kNanoseconds = 1e-9;
    const double time = timestamp_ ? kNanoseconds * static_cast<double>(timestamp_->element.read(
                                                        record + timestamp_->position))
                                   : now;
    for (size_t i = kinds_.size(); i-- > 0;) {
        if (!kinds_[i].isThere) continue;
        std::array<double, 3> raw{};
        for (size_t axis = 0; axis < 3; ++axis) {
            const Channel& channel = kinds_[i].axes[axis];
            raw[axis] = static_cast<double>(channel.element.read(record + channel.position));
        }
        append(kinds_[i], kSampleTypes[i], time, raw, samples);
    }
}

void IioDevice::append(const Kind& kind, int32_t type, double time,
                       const std::array<double, 3>& raw,
                       std::vector<ZPR_SensorData>& samples) const {
    ZPR_SensorData sample{};
    sample.type = type;
    sample.timestamp = time;
    std::array<double, 3> own{};
    for (size_t axis = 0; axis < 3; ++axis) {
        own[axis] = (raw[axis] + kind.axes[axis].offset) * kind.axes[axis].scale;
    }
    for (size_t row = 0; row < 3; ++row) {
        if (!kind.mount) {
            sample.value[row] = own[row];
            continue;
        }
        const double* m = kind.mount->data() + 3 * row;
        sample.value[row] = m[0] * own[0] + m[1] * own[1] + m[2] * own[2];
    }
    samples.push_back(sample);
}

}  // namespace framehold
