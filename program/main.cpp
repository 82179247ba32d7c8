#include "cli/exit_codes.h"
#include "cli/help.h"
#include "cli/options.h"
#include "cli/settings_file.h"
#include "cli/usage_errors.h"
#include "commands/commands.h"
#include "common/interruption.h"
#include "common/text_fields.h"
#include "media/libav.h"
#include "zpr_framehold.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

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
    framehold::addWatchCommand(program);
    framehold::addCalibrateCommand(program);
    framehold::addSimulateCommand(program);
    framehold::addCompareCommand(program);
    framehold::addConvertCommand(program);
    framehold::addInspectCommand(program);
    framehold::addMeasureCommand(program);
    framehold::addReportCommand(program);
    framehold::addCompletionCommand(program);
    // Only now, so that commands do not inherit it.
    program.set_version_flag("--version", versionText(), "Print the version");
    framehold::keepLibavMessages();
    framehold::catchInterruptions();
    std::vector<std::string> words(argv + std::min(1, argc), argv + argc);
    const std::string wrong = framehold::findWrongWord(program, words);
    if (!wrong.empty()) {
        std::fputs(wrong.c_str(), stderr);
        return framehold::kExitWrongUsage;
    }
    words = framehold::withPresets(program, words);
    try {
        std::reverse(words.begin(), words.end());
        program.parse(std::move(words));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            std::ostringstream text;
            program.exit(error, text, text);
            std::fputs(text.str().c_str(), stdout);
            return 0;
        }
        std::fputs(framehold::describeUsageError(program, error).c_str(), stderr);
        return framehold::kExitWrongUsage;
    }
    return 0;
}

/// Opens what is closed of the standard streams, so that no file takes their numbers. Reading and
/// writing still fail.
void openStandardStreams() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) >= 0) continue;
        open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

int flushedEnd() {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return 0;
    throw std::runtime_error(std::string("standard output: cannot be written: ") +
                             std::strerror(errno));
}

}  // namespace

int main(int argc, char** argv) {
    openStandardStreams();
    try {
        const int code = run(argc, argv);
        return code == 0 ? flushedEnd() : code;
    } catch (const framehold::DoneWithLosses& error) {
        std::fprintf(stderr, "framehold: %s\n", framehold::escaped(error.what()).c_str());
        return framehold::kExitWithLosses;
    } catch (const framehold::Interrupted& error) {
        std::fprintf(stderr, "framehold: %s\n", framehold::escaped(error.what()).c_str());
        return framehold::kExitInterrupted;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "framehold: %s\n", framehold::escaped(error.what()).c_str());
        return framehold::kExitFailed;
    }
}
