#pragma once

#include "support/random.h"
#include "zpr_framehold.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zpr_test {

/// A frame with bytes of its own. Pixels, row padding and a guard behind each plane lie in
/// `bytes`, so that comparing it shows every stray write.
class Frame {
public:
    Frame(int width, int height, int lumaPitch, int chromaPitch) {
        constexpr size_t kGuard = 64;
        const size_t luma = static_cast<size_t>(lumaPitch) * static_cast<size_t>(height) + kGuard;
        const size_t chroma =
            static_cast<size_t>(chromaPitch) * static_cast<size_t>(height / 2) + kGuard;
        bytes.assign(luma + chroma, 0);
        uint8_t* data = bytes.data();
        image = {
            ZPR_FORMAT_SEMIPLANAR_2, width, height, {data, data + luma}, {lumaPitch, chromaPitch}};
    }
    Frame(int width, int height) : Frame(width, height, width, width) {}
    Frame(const Frame&) = delete;

    void fill(uint8_t value) { bytes.assign(bytes.size(), value); }
    void fillRandom(Random& random) {
        for (uint8_t& b : bytes) b = random.byte();
    }

    ZPR_Image image{};
    std::vector<uint8_t> bytes;
};

/// FNV-1a of the pixels of a frame, padding left out.
inline uint64_t checksum(const ZPR_Image& image) {
    uint64_t sum = 0xcbf29ce484222325u;
    for (int plane = 0; plane < 2; ++plane) {
        for (int y = 0; y < image.height / (plane + 1); ++y) {
            const uint8_t* row = image.plane[plane] + ptrdiff_t{y} * image.pitch[plane];
            for (int x = 0; x < image.width; ++x) sum = (sum ^ row[x]) * 0x100000001b3u;
        }
    }
    return sum;
}

}  // namespace zpr_test
