#include "monitor/Observables.h"

#include <system_error>

#include "eil/object/ThrowIfFailed.h"

namespace KALVO::SecurityMonitor {

using Agent::Hosting::IObject;
using Agent::Hosting::ObjectPtr;
using EIL::Object::ThrowIfFailed;

ObjectPtr<EIL::Values::IValues> ValuesOf(ESP::v0::IProcessInfo& process) {
    ObjectPtr<EIL::Values::IValues> values;
    ThrowIfFailed(Agent::Hosting::QueryInterface(&process, values));
    return values;
}

ObjectPtr<IObject> IdentityOf(ESP::v0::IProcessInfo& process) {
    ObjectPtr<IObject> identity;
    ThrowIfFailed(Agent::Hosting::QueryInterface(&process, identity));
    return identity;
}

void AttachObservable(Reporting::IHostObservation& observation, char const* name,
                      ObjectPtr<EIL::Values::IValues> values) {
    ThrowIfFailed(observation.AddObservable(name, values), "unable to add observable to observation");
}

}  // namespace KALVO::SecurityMonitor
