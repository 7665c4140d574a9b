// PluginLocation: which sensor library the program loads when none is named: the one next to
// the program (an installed pair), else the one built together with it (a build tree).
#pragma once

#include <string>
#include <vector>

namespace KALVO::DevHost::Tool {

// The places looked at, in order.
std::vector<std::string> PluginCandidates();

// The first candidate that exists. Throws std::runtime_error naming the places looked at.
std::string DefaultPluginPath();

}  // namespace KALVO::DevHost::Tool
