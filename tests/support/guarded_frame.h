#pragma once

#include "zpr_framehold.h"

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

namespace zpr_test {

/// An image plane between two pages that must not be touched: it ends right before the one behind
/// it, or starts right after the one before it.
class GuardedPlane {
public:
    GuardedPlane(int width, int rows, int pitch, bool atEnd)
        : pitch_(pitch), size_(static_cast<size_t>(pitch) * static_cast<size_t>(rows - 1) +
                               static_cast<size_t>(width)) {
        const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t inside = (size_ + page - 1) / page * page;
        mapped_ = inside + 2 * page;
        base_ = mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base_ == MAP_FAILED) throw std::bad_alloc();
        uint8_t* first = static_cast<uint8_t*>(base_) + page;
        if (mprotect(first, inside, PROT_READ | PROT_WRITE) != 0) throw std::bad_alloc();
        data_ = atEnd ? first + (inside - size_) : first;
    }
    ~GuardedPlane() { munmap(base_, mapped_); }
    GuardedPlane(const GuardedPlane&) = delete;

    uint8_t* data() const { return data_; }
    int pitch() const { return pitch_; }

    /// Bytes from the first pixel to the last, those between the rows included.
    uint8_t* begin() const { return data_; }
    uint8_t* end() const { return data_ + size_; }

private:
    int pitch_;
    size_t size_;
    void* base_;
    size_t mapped_;
    uint8_t* data_;
};

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
        for (const GuardedPlane* plane : {&luma_, &chroma_}) {
            for (uint8_t& b : *plane) b = static_cast<uint8_t>(++seed * 0x9d2c5681u >> 24);
        }
    }

    /// All bytes, padding included.
    std::vector<uint8_t> bytes() const {
        std::vector<uint8_t> all(luma_.begin(), luma_.end());
        all.insert(all.end(), chroma_.begin(), chroma_.end());
        return all;
    }

    ZPR_Image image{};

private:
    GuardedPlane luma_;
    GuardedPlane chroma_;
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
    GuardedPlane place_;
};

}  // namespace zpr_test
