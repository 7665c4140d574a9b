// A security event being assembled; made by IReportingService::CreateSecurityEvent.
#pragma once

#include <cstdint>

#include "host/IHostObservation.h"
#include "host/IObject.h"
#include "host/IValues.h"
#include "host/ObjectPtr.h"

namespace KALVO::Reporting {

class IHostSecurityEvent : public Agent::Hosting::IObject {
public:
    virtual void Reserved3() = 0;  // slots 3 to 8: not part of this contract
    virtual void Reserved4() = 0;
    virtual void Reserved5() = 0;
    virtual void Reserved6() = 0;
    virtual void Reserved7() = 0;
    virtual void Reserved8() = 0;
    // Slot 9. Adds an observation. `severity` is a v0::Severity number; `source` describes the
    // reporter ("type", "source_type", "info" with "version"); `typeId` is a GUID text naming
    // the kind of observation; `message` is a template whose {names} refer to observables
    // attached later; `tags` is a list of strings; `reserved` is always null. The new
    // observation goes to /*out*/ `observation`.
    virtual Result::Code CreateObservation(std::uint32_t severity,
                                           Agent::Hosting::ObjectPtr<EIL::Values::IValues>& source, char const* typeId,
                                           char const* message, Agent::Hosting::ObjectPtr<EIL::Values::IValues>& tags,
                                           void* reserved,
                                           Agent::Hosting::ObjectPtr<IHostObservation>& observation) = 0;

protected:
    ~IHostSecurityEvent() = default;
};

}  // namespace KALVO::Reporting
