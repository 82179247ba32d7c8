#pragma once

namespace framehold {

// What the library's public header says in words.

constexpr int kMeshStep = 128;         // output pixels from one node of a correction to the next
constexpr double kSensorRate = 200.0;  // samples per second that the orientation buffer is for
constexpr double kStandardGravity = 9.81;  // m/s^2, what the library takes for 1 g

/// Seconds per frame that ZPR_Param::delayFrames is counted in, whatever the frame rate.
constexpr double kDelayFramePeriod = 0.03333333333333333;

/// True if an output dimension shows more than the input has. The library adds half the size
/// difference, in input pixels, to the zoom about the centre.
inline bool looksOutside(int input, int output, int cropPercent) {
    const double shown = input * cropPercent / 100.0;
    const int margin = (input - output) / 2;
    const double first = margin * shown / output - shown / 2.0 + output / 2.0;
    return first < 0.0 || first + shown > input;
}

}  // namespace framehold
