#include "devhost/ReportingService.h"

#include "devhost/ValueReading.h"

namespace KALVO::DevHost {

using Agent::Hosting::ObjectPtr;
using EIL::Values::IValues;

namespace {

// The host's own objects are kept as they are; anything else is copied.
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
    return Serve(*m_faults, Operation::AddObservable, [&] {
        if (!name || !observable) return Result::InvalidArgument;
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
    return Serve(*m_faults, Operation::CreateObservation, [&] {
        if (!typeId || !message) return Result::InvalidArgument;
        const HostRef<TrackedObject<HostObservation>> made(TrackedObject<HostObservation>::Make(
            m_ledger, m_faults,
            ObservationRecord{severity, typeId, message, HostRef<IValues>::Share(source.Get()), HostRef<IValues>::Share(tags.Get()), {}}));
        {
            std::lock_guard lock(m_mutex);
            m_observations.push_back(made);
        }
        observation = ObjectPtr<Reporting::IHostObservation>(made.Get());
        return Result::Success;
    });
}

Result::Code ReportingService::CreateSecurityEvent(ObjectPtr<Reporting::IHostSecurityEvent>& event) {
    return Serve(*m_faults, Operation::CreateSecurityEvent, [&] {
        event = TrackedObject<HostSecurityEvent>::Make(m_ledger, m_faults, m_ledger);
        return Result::Success;
    });
}

Result::Code ReportingService::ReportSecurityEvent(ObjectPtr<Reporting::IHostSecurityEvent> event) {
    return Serve(*m_faults, Operation::ReportSecurityEvent, [&] {
        // Only an event this host made (a plug-in's own objects are of its own classes).
        const auto* ours = dynamic_cast<TrackedObject<HostSecurityEvent>*>(event.Get());
        if (!ours) return Result::InvalidArgument;
        auto record = std::make_shared<EventRecord>();
        record->observations = ours->Recorded();
        std::lock_guard lock(m_mutex);
        record->sequence = ++m_sequence;
        m_events.Emplace(record);
        if (m_listener) {
            try {
                m_listener(*record);
            } catch (...) {
                // A listener's failure is the tool's business, not the reporting plug-in's.
            }
        }
        return Result::Success;
    });
}

}  // namespace KALVO::DevHost
