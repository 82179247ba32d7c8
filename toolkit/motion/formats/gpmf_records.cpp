#include "motion/formats/gpmf_records.h"

#include "common/text_fields.h"
#include "motion/formats/byte_reader.h"

#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

size_t sizeOfType(char type) {
    switch (type) {
        case 'b':
        case 'B':
            return 1;
        case 's':
        case 'S':
            return 2;
        case 'l':
        case 'L':
        case 'f':
            return 4;
        case 'j':
        case 'J':
        case 'd':
            return 8;
        default:
            return 0;
    }
}

/// The next number, of which there must be enough bytes.
double takeNumber(ByteReader& bytes, char type) {
    switch (type) {
        case 'b':
            return *bytes.number<int8_t>();
        case 'B':
            return *bytes.number<uint8_t>();
        case 's':
            return *bytes.number<int16_t>();
        case 'S':
            return *bytes.number<uint16_t>();
        case 'l':
            return *bytes.number<int32_t>();
        case 'L':
            return *bytes.number<uint32_t>();
        case 'f':
            return *bytes.number<float>();
        case 'j':
            return static_cast<double>(*bytes.number<int64_t>());
        case 'J':
            return static_cast<double>(*bytes.number<uint64_t>());
        default:
            return *bytes.number<double>();
    }
}

}  // namespace

std::vector<double> GpmfRecord::numbers() const {
    const size_t each = sizeOfType(type);
    if (each == 0 || size % each != 0) {
        throw std::invalid_argument(fmt::format("{}: type '{}' of {} bytes is not one of numbers",
                                                key, printable({&type, 1}), size));
    }
    std::vector<double> values;
    ByteReader bytes(data, ByteOrder::kBigEndian);
    while (bytes.left() >= each) values.push_back(takeNumber(bytes, type));
    return values;
}

std::string GpmfRecord::text() const {
    return std::string(data.substr(0, data.find_last_not_of('\0') + 1));
}

std::vector<GpmfRecord> gpmfRecords(std::string_view bytes) {
    constexpr size_t kKeySize = 4;
    constexpr size_t kAlignment = 4;
    constexpr size_t kMostRecords = 10000;  // cameras write less than a hundred
    std::vector<GpmfRecord> records;
    ByteReader reader(bytes, ByteOrder::kBigEndian);
    while (reader.left() > 0) {
        const auto key = reader.take(kKeySize);
        // Zeros fill up the end of a packet.
        if (key && (*key)[0] == '\0') break;
        const auto type = reader.number<char>();
        const auto size = reader.number<uint8_t>();
        const auto count = reader.number<uint16_t>();
        if (!count) throw std::invalid_argument("ends inside the head of a record");
        const size_t length = size_t{*size} * *count;
        const auto data = reader.take(length);
        const bool hasPadding =
            data && reader.take((kAlignment - length % kAlignment) % kAlignment).has_value();
        if (!hasPadding) {
            throw std::invalid_argument(
                fmt::format("{}: {} bytes reach beyond the end", printable(*key), length));
        }
        if (records.size() == kMostRecords) {
            throw std::invalid_argument(fmt::format("more than {} records in one", kMostRecords));
        }
        records.push_back({printable(*key), *type, *size, *count, *data});
    }
    return records;
}

}  // namespace framehold
