// The host's reporting service: hands out empty security events and takes finished ones.
#pragma once

#include "host/IHostSecurityEvent.h"
#include "host/IObject.h"
#include "host/ObjectPtr.h"

namespace KALVO::Reporting {

class IReportingService : public Agent::Hosting::IObject {
public:
    static constexpr Agent::Hosting::ServiceId ServiceId = 0x9567f2e93d6edf52;  // IServiceProvider::GetService

    // Slot 3. Any thread. Stores a new, empty event in /*out*/ `event`.
    virtual Result::Code CreateSecurityEvent(Agent::Hosting::ObjectPtr<IHostSecurityEvent>& event) = 0;
    // Slot 4. Any thread. Submits a finished event; the argument is a counted copy that the
    // caller releases after the call.
    virtual Result::Code ReportSecurityEvent(Agent::Hosting::ObjectPtr<IHostSecurityEvent> event) = 0;

protected:
    ~IReportingService() = default;
};

}  // namespace KALVO::Reporting
