#include "commands/commands.h"
#include "report/run_record_file.h"
#include "stabilize/clip_report.h"

#include <memory>

#include <fmt/format.h>

#include <CLI/CLI.hpp>

namespace framehold {

void addReportCommand(CLI::App& app) {
    struct Options {
        ReportRequest request;
        std::string run;  // empty: none
        bool quiet = false;
    };
    auto options = std::make_shared<Options>();
    ReportRequest& r = options->request;
    CLI::App* command = app.add_subcommand("report", "Show what stabilizing a clip did, as a page");
    command->footer(
        "Examples:\n"
        "  framehold stabilize walk.mp4 -m walk.gcsv -o steady.mp4 --save-run run.json\n"
        "  framehold report walk.mp4 steady.mp4 --run run.json -o steady.html\n"
        "  framehold report walk.mp4 other-tool.mp4 -o other-tool.html\n"
        "\n"
        "The page is one file that opens without a network: pictures before and after, the path\n"
        "of the camera, the margin used, times, measures and parameters. Without --run it shows\n"
        "pictures and measures only. `stabilize --report FILE` does both in one go.");
    command->add_option("ORIGINAL", r.original, "The shaky clip")
        ->required()
        ->check(CLI::ExistingFile);
    command->add_option("STABILIZED", r.stabilized, "What was made from it, by any stabilizer")
        ->required()
        ->check(CLI::ExistingFile);
    command->add_option("-o,--output", r.page, "The page")->required()->type_name("FILE");
    command->add_option("--run", options->run, "What stabilize --save-run wrote")
        ->type_name("FILE")
        ->check(CLI::ExistingFile);
    command->add_option("--cutoff", r.cutoff, "Hz; slower motion is not shake")
        ->check(CLI::Range(0.05, 10.0))
        ->capture_default_str();
    command->add_option("--delay", r.delay, "Frames by which the stabilized clip is late")
        ->check(CLI::Range(0, 1000))
        ->capture_default_str();
    command->add_flag("-q,--quiet", options->quiet, "No progress bar");
    command->callback([options] {
        ReportRequest& request = options->request;
        if (!options->run.empty()) request.run = loadRunRecord(options->run);
        request.progress = !options->quiet;
        makeReport(request);
        if (!options->quiet) fmt::print(stderr, "written: {}\n", request.page);
    });
}

}  // namespace framehold
