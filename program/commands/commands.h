#pragma once

#include <CLI/App.hpp>

namespace framehold {

// Each adds one command to the program; what it does is run when the command line is parsed.
void addStabilizeCommand(CLI::App& app);
void addCalibrateCommand(CLI::App& app);
void addSimulateCommand(CLI::App& app);
void addCompareCommand(CLI::App& app);
void addInspectCommand(CLI::App& app);
void addMeasureCommand(CLI::App& app);
void addReportCommand(CLI::App& app);
void addDocumentationCommands(CLI::App& app);  // manual and completion

}  // namespace framehold
