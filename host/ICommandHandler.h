// A plug-in's command handler, registered with the host's message router by routing key.
#pragma once

#include "host/IObject.h"
#include "host/IOutputStream.h"

namespace KALVO::Messaging {

class ICommandHandler : public Agent::Hosting::IObject {
public:
    static constexpr Agent::Hosting::InterfaceId Id = 0x4aac466709a0e932;  // answered by command handlers

    // Slot 3. Any host thread, possibly concurrently. `command` is the NUL-terminated routing
    // key; `payload` holds `size` bytes; the answer goes to `output` (borrowed for the call).
    // 0 on success, 12 short write, 22 bad request, 78 unknown command, 100 other failures.
    virtual Result::Code Execute(char const* command, char const* payload, unsigned long size,
                                 EIL::Stream::IOutputStream& output) = 0;

protected:
    ~ICommandHandler() = default;
};

}  // namespace KALVO::Messaging
