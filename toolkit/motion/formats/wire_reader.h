#pragma once

#include "motion/formats/byte_reader.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace framehold {

/// Types of fields in the wire format of protocol buffers.
enum class WireType { kVarint = 0, kFixed64 = 1, kBytes = 2, kFixed32 = 5 };

/// Field of a message.
struct WireField {
    uint64_t number = 0;
    WireType type = WireType::kVarint;
    uint64_t value = 0;      // of a varint, or the bits of a fixed one
    std::string_view bytes;  // of kBytes
};

/// Reads a message in the wire format of protocol buffers, field by field, and never beyond its end.
class WireReader {
public:
    explicit WireReader(std::string_view message) : rest_(message) {}

    bool atEnd() const { return rest_.empty(); }

    /// Number of bytes that are left.
    size_t left() const { return rest_.size(); }

    /// Number in groups of seven bits, the lowest first; none if it does not end, or is too long.
    std::optional<uint64_t> varint() {
        uint64_t value = 0;
        for (size_t i = 0; i < rest_.size() && i < kLongestVarint; ++i) {
            const auto byte = static_cast<unsigned char>(rest_[i]);
            value |= static_cast<uint64_t>(byte & 0x7F) << (7 * i);
            if (byte < 0x80) {
                rest_.remove_prefix(i + 1);
                return value;
            }
        }
        return std::nullopt;
    }

    /// Bytes with their number before them; none if there are fewer, and nothing is read then.
    std::optional<std::string_view> counted() {
        const std::string_view start = rest_;
        const auto count = varint();
        if (!count || *count > rest_.size()) {
            rest_ = start;
            return std::nullopt;
        }
        const std::string_view taken = rest_.substr(0, *count);
        rest_.remove_prefix(*count);
        return taken;
    }

    /// The next field; none if what follows is not a whole one, and nothing is read then.
    std::optional<WireField> field() {
        const std::string_view start = rest_;
        const auto field = readField();
        if (!field) rest_ = start;
        return field;
    }

private:
    static constexpr size_t kLongestVarint = 10;

    std::optional<WireField> readField() {
        const auto tag = varint();
        if (!tag || *tag >> 3 == 0) return std::nullopt;
        WireField field;
        field.number = *tag >> 3;
        field.type = static_cast<WireType>(*tag & 7);
        switch (field.type) {
            case WireType::kVarint:
                return with(field, varint());
            case WireType::kFixed64:
                return with(field, fixed<uint64_t>());
            case WireType::kFixed32:
                return with(field, fixed<uint32_t>());
            case WireType::kBytes: {
                const auto bytes = counted();
                if (!bytes) return std::nullopt;
                field.bytes = *bytes;
                return field;
            }
        }
        return std::nullopt;
    }

    template <class T>
    std::optional<uint64_t> fixed() {
        ByteReader reader(rest_, ByteOrder::kLittleEndian);
        const auto value = reader.number<T>();
        if (value) rest_.remove_prefix(sizeof(T));
        return value ? std::optional<uint64_t>(*value) : std::nullopt;
    }

    static std::optional<WireField> with(WireField field, std::optional<uint64_t> value) {
        if (!value) return std::nullopt;
        field.value = *value;
        return field;
    }

    std::string_view rest_;
};

}  // namespace framehold
