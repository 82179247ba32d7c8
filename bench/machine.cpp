#include "bench/measurements.h"
#include "warp/row_kernels.h"

#include <cstdlib>
#include <fstream>
#include <thread>

#include <fmt/format.h>

#include <opencv2/core/version.hpp>

namespace framehold::bench {

namespace {

std::string processorModel() {
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("model name", 0) == 0 || line.rfind("Hardware", 0) == 0) {
            return line.substr(line.find(':') + 2);
        }
    }
    return "unknown processor";
}

}  // namespace

void printMachine() {
#if defined(__clang__)
    const char* compiler = "";  // its version names it
#else
    const char* compiler = "GCC ";
#endif
    fmt::print("{}, {} processors; {}{}, {}; kernels {}; OpenCV {}\n", processorModel(),
               std::thread::hardware_concurrency(), compiler, __VERSION__, FRAMEHOLD_BUILD_TYPE,
               qlx::zpr_framehold::selectRowKernels().name, CV_VERSION);
    // Others who want the processors show in every figure that follows.
    double load = 0.0;
    if (getloadavg(&load, 1) == 1) fmt::print("Load average before: {:.2f}\n", load);
}

}  // namespace framehold::bench
