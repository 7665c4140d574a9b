#include <string_view>

#include "logging/Log.h"
#include "monitor/Normalize.h"

namespace KALVO::SecurityMonitor {

using Logging::Severity;

void NormalizeProcessPath(std::string& path) noexcept {
    constexpr std::string_view procPrefix = "/proc/";
    constexpr std::string_view rootSuffix = "/root";
    constexpr std::size_t shortestMatch = procPrefix.size() + 1 + rootSuffix.size();

    // Almost every path fails one of these two tests and costs nothing more.
    if (path.size() < shortestMatch || std::string_view(path).substr(0, procPrefix.size()) != procPrefix) return;
    try {
        std::size_t digitsEnd = procPrefix.size();
        while (digitsEnd < path.size() && path[digitsEnd] >= '0' && path[digitsEnd] <= '9') ++digitsEnd;
        if (digitsEnd == procPrefix.size()) return;
        if (std::string_view(path).substr(digitsEnd, rootSuffix.size()) != rootSuffix) return;
        path.replace(0, digitsEnd + rootSuffix.size(), "container:");
    } catch (...) {
        Logging::Log::CurrentException(Severity::Error, "unable to normalize process path");
    }
}

}  // namespace KALVO::SecurityMonitor
