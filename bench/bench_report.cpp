#include "bench/bench_report.h"

#include "warp/row_kernels.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

#include <fmt/format.h>
#include <fmt/os.h>

#include <opencv2/core/version.hpp>

namespace framehold::bench {

namespace {

std::string describe(const Quartiles& q, int digits) {
    if (q.median == 0.0) return "-";
    return fmt::format("{:.{}f} [{:.{}f} {:.{}f}]", q.median, digits, q.low, digits, q.high,
                       digits);
}

std::string csvFields(const Quartiles& q) {
    if (q.median == 0.0) return ",,";
    return fmt::format("{:.6g},{:.6g},{:.6g}", q.median, q.low, q.high);
}

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

void print(const Table& table) {
    fmt::print("\n{}\n", table.title);
    fmt::print("  {:<37}{:>25}  {:>9}{:>23}{:>21}\n", "median [quartiles]", "ms", "ns/pixel",
               "x memcpy", "x remap");
    for (const Result& result : table.results) {
        const double nanoseconds =
            result.ms.median * 1e6 / static_cast<double>(table.size.pixels());
        fmt::print("  {:<37}{:>25}  {:>9.3f}{:>23}{:>21}\n", result.name, describe(result.ms, 4),
                   nanoseconds, describe(result.toCopy, 2), describe(result.toRemap, 3));
    }
    for (const std::string& note : table.notes) fmt::print("  {}\n", note);
}

void writeCsv(const std::string& path, const std::vector<Table>& tables) {
    auto file = fmt::output_file(path);
    file.print(
        "section,width,height,threads,ring,delay_frames,case,"
        "ms,ms_q1,ms_q3,x_memcpy,x_memcpy_q1,x_memcpy_q3,x_remap,x_remap_q1,x_remap_q3\n");
    for (const Table& table : tables) {
        for (const Result& result : table.results) {
            file.print("{},{},{},{},{},{},\"{}\",{},{},{}\n", table.section, table.size.width,
                       table.size.height, table.threads, table.ring, table.delayFrames, result.name,
                       csvFields(result.ms), csvFields(result.toCopy), csvFields(result.toRemap));
        }
    }
}

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
