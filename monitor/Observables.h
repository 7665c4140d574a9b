// What the event handlers attach to an observation: the host's own process records, viewed
// as IValues, and containers the monitor builds. The monitor adds nothing to the host's
// records: what the host describes is what gets reported.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "host/IHostObservation.h"
#include "host/IProcessInfo.h"
#include "host/IValues.h"
#include "host/ObjectPtr.h"
#include "reporting/Reporter.h"
#include "reporting/SecurityEvent.h"
#include "reporting/Source.h"

namespace KALVO::SecurityMonitor {

// The process record's IValues view; throws the lookup's code as a system error.
Agent::Hosting::ObjectPtr<EIL::Values::IValues> ValuesOf(ESP::v0::IProcessInfo& process);

// Its IObject view, the identity the event filter is asked about.
Agent::Hosting::ObjectPtr<Agent::Hosting::IObject> IdentityOf(ESP::v0::IProcessInfo& process);

// Attaches `values` under `name`; a refusal throws "unable to add observable to observation".
void AttachObservable(Reporting::IHostObservation& observation, char const* name,
                      Agent::Hosting::ObjectPtr<EIL::Values::IValues> values);

// Reports one security event holding one observation of kind `typeId`; `attach` adds the
// observables the message template names. Every failure is thrown to the handler's catch-all.
template <class Attach>
void ReportObservation(const Reporting::Reporter& reporter, const Reporting::Source& source, char const* typeId,
                       char const* message, Attach&& attach) {
    Reporting::SecurityEvent event = reporter.CreateSecurityEvent();
    auto observation = event.CreateObservation(Reporting::v0::Severity::Default, source, typeId, message);
    if (!observation) throw std::runtime_error("unable to create new observation");
    attach(*observation);
    reporter.ReportSecurityEvent(event);
}

// A host text that may be null, copied at once.
inline std::string CopyText(char const* text) { return text ? std::string(text) : std::string(); }

// A host text that may be null, seen in place: valid while the record that gave it is held.
inline std::string_view ViewText(char const* text) { return text ? std::string_view(text) : std::string_view(); }

}  // namespace KALVO::SecurityMonitor
