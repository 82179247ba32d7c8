#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>

#include <sys/mman.h>
#include <unistd.h>

namespace zpr_test {

/// An image plane between two pages that must not be touched: it ends right before the one behind
/// it, or starts right after the one before it.
class GuardedPlane {
public:
    GuardedPlane(int width, int rows, int pitch, bool atEnd)
        : width_(width), rows_(rows), pitch_(pitch) {
        const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t bytes =
            static_cast<size_t>(pitch) * static_cast<size_t>(rows - 1) + static_cast<size_t>(width);
        const size_t inside = (bytes + page - 1) / page * page;
        size_ = inside + 2 * page;
        base_ = mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base_ == MAP_FAILED) throw std::bad_alloc();
        uint8_t* first = static_cast<uint8_t*>(base_) + page;
        if (mprotect(first, inside, PROT_READ | PROT_WRITE) != 0) throw std::bad_alloc();
        data_ = atEnd ? first + (inside - bytes) : first;
    }
    ~GuardedPlane() { munmap(base_, size_); }
    GuardedPlane(const GuardedPlane&) = delete;

    uint8_t* data() { return data_; }
    int pitch() const { return pitch_; }

    /// Calls f with each byte of the plane, those between the rows included.
    template <class Function>
    void forEach(Function f) {
        for (int y = 0; y < rows_; ++y) {
            for (int x = 0; x < (y + 1 < rows_ ? pitch_ : width_); ++x) {
                f(data_[ptrdiff_t{y} * pitch_ + x]);
            }
        }
    }

private:
    int width_;
    int rows_;
    int pitch_;
    void* base_;
    size_t size_;
    uint8_t* data_;
};

}  // namespace zpr_test
