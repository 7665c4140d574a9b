// Turns a host's non-zero result code into the exception the plug-in uses inside: a
// std::system_error carrying that code in the generic category, with a fixed text where the
// operation has one.
#pragma once

#include <system_error>

#include "host/ResultCode.h"

namespace KALVO::EIL::Object {

inline void ThrowIfFailed(Result::Code code) {
    if (code != Result::Success) throw std::system_error(static_cast<int>(code), std::generic_category());
}

inline void ThrowIfFailed(Result::Code code, char const* what) {
    if (code != Result::Success) throw std::system_error(static_cast<int>(code), std::generic_category(), what);
}

}  // namespace KALVO::EIL::Object
