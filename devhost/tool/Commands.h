// The four commands of kalvo-devhost. Each returns the program's exit status, and throws
// std::exception with a one-line message for the user when it cannot do its work.
#pragma once

#include "devhost/tool/SignalWatcher.h"
#include "devhost/tool/ToolOptions.h"

namespace KALVO::DevHost::Tool {

int RunLive(const ToolOptions& options, SignalWatcher& signals);
int RunRecord(const ToolOptions& options, SignalWatcher& signals);
int RunReplay(const ToolOptions& options, SignalWatcher& signals);
int RunHealth(const ToolOptions& options, SignalWatcher& signals);

}  // namespace KALVO::DevHost::Tool
