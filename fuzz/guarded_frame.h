#pragma once

#include "support/guarded_plane.h"
#include "zpr_framehold.h"

#include <vector>

namespace zpr_fuzz {

/// A frame whose planes end at, or start behind, a page that must not be touched.
class GuardedFrame {
public:
    /// Rows of `width` bytes; the last one has no padding, unless `isPadded`.
    GuardedFrame(int width, int height, int lumaPitch, int chromaPitch, bool atEnd,
                 bool isPadded = false)
        : luma_(isPadded ? lumaPitch : width, height, lumaPitch, atEnd),
          chroma_(isPadded ? chromaPitch : width, height / 2, chromaPitch, atEnd) {
        image = {ZPR_FORMAT_SEMIPLANAR_1,
                 width,
                 height,
                 {luma_.data(), chroma_.data()},
                 {lumaPitch, chromaPitch}};
    }

    /// Bytes that differ from their neighbours, and with the seed.
    void fill(uint32_t seed) {
        for (const zpr_test::GuardedPlane* plane : {&luma_, &chroma_}) {
            uint8_t* data = plane->data();
            for (size_t i = 0; i < plane->size(); ++i) {
                data[i] = static_cast<uint8_t>(++seed * 0x9d2c5681u >> 24);
            }
        }
    }

    /// All bytes, padding included.
    std::vector<uint8_t> bytes() const {
        std::vector<uint8_t> all(luma_.data(), luma_.data() + luma_.size());
        all.insert(all.end(), chroma_.data(), chroma_.data() + chroma_.size());
        return all;
    }

    ZPR_Image image{};

private:
    zpr_test::GuardedPlane luma_;
    zpr_test::GuardedPlane chroma_;
};

/// A record that ends at a page that must not be touched.
template <class T>
class GuardedRecord {
public:
    explicit GuardedRecord(const T& value) : place_(sizeof(T), 1, sizeof(T), true) {
        static_assert(sizeof(T) % alignof(T) == 0);
        *get() = value;
    }
    T* get() const { return reinterpret_cast<T*>(place_.data()); }

private:
    zpr_test::GuardedPlane place_;
};

}  // namespace zpr_fuzz
