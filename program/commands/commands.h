#pragma once

#include "cli/options.h"

namespace framehold {

// Each adds one command to the program; what it does is run when the command line is parsed.
void addStabilizeCommand(Command& program);
void addWatchCommand(Command& program);
void addCalibrateCommand(Command& program);
void addSimulateCommand(Command& program);
void addCompareCommand(Command& program);
void addConvertCommand(Command& program);
void addInspectCommand(Command& program);
void addMeasureCommand(Command& program);
void addReportCommand(Command& program);
void addCompletionCommand(Command& program);

}  // namespace framehold
