#include "devhost/ReportingService.h"

#include <utility>

#include "devhost/Boundary.h"
#include "devhost/HostSecurityEvent.h"
#include "devhost/TrackedObject.h"
#include "devhost/ValuesSnapshot.h"

namespace KALVO::DevHost {

using Agent::Hosting::ObjectPtr;
using EIL::Values::IValues;

namespace {

// The host's own objects are kept as they are; anything else is copied (see EventRecord).
HostRef<IValues> Keep(const ObjectPtr<IValues>& values) {
    if (!values) return {};
    if (AsHostObject(values.Get())) return HostRef<IValues>::Share(values.Get());
    return HostRef<IValues>(ObjectPtr<IValues>(SnapshotValues(*values)));
}

}  // namespace

ReportingService::ReportingService(std::shared_ptr<FaultInjector> faults, std::shared_ptr<ObjectLedger> ledger)
    : m_faults(std::move(faults)), m_ledger(std::move(ledger)) {}

std::vector<std::shared_ptr<const EventRecord>> ReportingService::Events() const { return m_events.Snapshot(); }

std::uint64_t ReportingService::EventCount() const { return m_events.Total(); }

void ReportingService::Clear() { m_events.Clear(); }

void ReportingService::SetRetention(std::size_t limit) { m_events.SetLimit(limit); }

void ReportingService::SetListener(Listener listener) {
    auto shared = listener ? std::make_shared<const Listener>(std::move(listener)) : nullptr;
    std::lock_guard lock(m_listenerMutex);
    m_listener = std::move(shared);
}

Result::Code ReportingService::LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
    return AnswerObjectOnly<Reporting::IReportingService>(this, id, out);
}

Result::Code ReportingService::CreateSecurityEvent(ObjectPtr<Reporting::IHostSecurityEvent>& event) {
    if (const auto failure = m_faults->Check(Operation::CreateSecurityEvent)) return *failure;
    return AtBoundary([&] {
        event = TrackedObject<HostSecurityEvent>::Make(m_ledger, m_faults, m_ledger);
        return Result::Success;
    });
}

Result::Code ReportingService::ReportSecurityEvent(ObjectPtr<Reporting::IHostSecurityEvent> event) {
    if (const auto failure = m_faults->Check(Operation::ReportSecurityEvent)) return *failure;
    auto* ours = HostObjectCast<HostSecurityEvent>(event.Get());
    if (!ours) return Result::InvalidArgument;
    return AtBoundary([&] {
        auto record = std::make_shared<EventRecord>();
        for (HostObservation::Contents& observation : ours->Observations()) {
            ObservationRecord& recorded = record->observations.emplace_back();
            recorded.severity = observation.severity;
            recorded.typeId = std::move(observation.typeId);
            recorded.message = std::move(observation.message);
            recorded.source = Keep(observation.source);
            recorded.tags = Keep(observation.tags);
            for (auto& [name, values] : observation.observables) {
                recorded.observables.push_back(ObservableRecord{std::move(name), Keep(values)});
            }
        }
        record->sequence = m_sequence.fetch_add(1, std::memory_order_relaxed) + 1;
        std::shared_ptr<const Listener> listener;
        {
            std::lock_guard lock(m_listenerMutex);
            listener = m_listener;
        }
        m_events.Add(record);
        if (listener) {
            try {
                (*listener)(*record);
            } catch (...) {
                // A listener's failure is the tool's business, not the reporting plug-in's.
            }
        }
        return Result::Success;
    });
}

}  // namespace KALVO::DevHost
