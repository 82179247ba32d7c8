#include "cli/options.h"
#include "cli/run_files.h"
#include "commands/commands.h"
#include "common/text_fields.h"
#include "compare/clip_report.h"
#include "report/run_record.h"

#include <memory>

#include <fmt/format.h>

namespace framehold {

void addReportCommand(Command& program) {
    struct Options {
        ReportRequest request;
        std::string run;             // file; empty: none
        std::optional<double> rate;  // of image sequences
    };
    auto options = std::make_shared<Options>();
    ReportRequest& r = options->request;
    Command& command = program.addCommand("report", "Show what stabilizing a clip did, as a page");
    command.setNotes(
        "The page is one file that opens without a network: a verdict, a clip and pictures before "
        "and after, the path of the camera, the margin used, times, measures and parameters. "
        "Without --run it has nothing of the run itself. stabilize --report does both in one go.");
    command.setExamples(
        {"framehold stabilize walk.mp4 -m walk.gcsv -o steady.mp4 --save-run run.json",
         "framehold report walk.mp4 steady.mp4 --run run.json -o steady.html",
         "framehold report walk.mp4 other-tool.mp4 -o other-tool.html"});
    command.addClip("ORIGINAL", r.original, "The shaky clip")->required();
    command.addClip("STABILIZED", r.stabilized, "What was made from it, by any stabilizer")
        ->required();
    command.addResult("-o,--output", r.page.path, "HTML page to write; - is standard output")
        ->required();
    command.addInputFile("--run", options->run, "File that stabilize --save-run wrote");
    addSequenceRateOption(command, options->rate);
    addCutoffOption(command, r.settings.cutoff);
    addDelayOption(command, r.settings.delay, "Frames by which the stabilized clip is late")
        ->capture_default_str();
    addOverwriteFlag(command, r.page.replaces);
    addQuietFlag(command, r.settings.quiet);
    command.callback([options] {
        ReportRequest& request = options->request;
        useSequenceRate({request.original, request.stabilized}, options->rate);
        RunFiles files;
        for (const std::string& input : {request.original, request.stabilized, options->run}) {
            files.addInput(input);
        }
        files.addOutput("--output", request.page.path);
        files.check(request.page.replaces, request.settings.quiet);
        if (!options->run.empty()) request.run = loadRunRecord(options->run);
        makeReport(request);
        if (!request.settings.quiet)
            fmt::print(stderr, "written: {}\n", escaped(writtenName(request.page.path)));
    });
}

}  // namespace framehold
