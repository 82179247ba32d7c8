#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace framehold::bench {

class Stopwatch {
public:
    double ms() const {
        return std::chrono::duration<double, std::milli>(Clock::now() - start_).count();
    }

    /// Milliseconds since the start or the last lap.
    double lap() {
        const double passed = ms();
        start_ = Clock::now();
        return passed;
    }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point start_ = Clock::now();
};

/// One way to do a frame's work. Frames are numbered on and on; rings and transforms are used in
/// turn by that number.
struct Case {
    std::string name;
    std::function<void(int frame)> render;
    std::function<const uint8_t*(int frame)> luma;  // of its output; null: nothing to compare
};

struct Quartiles {
    double low = 0.0;
    double median = 0.0;
    double high = 0.0;
};

Quartiles quartilesOf(std::vector<double> values);

/// Names of the two cases that all others are compared with.
constexpr const char* kCopyName = "memcpy";
constexpr const char* kRemapName = "OpenCV remap (fixed-point maps)";

/// Measured milliseconds of one case, a value for each round.
struct Times {
    std::string name;
    std::vector<double> ms;
};

/// The same as medians and quartiles: as time, and as ratios to the cases named above, taken
/// round by round. Without one of them its ratio is 0.
struct Result {
    std::string name;
    Quartiles ms;
    Quartiles toCopy;
    Quartiles toRemap;
};

std::vector<Result> summarize(const std::vector<Times>& times);

struct Effort {
    int rounds;
    double seconds;  // of each case in a round; at least one frame
};

/// Runs the cases by turns, once in each round.
/// Google Benchmark interleaves runs as well, but forms no ratios of cases within a round.
std::vector<Times> runInterleaved(const std::vector<Case>& cases, const Effort& effort);

}  // namespace framehold::bench
