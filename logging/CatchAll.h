// The one catch-all of every host entry point: runs the body, and if anything escapes, logs
// it ("Unexpected Exception: '{}'" and then the entry point's fixed message, at Error) so
// that no exception ever reaches the host.
#pragma once

#include <optional>
#include <system_error>
#include <utility>

#include "logging/Log.h"

namespace KALVO::Logging {

// Returns nothing when `body` completed, else the classified error of what it threw.
template <class Body>
std::optional<std::error_code> CatchAll(char const* message, Body&& body) noexcept {
    try {
        std::forward<Body>(body)();
        return std::nullopt;
    } catch (...) {
        return Log::CurrentException(Severity::Error, "{}", message);
    }
}

}  // namespace KALVO::Logging
