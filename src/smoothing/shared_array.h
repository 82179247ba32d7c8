#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace qlx::zpr_framehold {

/// Reference-counted copy-on-write array.
///
/// Copies share the elements until one of them is written. New elements are zero-filled, which must
/// be a valid state of T: trivially copyable, or a SharedArray. Growth throws std::bad_alloc when
/// there is no memory, with nothing changed.
///
/// The count is atomic, so copies may be destroyed on different threads; one array object is not to
/// be used by two threads at once.
template <class T>
class SharedArray {
public:
    SharedArray() = default;

    SharedArray(const SharedArray& other) noexcept
        : data_(other.data_), references_(other.references_), size_(other.size_),
          capacity_(other.capacity_) {
        if (references_) references_->fetch_add(1);
    }

    SharedArray& operator=(SharedArray other) noexcept {
        swap(other);
        return *this;
    }

    ~SharedArray() {
        if (references_ && references_->fetch_sub(1) == 1) {
            std::destroy_n(data_, size_);
            ::operator delete(static_cast<void*>(data_));
            delete references_;
        }
    }

    uint32_t size() const { return size_; }
    bool isEmpty() const { return size_ == 0; }

    const T& operator[](uint32_t i) const { return data_[i]; }
    const T* begin() const { return data_; }
    const T* end() const { return data_ + size_; }

    /// Returns the elements for writing; makes a private copy first if they are shared.
    T* writable() {
        if (isShared()) reallocate(capacity_);
        return data_;
    }

    /// Makes room for `count` elements in all.
    void reserve(uint32_t count) {
        if (count <= capacity_ && !isShared()) return;
        const uint64_t doubled =
            std::min<uint64_t>(uint64_t{2} * capacity_, std::numeric_limits<uint32_t>::max());
        const uint32_t grown = std::max({static_cast<uint32_t>(doubled), uint32_t{4}, count});
        reallocate(count <= capacity_ ? capacity_ : grown);
    }

    /// Sets the element count; new elements are zeros.
    void resize(uint32_t count) {
        reserve(count);
        if (count < size_) std::destroy(data_ + count, data_ + size_);
        for (uint32_t i = size_; i < count; ++i) makeZero(data_ + i);
        size_ = count;
    }

private:
    static_assert(alignof(T) <= alignof(std::max_align_t));

    bool isShared() const { return references_ && references_->load() > 1; }

    static void makeZero(T* place) {
        if constexpr (std::is_trivially_copyable_v<T>) {
            std::memset(static_cast<void*>(place), 0, sizeof(T));
        } else {
            new (place) T();
        }
    }

    void reallocate(uint32_t capacity) {
        const uint64_t bytes = uint64_t{capacity} * sizeof(T);
        if (bytes > static_cast<uint64_t>(std::numeric_limits<std::ptrdiff_t>::max())) {
            throw std::bad_alloc();
        }
        SharedArray grown;
        grown.data_ = static_cast<T*>(::operator new(static_cast<size_t>(bytes)));
        try {
            grown.references_ = new std::atomic<int32_t>(1);
        } catch (...) {
            ::operator delete(static_cast<void*>(grown.data_));
            throw;
        }
        grown.capacity_ = capacity;
        std::uninitialized_copy_n(data_, size_, grown.data_);
        grown.size_ = size_;
        swap(grown);
    }

    void swap(SharedArray& other) noexcept {
        std::swap(data_, other.data_);
        std::swap(references_, other.references_);
        std::swap(size_, other.size_);
        std::swap(capacity_, other.capacity_);
    }

    T* data_ = nullptr;
    std::atomic<int32_t>* references_ = nullptr;
    uint32_t size_ = 0;
    uint32_t capacity_ = 0;
};

}  // namespace qlx::zpr_framehold
