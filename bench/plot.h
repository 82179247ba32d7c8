#pragma once

#include "bench/table.h"

#include <string>
#include <vector>

namespace framehold::bench {

/// Draws two charts into one SVG file: cost against pixels for every contender on one thread and
/// cold frames, and the stages of a call against the delay on one thread.
void writePlot(const std::string& path, const std::vector<Table>& tables);

}  // namespace framehold::bench
