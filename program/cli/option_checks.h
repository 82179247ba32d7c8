#pragma once

#include "cli/picture_size.h"

#include <sstream>

#include <CLI/CLI.hpp>

namespace framehold {

/// Accepts sizes that the library can work with.
inline CLI::Validator isPictureSize() {
    return CLI::Validator(
        [](std::string& text) {
            constexpr int kLargest = 16384;
            std::istringstream in(text);
            PictureSize size;
            const auto fits = [](int v) { return v >= 2 && v <= kLargest && v % 2 == 0; };
            const bool ok = in >> size && in.eof() && fits(size.width) && fits(size.height);
            return ok ? std::string()
                      : "'" + text + "' is not WIDTHxHEIGHT, both even and from 2 to 16384";
        },
        "WxH");
}

}  // namespace framehold
