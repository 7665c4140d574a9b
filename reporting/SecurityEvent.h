// SecurityEvent: one security event being assembled, a thin wrapper around the host's event
// object. Reporter::CreateSecurityEvent makes it, CreateObservation fills it, and
// Reporter::ReportSecurityEvent hands it back to the host.
#pragma once

#include <set>
#include <string>

#include "eil/values/Values.h"
#include "host/IHostObservation.h"
#include "host/IHostSecurityEvent.h"
#include "host/ObjectPtr.h"
#include "host/ReportingSeverity.h"
#include "reporting/Source.h"

namespace KALVO::Reporting {

using v0::Severity;

class Reporter;

// Copying shares the host's event (one more reference). Used by one handler call at a time.
class SecurityEvent {
public:
    // A new container with one string per tag, appended in the set's (ascending) order, so
    // the host reads them as a list: keys 0, 1, 2, ... Empty for no tags, never null.
    static Agent::Hosting::ObjectPtr<EIL::Values::ValuesObject> TagsToValues(const std::set<std::string>& tags);

    // Asks the host to add an observation of kind `typeId` (a GUID text) to this event.
    // `message` is a template whose {names} refer to observables the caller attaches
    // afterwards with IHostObservation::AddObservable. The source and tag containers are
    // released before returning; the host keeps its own references if it wants them.
    // A host refusal throws std::system_error (its code, generic category, "unable to create
    // new observation"); a host that succeeds without an observation yields a null pointer.
    Agent::Hosting::ObjectPtr<IHostObservation> CreateObservation(Severity severity, Source source, const char* typeId,
                                                                  const char* message,
                                                                  const std::set<std::string>& tags);
    // The same without tags.
    Agent::Hosting::ObjectPtr<IHostObservation> CreateObservation(Severity severity, Source source, const char* typeId,
                                                                  const char* message);

private:
    friend class Reporter;  // the only maker, and the one that hands the host object back

    explicit SecurityEvent(Agent::Hosting::ObjectPtr<IHostSecurityEvent> event) noexcept;

    Agent::Hosting::ObjectPtr<IHostSecurityEvent> m_event;  // never null
};

}  // namespace KALVO::Reporting
