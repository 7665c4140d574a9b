// One observation inside a security event; made by IHostSecurityEvent::CreateObservation.
#pragma once

#include "host/IObject.h"
#include "host/IValues.h"
#include "host/ObjectPtr.h"

namespace KALVO::Reporting {

class IHostObservation : public Agent::Hosting::IObject {
public:
    virtual void Reserved3() = 0;  // slots 3 to 8: not part of this contract
    virtual void Reserved4() = 0;
    virtual void Reserved5() = 0;
    virtual void Reserved6() = 0;
    virtual void Reserved7() = 0;
    virtual void Reserved8() = 0;
    // Slot 9. Attaches `observable` under `name`, the name the message template refers to in
    // braces. The host takes its own reference if it keeps the values.
    virtual Result::Code AddObservable(char const* name,
                                       Agent::Hosting::ObjectPtr<EIL::Values::IValues>& observable) = 0;

protected:
    ~IHostObservation() = default;
};

}  // namespace KALVO::Reporting
