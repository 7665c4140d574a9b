#include <string_view>

#include "logging/Log.h"
#include "monitor/Normalize.h"

namespace KALVO::SecurityMonitor {

using Logging::Severity;

void NormalizeProcessPath(std::string& path) noexcept { NormalizeProcessPath(path, 0); }

void NormalizeProcessPath(std::string& text, std::size_t from) noexcept {
    constexpr std::string_view procPrefix = "/proc/";
    constexpr std::string_view rootSuffix = "/root";
    constexpr std::size_t shortestMatch = procPrefix.size() + 1 + rootSuffix.size();

    // Almost every path fails one of these two tests and costs nothing more.
    if (from > text.size()) return;
    const std::string_view path = std::string_view(text).substr(from);
    if (path.size() < shortestMatch || path.substr(0, procPrefix.size()) != procPrefix) return;
    try {
        std::size_t digitsEnd = procPrefix.size();
        while (digitsEnd < path.size() && path[digitsEnd] >= '0' && path[digitsEnd] <= '9') ++digitsEnd;
        if (digitsEnd == procPrefix.size()) return;
        if (path.substr(digitsEnd, rootSuffix.size()) != rootSuffix) return;
        text.replace(from, digitsEnd + rootSuffix.size(), "container:");
    } catch (...) {
        Logging::Log::CurrentException(Severity::Error, "unable to normalize process path");
    }
}

}  // namespace KALVO::SecurityMonitor
