// The plug-in's logging entry points. Every line goes through the process-wide logger; when
// none exists (before the package made it, after it detached it) calls do nothing.
#pragma once

#include <fmt/format.h>

#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include "logging/ConcurrentSingleton.h"
#include "logging/Logger.h"

namespace KALVO::Logging {

using LoggerSingleton = Idioms::v1::ConcurrentSingleton<Logger>;

// The name of the plug-in's process-wide logger.
inline constexpr char const* SensorLoggerName = "kalvo.securitymonitor";

namespace Log {

namespace Detail {
// Classifies the exception being handled: a system error gives its own code, another
// std::exception 12, anything else 13 ("Unknown exception type"), no exception 0.
// Returns the text to log; the empty text when building it fails.
std::string CurrentExceptionTextAndError(std::error_code& error) noexcept;
}  // namespace Detail

// Formats and sends a line at `severity` through the process-wide logger, if there is one.
template <class... Args>
void Write(Severity severity, fmt::format_string<Args...> format, Args&&... args) noexcept {
    if (auto logger = LoggerSingleton::Get()) logger->Log(severity, format, std::forward<Args>(args)...);
}

template <class... Args>
void Error(fmt::format_string<Args...> format, Args&&... args) noexcept {
    Write(Severity::Error, format, std::forward<Args>(args)...);
}

// Sends `text` unformatted at Warn.
void Warn(char const* text) noexcept;

// Logs the exception being handled ("Unexpected Exception: '{}'") and then the caller's line,
// both at `severity`, and returns the exception's error code. Call it from a catch block.
template <class... Args>
std::error_code CurrentException(Severity severity, fmt::format_string<Args...> format, Args&&... args) noexcept {
    auto logger = LoggerSingleton::Get();
    std::error_code error(0, std::system_category());
    const std::string text = Detail::CurrentExceptionTextAndError(error);
    if (logger) {
        logger->Log(severity, "Unexpected Exception: '{}'", text);
        logger->Log(severity, format, std::forward<Args>(args)...);
    }
    return error;
}

}  // namespace Log
}  // namespace KALVO::Logging
