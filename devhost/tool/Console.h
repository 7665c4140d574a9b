// Console: the program's own messages on stderr, each line written whole so it never mixes
// with the sensor's log lines (echoed by the host's log sink from other threads) or with the
// progress indicator. stdout belongs to the data (reported events, trace lines) alone.
#pragma once

#include <ostream>
#include <string_view>

#include "devhost/tool/LineOutput.h"

namespace KALVO::DevHost::Tool {

// stderr as whole lines; any thread.
LineOutput& ErrorOutput();

// "kalvo-devhost: <text>".
void Note(std::string_view text);
// "kalvo-devhost: warning: <text>".
void Warn(std::string_view text);

// A stream for the host's log echo: what is written goes to ErrorOutput a whole line at a
// time. Used by one writer at a time (the log sink serialises its echo).
std::ostream& LogStream();

// Shows `text` on the terminal's last line, replacing what was there; empty clears it. Only for
// a terminal: the caller checks. Notes written meanwhile clear the line first.
void ShowProgress(std::string_view text);

}  // namespace KALVO::DevHost::Tool
