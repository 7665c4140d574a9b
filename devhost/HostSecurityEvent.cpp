#include "devhost/HostSecurityEvent.h"

#include <utility>

#include "devhost/Boundary.h"
#include "devhost/ValuesSnapshot.h"

namespace KALVO::DevHost {

using Agent::Hosting::ObjectPtr;
using EIL::Values::IValues;

namespace {

// The host's own objects are kept as they are; anything else is copied (see EventRecord).
HostRef<IValues> Keep(IValues* values) {
    if (!values) return {};
    if (AsHostObject(values)) return HostRef<IValues>::Share(values);
    return HostRef<IValues>(ObjectPtr<IValues>(SnapshotValues(*values)));
}

}  // namespace

ObservationRecord HostObservation::Recorded() const {
    ObservationRecord recorded{m_contents.severity, m_contents.typeId, m_contents.message,
                               Keep(m_contents.source.Get()), Keep(m_contents.tags.Get()), {}};
    std::lock_guard lock(m_mutex);
    for (const ObservableRecord& observable : m_contents.observables)
        recorded.observables.push_back(ObservableRecord{observable.name, Keep(observable.values.Get())});
    return recorded;
}

Result::Code HostObservation::AddObservable(char const* name, ObjectPtr<IValues>& observable) {
    if (const auto failure = m_faults->Check(Operation::AddObservable)) return *failure;
    if (!name || !observable) return Result::InvalidArgument;
    return AtBoundary([&] {
        ObservableRecord entry{name, HostRef<IValues>::Share(observable.Get())};
        std::lock_guard lock(m_mutex);
        m_contents.observables.push_back(std::move(entry));
        return Result::Success;
    });
}

std::vector<ObservationRecord> HostSecurityEvent::Recorded() const {
    std::vector<ObservationRecord> observations;
    std::lock_guard lock(m_mutex);
    for (const auto& observation : m_observations) observations.push_back(observation->Recorded());
    return observations;
}

Result::Code HostSecurityEvent::CreateObservation(std::uint32_t severity, ObjectPtr<IValues>& source, char const* typeId,
                                                  char const* message, ObjectPtr<IValues>& tags, void* /*reserved*/,
                                                  ObjectPtr<Reporting::IHostObservation>& observation) {
    if (const auto failure = m_faults->Check(Operation::CreateObservation)) return *failure;
    if (!typeId || !message) return Result::InvalidArgument;
    return AtBoundary([&] {
        HostRef<TrackedObject<HostObservation>> made(TrackedObject<HostObservation>::Make(
            m_ledger, m_faults,
            ObservationRecord{severity, typeId, message, HostRef<IValues>::Share(source.Get()), HostRef<IValues>::Share(tags.Get()), {}}));
        ObjectPtr<Reporting::IHostObservation> handed(made.Get());
        {
            std::lock_guard lock(m_mutex);
            m_observations.push_back(std::move(made));
        }
        observation = std::move(handed);
        return Result::Success;
    });
}

}  // namespace KALVO::DevHost
