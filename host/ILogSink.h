// The host's logging interface, asked of the host object.
#pragma once

#include <cstdint>

#include "host/IObject.h"

namespace KALVO::Logging {

class ILogSink : public Agent::Hosting::IObject {
public:
    static constexpr Agent::Hosting::InterfaceId Id = 0xa583b6ce961cf100;  // asked of the host object

    // Slot 3. Any thread, concurrently. `text` holds `length` bytes and need not be terminated;
    // `severity` is a v0::Severity number. Callers ignore the result.
    virtual Result::Code Log(char const* loggerName, std::uint32_t severity, char const* text,
                             unsigned long length) = 0;

protected:
    ~ILogSink() = default;
};

}  // namespace KALVO::Logging
