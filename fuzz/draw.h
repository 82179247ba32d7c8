#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>

namespace zpr_fuzz {

/// Ends the run if a promise is broken; the fuzzer then keeps the input.
inline void require(bool holds, const char* promise) {
    if (holds) return;
    std::fprintf(stderr, "broken promise: %s\n", promise);
    std::abort();
}

/// Draws numbers from a fuzzer's input; zeros once it is used up. What is drawn from an input is
/// the same on every platform.
class Draw {
public:
    Draw(const uint8_t* data, size_t size) : data_(data), left_(size) {}

    bool isEmpty() const { return left_ == 0; }

    uint8_t byte() {
        if (left_ == 0) return 0;
        --left_;
        return *data_++;
    }

    uint64_t bits(int bytes) {
        uint64_t value = 0;
        for (int i = 0; i < bytes; ++i) value |= uint64_t{byte()} << 8 * i;
        return value;
    }

    bool flag() { return (byte() & 1) != 0; }

    /// At most 65536 different ones.
    int integer(int low, int high) {
        const auto count = static_cast<uint32_t>(high - low) + 1;
        const auto value = static_cast<uint32_t>(bits(count <= 256 ? 1 : 2));
        return low + static_cast<int>(value % count);
    }

    int even(int low, int high) { return 2 * integer(low / 2, high / 2); }

    /// Any number of 32 bits.
    int32_t word() { return static_cast<int32_t>(static_cast<uint32_t>(bits(4))); }

    /// Between low and high, in 256 steps.
    double uniform(double low, double high) { return low + (high - low) * byte() / 255.0; }

    /// Any double: one that breaks things, or any bits.
    double wild() {
        constexpr double kMax = std::numeric_limits<double>::max();
        constexpr double kInfinity = std::numeric_limits<double>::infinity();
        constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
        constexpr double kOdd[] = {
            0.0,         -0.0,        1.0,          -1.0,         1e-300,        -1e-300,
            1e300,       -1e300,      1e-160,       1e160,        1e9,           -1e9,
            134217727.9, 134217728.0, -134217728.1, 2147483648.0, -2147483649.0, 5e-324,
            kInfinity,   -kInfinity,  kNan,         kMax};
        const uint8_t choice = byte();
        if (choice < std::size(kOdd)) return kOdd[choice];
        const uint64_t drawn = bits(8);
        double value = 0.0;
        std::memcpy(&value, &drawn, sizeof value);
        return value;
    }

private:
    const uint8_t* data_;
    size_t left_;
};

}  // namespace zpr_fuzz

/// Each target defines it. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
