#include "cli/help_formatter.h"
#include "cli/usage_errors.h"
#include "commands/commands.h"
#include "common/interruption.h"
#include "media/libav_messages.h"
#include "zpr_framehold.h"

#include <cstdio>
#include <exception>

#include <fmt/format.h>

#include <CLI/CLI.hpp>

namespace {

constexpr int kFailure = 1;
constexpr int kUsage = 2;
constexpr int kInterrupted = 130;

std::string versionText() {
    ZPR_Version version;
    ZPR_GetVersion(&version);
    return fmt::format("framehold {}.{}.{}.{} ({})", version.major, version.minor, version.build,
                       version.revision, version.text);
}

int run(int argc, char** argv) {
    CLI::App app("Video stabilization from motion-sensor data", "framehold");
    app.formatter(std::make_shared<framehold::HelpFormatter>());
    app.footer(
        "`framehold COMMAND --help` tells more.\n"
        "Exit code: 0 done, 1 failed, 2 wrong usage, 130 interrupted.");
    app.set_help_flag("-h,--help", "What this command does and takes");
    app.set_help_all_flag("--help-all", "The same, with options that are rarely needed");
    app.require_subcommand(1);
    framehold::addStabilizeCommand(app);
    framehold::addCalibrateCommand(app);
    framehold::addSimulateCommand(app);
    framehold::addCompareCommand(app);
    framehold::addInspectCommand(app);
    framehold::addMeasureCommand(app);
    framehold::addReportCommand(app);
    framehold::addDocumentationCommands(app);
    // Only now, so that commands do not inherit it.
    app.set_version_flag("--version", versionText(), "Print the version");
    framehold::keepLibavMessages();
    framehold::catchInterruptions();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);
        std::fputs(framehold::describeUsageError(app, error).c_str(), stderr);
        return kUsage;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const framehold::Interrupted& error) {
        std::fprintf(stderr, "framehold: %s\n", error.what());
        return kInterrupted;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "framehold: %s\n", error.what());
        return kFailure;
    }
}
