// What the event handlers attach to an observation: the host's own process records, viewed
// as IValues, and containers the monitor builds. The monitor adds nothing to the host's
// records: what the host describes is what gets reported.
#pragma once

#include <string>

#include "host/IHostObservation.h"
#include "host/IProcessInfo.h"
#include "host/IValues.h"
#include "host/ObjectPtr.h"

namespace KALVO::SecurityMonitor {

// The process record's IValues view; throws the lookup's code as a system error.
Agent::Hosting::ObjectPtr<EIL::Values::IValues> ValuesOf(ESP::v0::IProcessInfo& process);

// Its IObject view, the identity the event filter is asked about.
Agent::Hosting::ObjectPtr<Agent::Hosting::IObject> IdentityOf(ESP::v0::IProcessInfo& process);

// Attaches `values` under `name`; a refusal throws "unable to add observable to observation".
void AttachObservable(Reporting::IHostObservation& observation, char const* name,
                      Agent::Hosting::ObjectPtr<EIL::Values::IValues> values);

// A host text that may be null, copied at once.
inline std::string CopyText(char const* text) { return text ? std::string(text) : std::string(); }

}  // namespace KALVO::SecurityMonitor
