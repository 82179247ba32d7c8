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

/// Prints what this was measured on and with.
void printMachine();

}  // namespace framehold::bench
