#include "monitor/CollapseExpression.h"

#include "monitor/SecurityMonitorImpl.h"

namespace KALVO::SecurityMonitor {

std::regex CompileCollapseExpression(std::string const& pattern) {
    if (pattern.size() > MaxCollapsePatternLength) throw std::regex_error(std::regex_constants::error_complexity);
    auto flags = std::regex_constants::ECMAScript | std::regex_constants::icase;
#if defined(__GLIBCXX__)
    flags |= std::regex_constants::__polynomial;
#endif
    return std::regex(pattern, flags);
}

}  // namespace KALVO::SecurityMonitor
