// framehold_bench: costs of rendering and stabilizing a frame, beside those of copying it and of
// rendering it by other libraries. Times compare within one run only.
#include "bench/measurements.h"
#include "runtime/worker_pool.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <fmt/format.h>
#include <fmt/os.h>

#include <CLI/CLI.hpp>

namespace {

using namespace framehold::bench;

constexpr int kFailure = 1;
constexpr int kUsage = 2;

struct Options {
    std::vector<std::string> sizes{"640x480", "1280x720", "1920x1080", "3840x2160"};
    std::set<std::string> sections{"rendering", "stages", "pool", "memory"};
    int threads = 0;
    int ring = 0;
    Effort effort{15, 0.05};
    std::string csv;
};

Size parseSize(const std::string& text) {
    Size size{0, 0};
    char times = 0;
    std::istringstream in(text);
    in >> size.width >> times >> size.height;
    if (in.fail() || !in.eof() || times != 'x' || size.width < 64 || size.height < 64 ||
        size.width > 8192 || size.height > 8192 || size.width % 2 != 0 || size.height % 2 != 0) {
        throw std::runtime_error(text + ": not an even size from 64x64 to 8192x8192");
    }
    return size;
}

int ringFor(Size size, const Options& options) {
    constexpr int64_t kLargePixels = 3840 * 2160;
    if (options.ring > 0) return options.ring;
    return size.pixels() < kLargePixels ? 8 : 4;
}

void addOptions(CLI::App& app, Options& options) {
    app.add_option("--sizes", options.sizes, "Frame sizes for rendering and memory")
        ->delimiter(',')
        ->capture_default_str();
    app.add_option("--only", options.sections, "Sections: rendering, stages, pool, memory")
        ->delimiter(',')
        ->check(CLI::IsMember({"rendering", "stages", "pool", "memory"}));
    constexpr int kMost = qlx::zpr_framehold::WorkerPool::kMaxThreads;
    app.add_option("--threads", options.threads,
                   "Threads where there are several; 1 leaves those parts out (default, and "
                   "at most: as many as processors)")
        ->check(CLI::Range(1, kMost));
    app.add_option("--ring", options.ring, "Frames of a cold ring (default 8, 4 from 3840x2160 on)")
        ->check(CLI::Range(2, 64));
    app.add_option("--rounds", options.effort.rounds, "Rounds that medians are taken of")
        ->check(CLI::Range(1, 10000))
        ->capture_default_str();
    app.add_option("--seconds", options.effort.seconds, "Time of each case in a round")
        ->check(CLI::Range(0.0, 10.0))
        ->capture_default_str();
    app.add_option("--csv", options.csv, "Write all lines to this file");
}

class Benchmark {
public:
    explicit Benchmark(const Options& options) : options_(options) {
        for (const std::string& text : options.sizes) sizes_.push_back(parseSize(text));
        std::sort(sizes_.begin(), sizes_.end(),
                  [](Size a, Size b) { return a.pixels() < b.pixels(); });
        constexpr unsigned kMost = qlx::zpr_framehold::WorkerPool::kMaxThreads;
        const unsigned processors = std::clamp(std::thread::hardware_concurrency(), 1u, kMost);
        threads_ = static_cast<int>(processors);
        if (options.threads > 0) threads_ = std::min(threads_, options.threads);
    }

    void run() {
        // A file that cannot be written should not show after minutes.
        if (!options_.csv.empty()) fmt::output_file(options_.csv);
        printMachine();
        fmt::print("{} rounds of {} s for each case\n", options_.effort.rounds,
                   options_.effort.seconds);
        if (wants("rendering")) runRendering();
        if (wants("stages")) runStages();
        if (wants("pool") && threads_ > 1) {
            report(measurePool({640, 480}, threads_, options_.effort));
            const Size size{1920, 1080};
            printIdleShare(size, threads_, ringFor(size, options_), options_.effort);
        }
        if (wants("memory")) printMemory(sizes_);
        if (!options_.csv.empty()) writeCsv(options_.csv, tables_);
    }

private:
    bool wants(const char* section) const { return options_.sections.count(section) != 0; }

    void runRendering() {
        for (const Size size : sizes_) {
            for (const int threads : std::set<int>{1, threads_}) {
                for (const int ring : {ringFor(size, options_), 1}) {
                    report(measureRendering(size, threads, ring, options_.effort));
                }
            }
        }
    }

    void runStages() {
        for (const Size size : {Size{640, 480}, Size{1920, 1080}}) {
            for (const int delay : {0, 15, 30}) {
                for (const bool usePool : {false, true}) {
                    if (usePool && threads_ == 1) continue;
                    report(measureStages(size, delay, usePool, ringFor(size, options_),
                                         options_.effort));
                }
            }
        }
    }

    void report(const Table& table) {
        print(table);
        std::fflush(stdout);
        tables_.push_back(table);
    }

    Options options_;
    std::vector<Size> sizes_;
    int threads_;
    std::vector<Table> tables_;
};

}  // namespace

int main(int argc, char** argv) {
    try {
        CLI::App app("Measures Framehold beside other libraries that render a frame.",
                     "framehold_bench");
        Options options;
        addOptions(app, options);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return app.exit(error) == 0 ? 0 : kUsage;
        }
        Benchmark(options).run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "framehold_bench: %s\n", error.what());
        return kFailure;
    }
    return 0;
}
