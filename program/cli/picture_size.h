#pragma once

#include <istream>
#include <ostream>

namespace framehold {

/// A picture size as options take it, "1280x720".
struct PictureSize {
    int width = 0;
    int height = 0;
};

inline std::istream& operator>>(std::istream& in, PictureSize& size) {
    char x = '\0';
    in >> size.width >> x >> size.height;
    if (x != 'x') in.setstate(std::ios::failbit);
    return in;
}

inline std::ostream& operator<<(std::ostream& out, const PictureSize& size) {
    return out << size.width << 'x' << size.height;
}

}  // namespace framehold
