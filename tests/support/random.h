#pragma once

#include <cstdint>
#include <random>

namespace zpr_test {

/// Random numbers that are the same on every platform, unlike those of the standard distributions.
class Random {
public:
    explicit Random(uint32_t seed) : engine_(seed) {}

    uint32_t bits() { return static_cast<uint32_t>(engine_()); }
    uint8_t byte() { return static_cast<uint8_t>(bits() >> 24); }
    double uniform(double low, double high) { return low + (high - low) * (bits() / 4294967296.0); }
    int integer(int low, int high) {
        return low + static_cast<int>(bits() % static_cast<uint32_t>(high - low + 1));
    }
    int even(int low, int high) { return 2 * integer(low / 2, high / 2); }

private:
    std::mt19937 engine_;
};

}  // namespace zpr_test
