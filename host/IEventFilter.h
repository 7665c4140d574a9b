// The host's event filter: may veto an event before a monitor reports it.
#pragma once

#include <cstdint>

#include "host/IObject.h"
#include "host/ObjectPtr.h"

namespace KALVO::ESP::v0 {

class IEventFilter : public Agent::Hosting::IObject {
public:
    static constexpr Agent::Hosting::ServiceId ServiceId = 0xcb33d5c5f2c9d916;  // IServiceProvider::GetService

    // The only answer with a meaning: suppress the event.
    static constexpr std::uint32_t Suppress = 1;

    virtual void Reserved3() = 0;  // slots 3 to 7: not part of this contract
    virtual void Reserved4() = 0;
    virtual void Reserved5() = 0;
    virtual void Reserved6() = 0;
    virtual void Reserved7() = 0;
    // Slot 8. Any event thread. `actor` and `target` are the processes' IObject views (the same
    // object for single-process events); `context` is a JSON text naming the sensor, e.g.
    // {"sensor":"securitymonitor"}. 1 suppresses; every other value lets the event through.
    virtual std::uint32_t FilterEvent(Agent::Hosting::ObjectPtr<Agent::Hosting::IObject>& actor,
                                      Agent::Hosting::ObjectPtr<Agent::Hosting::IObject>& target,
                                      char const* context) = 0;

protected:
    ~IEventFilter() = default;
};

}  // namespace KALVO::ESP::v0
