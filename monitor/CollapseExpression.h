// Compiles the configured process-tree collapse expression (ECMAScript, case-insensitive).
//
// The expression is an administrator's, but a typo must not take the host down: it is matched
// on host threads against command lines any user chooses. With libstdc++ it is compiled for
// the library's non-recursive (polynomial) executor, which refuses back-references; libc++
// matches without recursion already and throws a complexity error on runaway backtracking.
// Compiling recurses in both, so overlong expressions are refused before the compiler sees them.
#pragma once

#include <regex>
#include <string>

namespace KALVO::SecurityMonitor {

// Throws std::regex_error for an invalid, unsupported or overlong expression.
std::regex CompileCollapseExpression(std::string const& pattern);

}  // namespace KALVO::SecurityMonitor
