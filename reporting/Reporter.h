// Reporter: the monitor's gateway to the host's reporting service. It hands out new, empty
// security events and submits finished ones.
//
// The service provider and the reporting service are looked up afresh on every call and
// released before it returns, on every path; nothing of them is cached.
#pragma once

#include "host/IObject.h"
#include "host/ObjectPtr.h"
#include "logging/Logger.h"
#include "reporting/SecurityEvent.h"

namespace KALVO::Reporting {

// No lock and no mutable state after construction: the operations may run concurrently on the
// host's event threads, as far as the host's interfaces allow. Failures are std::system_error
// with the host's code in the generic category; nothing is logged on failure.
class Reporter {
public:
    // Keeps a reference to `host`. A null host throws std::system_error (100, generic,
    // "service provider not available"). Logs "Reporter successfully initialized." at Info
    // under "kalvo.reporter" when the host offers a log sink.
    explicit Reporter(Agent::Hosting::ObjectPtr<Agent::Hosting::IObject> host);

    Reporter(const Reporter&) = delete;  // holds host references; not needed
    Reporter& operator=(const Reporter&) = delete;

    // A new, empty event from the host. A missing provider or service throws its code without
    // a text; the service's refusal throws "unable to create new security event".
    SecurityEvent CreateSecurityEvent() const;

    // Hands `event` to the host (a counted copy, released after the call). A refusal throws
    // "unable to report security event"; the event is not retried.
    void ReportSecurityEvent(const SecurityEvent& event) const;

private:
    Agent::Hosting::ObjectPtr<Agent::Hosting::IObject> m_host;
    // Declared after m_host: destroyed first, so its sink and name go before the host.
    Logging::Logger m_logger;
};

}  // namespace KALVO::Reporting
