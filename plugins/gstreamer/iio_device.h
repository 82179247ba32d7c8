#pragma once

#include "zpr_framehold.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Layout of one channel in the records of a device's buffer, as in the file `scan_elements/*_type`.
struct IioElement {
    bool isSigned = true;
    bool isLittleEndian = true;
    int bits = 16;         // that count
    int storageBytes = 2;  // 1, 2, 4 or 8
    int shift = 0;         // bits to shift right first

    /// Reads storageBytes bytes at `from`.
    int64_t read(const uint8_t* from) const;
};

/// Reads texts such as "le:s16/16>>0" and "be:u12/16>>4". nullopt for anything else, and for channels
/// that are repeated.
std::optional<IioElement> parseIioElement(const std::string& text);

/// Matrix row by row.
using IioMatrix = std::array<double, 9>;

/// Reads a mount matrix such as "0, 1, 0; -1, 0, 0; 0, 0, 1". nullopt for anything else.
std::optional<IioMatrix> parseIioMatrix(const std::string& text);

/// How samples are taken from a device.
enum class IioMode {
    kAuto,    // from its buffer, if it has one that starts
    kBuffer,  // from its buffer
    kPoll,    // by reading the files `in_*_raw`
};

/// Gyroscope, accelerometer or both in one device of Linux' industrial I/O. Errors are FileErrors,
/// which name the file.
class IioDevice {
public:
    /// Reads what the device is. folder: its own in sysfs. file: its character device.
    IioDevice(std::string folder, std::string file);
    ~IioDevice();
    IioDevice(IioDevice&& other) noexcept;
    IioDevice& operator=(IioDevice&&) = delete;

    /// Devices with a gyroscope or an accelerometer below `root` (/sys/bus/iio/devices) in order of
    /// their numbers; their character devices are in `deviceFolder`. names: takes only those whose
    /// name or folder is in it; all if it is empty.
    static std::vector<IioDevice> find(const std::string& root, const std::string& deviceFolder,
                                       const std::vector<std::string>& names);

    const std::string& name() const { return name_; }
    const std::string& file() const { return file_; }
    bool hasRates() const { return kinds_[0].isThere; }
    bool hasAcceleration() const { return kinds_[1].isThere; }

    /// Samples per second that the device says; nullopt if it does not.
    std::optional<double> rate() const;

    /// Sets the rate, in samples per second.
    void setRate(double rate);

    /// Starts to take samples, with room for bufferLength records in the kernel.
    void start(IioMode mode, int bufferLength);

    /// Stops the buffer. For devices that have not been started, too.
    void stop();

    /// Descriptor to wait for with poll(); -1 where samples are polled.
    int descriptor() const { return descriptor_; }

    /// Why kAuto polls; empty if it does not.
    const std::string& reasonToPoll() const { return reasonToPoll_; }

    /// Appends the samples that are there, without waiting, or one reading where samples are polled:
    /// rates in rad/s and accelerations in m/s^2, in device axes. now: seconds, for devices that give
    /// no times. False at the end of a file that is no device.
    bool read(double now, std::vector<ZPR_SensorData>& samples);

private:
    struct Channel {
        std::string prefix;  // in_anglvel_x
        double scale = 1.0;
        double offset = 0.0;  // added before scaling
        IioElement element;
        size_t position = 0;  // in the record
    };

    struct Kind {
        bool isThere = false;
        std::array<Channel, 3> axes;
        std::optional<IioMatrix> mount;
    };

    std::string path(const std::string& file) const { return folder_ + "/" + file; }
    std::optional<double> numberFrom(const std::vector<std::string>& files) const;
    void readKind(const std::string& type, Kind& kind);
    void startBuffer(int bufferLength);
    void readLayout();
    void append(const Kind& kind, int32_t type, double time, const std::array<double, 3>& raw,
                std::vector<ZPR_SensorData>& samples) const;
    void decode(const uint8_t* record, double now, std::vector<ZPR_SensorData>& samples) const;

    std::string folder_;
    std::string file_;
    std::string name_;
    std::array<Kind, 2> kinds_;  // rates, acceleration
    bool isBuffered_ = false;
    std::string reasonToPoll_;
    int descriptor_ = -1;
    size_t recordBytes_ = 0;
    std::optional<Channel> timestamp_;
    std::vector<uint8_t> partial_;  // bytes of a record that is not whole yet
};

}  // namespace framehold
