#include "bench/measurements.h"
#include "warp/row_kernels.h"
#include "zpr_framehold.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>
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

uint32_t memorySize(Size size, int delayFrames) {
    const ZPR_Param param = makeParam(size, delayFrames);
    uint32_t bytes = 0;
    if (ZPR_GetMemorySize(&param, &bytes) != ZPR_OK) throw std::runtime_error("bad parameters");
    return bytes;
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

void printMemory(const std::vector<Size>& sizes) {
    constexpr int kDelays[] = {0, 8, 15, 30, 60};
    constexpr double kMebibyte = 1024.0 * 1024.0;
    fmt::print("\nZPR_GetMemorySize in MiB\n  {:<14}", "delayFrames");
    for (const int delay : kDelays) fmt::print("{:>9}", delay);
    for (const Size size : sizes) {
        fmt::print("\n  {:<14}", fmt::format("{}x{}", size.width, size.height));
        for (const int delay : kDelays) {
            fmt::print("{:>9.1f}", static_cast<double>(memorySize(size, delay)) / kMebibyte);
        }
    }
    fmt::print("\n");
}

}  // namespace framehold::bench
