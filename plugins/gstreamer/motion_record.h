#pragma once

#include "zpr_framehold.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace framehold {

/// Media type of streams of motion samples. A buffer holds one or more whole records:
///
///     bytes  0 to 3   type, 1 to 6 as in ZPR_SensorData, unsigned
///     bytes  4 to 7   zero
///     bytes  8 to 15  time in seconds on the sensors' clock, IEEE 754 double
///     bytes 16 to 47  four values as in ZPR_SensorData, doubles; the fourth is 0 but for orientations
///
/// All of it little-endian.
constexpr const char* kMotionMediaType = "application/x-framehold-motion";

constexpr size_t kMotionRecordSize = 48;  // bytes

namespace detail {

/// Unsigned number of `bytes` little-endian bytes.
inline uint64_t readLittleEndian(const uint8_t* from, int bytes) {
    uint64_t number = 0;
    for (int i = bytes - 1; i >= 0; --i) number = number << 8 | from[i];
    return number;
}

inline void writeLittleEndian(uint8_t* to, uint64_t number, int bytes) {
    for (int i = 0; i < bytes; ++i) to[i] = static_cast<uint8_t>(number >> 8 * i);
}

inline double readDouble(const uint8_t* from) {
    const uint64_t bits = readLittleEndian(from, 8);
    double value = 0.0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

inline void writeDouble(uint8_t* to, double value) {
    uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    writeLittleEndian(to, bits, 8);
}

}  // namespace detail

/// Reads the record at `from`. Types that do not exist are given as they are.
inline ZPR_SensorData readMotionRecord(const uint8_t* from) {
    ZPR_SensorData sample{};
    sample.type = static_cast<int32_t>(detail::readLittleEndian(from, 4));
    sample.timestamp = detail::readDouble(from + 8);
    for (int i = 0; i < 4; ++i) sample.value[i] = detail::readDouble(from + 16 + 8 * i);
    return sample;
}

/// Writes kMotionRecordSize bytes.
inline void writeMotionRecord(const ZPR_SensorData& sample, uint8_t* to) {
    detail::writeLittleEndian(to, static_cast<uint32_t>(sample.type), 4);
    detail::writeLittleEndian(to + 4, 0, 4);
    detail::writeDouble(to + 8, sample.timestamp);
    for (int i = 0; i < 4; ++i) detail::writeDouble(to + 16 + 8 * i, sample.value[i]);
}

}  // namespace framehold
