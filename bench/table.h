#pragma once

#include "bench/race.h"
#include "bench/scene.h"

#include <string>
#include <vector>

namespace framehold::bench {

/// Results of one interleaved run.
struct Table {
    std::string title;
    std::string section;  // short, for files
    Size size;
    int threads;
    int ring;
    int delayFrames;
    std::vector<Result> results;
    std::vector<std::string> notes;
};

void print(const Table& table);

void writeCsv(const std::string& path, const std::vector<Table>& tables);

}  // namespace framehold::bench
