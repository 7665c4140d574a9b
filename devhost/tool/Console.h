// Console: the program's own messages on stderr, each line written whole so it never mixes
// with the sensor's log lines (echoed by the host's log sink from other threads). stdout
// belongs to the data (reported events, trace lines) alone.
#pragma once

#include <string_view>

#include "devhost/tool/LineOutput.h"

namespace KALVO::DevHost::Tool {

// stderr as whole lines; any thread.
LineOutput& ErrorOutput();

// "kalvo-devhost: <text>".
void Note(std::string_view text);
// "kalvo-devhost: warning: <text>".
void Warn(std::string_view text);

}  // namespace KALVO::DevHost::Tool
