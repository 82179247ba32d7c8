#pragma once

#include "bench/fixture.h"
#include "bench/interleaved_run.h"

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

/// Prints ZPR_GetMemorySize at several delays.
void printMemory(const std::vector<Size>& sizes);

/// Prints what this was measured on and with.
void printMachine();

}  // namespace framehold::bench
