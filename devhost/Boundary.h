// The one catch-all of the stand-in host's entry points: no exception ever travels back into
// the plug-in that called it. std::bad_alloc answers 12, anything else 100.
#pragma once

#include <new>
#include <utility>

#include "host/ResultCode.h"

namespace KALVO::DevHost {

template <class Body>
Result::Code AtBoundary(Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (const std::bad_alloc&) {
        return Result::OutOfMemory;
    } catch (...) {
        return Result::ProtocolError;
    }
}

}  // namespace KALVO::DevHost
