#include "bench/table.h"

#include <stdexcept>

#include <fmt/format.h>
#include <fmt/os.h>

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

}  // namespace framehold::bench
