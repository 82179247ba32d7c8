#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace framehold {

/// One key-length-value record of GPMF.
struct GpmfRecord {
    std::string key;  // four letters
    char type;        // 0: holds records
    size_t size;      // bytes of an element
    size_t count;     // of elements
    std::string_view data;

    bool isNested() const { return type == 0; }

    /// All numbers of all elements, one after another. Throws std::invalid_argument if the type is
    /// not one of numbers or does not divide the size of an element.
    std::vector<double> numbers() const;

    /// The text without trailing zeros.
    std::string text() const;
};

/// Takes the records of a packet, or of a nested record, apart. Throws std::invalid_argument if one
/// reaches beyond the end.
std::vector<GpmfRecord> gpmfRecords(std::string_view bytes);

}  // namespace framehold
