// StateDirectory: where the host's storage lives between runs, so that a sensor restarted on
// the same machine remembers the processes it has already reported (as an agent's own data
// directory does).
#pragma once

#include <string>

namespace KALVO::DevHost::Tool {

// $XDG_STATE_HOME/kalvo-devhost, else $HOME/.local/state/kalvo-devhost. Throws
// std::runtime_error when neither variable is set.
std::string DefaultStateDirectory();

// Creates `directory` (and its parents) when missing, checks that it can be written, and
// returns the path of the storage database in it. Throws std::runtime_error with a one-line
// message naming the directory and the fault.
std::string PrepareStateDirectory(const std::string& directory);

}  // namespace KALVO::DevHost::Tool
