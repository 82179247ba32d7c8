#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

namespace framehold {

enum class ByteOrder { kBigEndian, kLittleEndian };

/// Reads binary data from its start to its end, and never beyond.
class ByteReader {
public:
    ByteReader(std::string_view bytes, ByteOrder order) : rest_(bytes), order_(order) {}

    /// Number of bytes that are left.
    size_t left() const { return rest_.size(); }

    /// The next `count` bytes; none if there are fewer.
    std::optional<std::string_view> take(size_t count) {
        if (count > rest_.size()) return std::nullopt;
        const std::string_view taken = rest_.substr(0, count);
        rest_.remove_prefix(count);
        return taken;
    }

    /// The next number, an integer or a floating-point number of its size; none if too few bytes
    /// are left.
    template <class T>
    std::optional<T> number() {
        const auto bytes = take(sizeof(T));
        if (!bytes) return std::nullopt;
        uint64_t bits = 0;
        for (size_t i = 0; i < sizeof(T); ++i) {
            const size_t at = order_ == ByteOrder::kBigEndian ? i : sizeof(T) - 1 - i;
            bits = bits << 8 | static_cast<unsigned char>((*bytes)[at]);
        }
        return fromBits<T>(bits);
    }

private:
    template <class T>
    static T fromBits(uint64_t bits) {
        T value;
        if constexpr (sizeof(T) == 1) {
            const auto narrow = static_cast<uint8_t>(bits);
            std::memcpy(&value, &narrow, sizeof value);
        } else if constexpr (sizeof(T) == 2) {
            const auto narrow = static_cast<uint16_t>(bits);
            std::memcpy(&value, &narrow, sizeof value);
        } else if constexpr (sizeof(T) == 4) {
            const auto narrow = static_cast<uint32_t>(bits);
            std::memcpy(&value, &narrow, sizeof value);
        } else {
            std::memcpy(&value, &bits, sizeof value);
        }
        return value;
    }

    std::string_view rest_;
    ByteOrder order_;
};

}  // namespace framehold
