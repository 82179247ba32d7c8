#pragma once

#include "bench/table.h"

#include <string>
#include <vector>

namespace framehold::bench {

struct Effort {
    int rounds;
    double seconds;  // of each contender in a round
};

/// Renders frames of a size: everybody's way of doing it.
Table measureRendering(Size size, int threads, int ring, const Effort& effort);

/// Whole calls of ZPR_Stabilize and their stages, on the instance's pool or on one thread.
Table measureStages(Size size, int delayFrames, bool usePool, int ring, const Effort& effort);

/// Names of the stages' lines in the order of ZPR_Stabilize.
extern const std::vector<std::string> kStageNames;

/// Prints what this was measured on and with.
void printMachine();

}  // namespace framehold::bench
