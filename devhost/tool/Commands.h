// The commands of kalvo-devhost (live, record, replay, health), apart from main() so that tests
// link them.
#pragma once

#include "devhost/tool/SignalWatcher.h"
#include "devhost/tool/ToolOptions.h"

namespace KALVO::DevHost::Tool {

// Runs the command `options` names and returns the program's exit status. Throws std::exception
// with a one-line message for the user when the command cannot do its work.
int RunCommand(const ToolOptions& options, SignalWatcher& signals);

}  // namespace KALVO::DevHost::Tool
