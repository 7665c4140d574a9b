// The host's record of one endpoint-security event; passed to every ESP callback.
#pragma once

#include "host/IObject.h"

namespace KALVO::ESP::v0 {

// Its operations beyond IObject are the host's; this sensor does not consult the record.
class IEventInfo : public Agent::Hosting::IObject {
protected:
    ~IEventInfo() = default;
};

}  // namespace KALVO::ESP::v0
