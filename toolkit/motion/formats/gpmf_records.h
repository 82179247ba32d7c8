#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace framehold {

/// Key-length-value record of GPMF.
struct GpmfRecord {
    std::string key;  // four letters
    char type;        // 0: holds records
    size_t size;      // bytes of an element
    size_t count;     // of elements
    std::string_view data;

    /// All numbers of all elements, one after another. Throws std::invalid_argument if the type is
    /// not one of numbers or does not divide the size of an element.
    std::vector<double> numbers() const;

    /// Content as text, without trailing zeros.
    std::string text() const;
};

/// Splits a packet, or a record that holds records, into its records, which refer to `bytes`. Throws
/// std::invalid_argument if one reaches beyond the end, or if there are very many.
std::vector<GpmfRecord> gpmfRecords(std::string_view bytes);

}  // namespace framehold
