// EventInfo: the stand-in host's record of one delivered ESP event (IEventInfo). The sensor
// does not consult it; it exists so monitors receive a real, accounted-for object.
#pragma once

#include "devhost/TrackedObject.h"
#include "host/IEventInfo.h"

namespace KALVO::DevHost {

class EventInfo : public ESP::v0::IEventInfo {
public:
    static constexpr char const* Kind = "EventInfo";

    // IObject only: IEventInfo has no identifier of its own.
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
        return AnswerObjectOnly<ESP::v0::IEventInfo>(this, id, out);
    }

protected:
    ~EventInfo() = default;
};

}  // namespace KALVO::DevHost
