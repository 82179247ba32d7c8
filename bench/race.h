#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace framehold::bench {

/// Somebody who does a frame's work. Frames are numbered on and on; rings and motions are used in
/// turn by that number.
struct Contender {
    std::string name;
    std::function<void(int frame)> render;
    std::function<const uint8_t*(int frame)> luma;  // what it rendered; null: nothing to compare
};

struct Quartiles {
    double low = 0.0;
    double median = 0.0;
    double high = 0.0;
};

Quartiles quartilesOf(std::vector<double> values);

/// Names of the two contenders that all others are compared with.
constexpr const char* kCopyName = "memcpy";
constexpr const char* kRemapName = "OpenCV remap (fixed-point maps)";

/// Measured milliseconds of one contender, a value for each round.
struct Times {
    std::string name;
    std::vector<double> ms;
};

/// The same as medians and quartiles: as time, and as ratios to the contenders named above, taken
/// round by round. Without one of them its ratio is 0.
struct Line {
    std::string name;
    Quartiles ms;
    Quartiles toCopy;
    Quartiles toRemap;
};

std::vector<Line> summarize(const std::vector<Times>& times);

/// Lets all take turns: in each round, each renders for about `seconds`, at least one frame.
std::vector<Times> race(const std::vector<Contender>& contenders, int rounds, double seconds);

}  // namespace framehold::bench
