#include "cli/help.h"
#include "cli/options.h"
#include "cli/usage_errors.h"
#include "commands/commands.h"
#include "common/interruption.h"
#include "common/text_fields.h"
#include "media/libav.h"
#include "zpr_framehold.h"

#include <cstdio>
#include <exception>

#include <fmt/format.h>

namespace {

std::string versionText() {
    ZPR_Version version;
    ZPR_GetVersion(&version);
    return fmt::format("framehold {}.{}.{}.{} ({})", version.major, version.minor, version.build,
                       version.revision, version.text);
}

int run(int argc, char** argv) {
    framehold::Command program("Video stabilization from motion-sensor data", "framehold");
    program.formatter(std::make_shared<framehold::HelpFormatter>());
    program.setNotes("framehold COMMAND --help shows the options of a command.");
    program.set_help_flag("-h,--help", "Show help");
    program.set_help_all_flag("--help-all", "Show help with options that are rarely needed");
    program.require_subcommand(1);
    framehold::addStabilizeCommand(program);
    framehold::addCalibrateCommand(program);
    framehold::addSimulateCommand(program);
    framehold::addCompareCommand(program);
    framehold::addInspectCommand(program);
    framehold::addMeasureCommand(program);
    framehold::addReportCommand(program);
    framehold::addCompletionCommand(program);
    // Only now, so that commands do not inherit it.
    program.set_version_flag("--version", versionText(), "Print the version");
    framehold::keepLibavMessages();
    framehold::catchInterruptions();
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return program.exit(error);
        std::fputs(framehold::describeUsageError(program, error).c_str(), stderr);
        return framehold::kWrongUsage;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const framehold::Interrupted& error) {
        std::fprintf(stderr, "framehold: %s\n", framehold::escaped(error.what()).c_str());
        return framehold::kInterrupted;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "framehold: %s\n", framehold::escaped(error.what()).c_str());
        return framehold::kFailed;
    }
}
