#include "devhost/ReportingService.h"

#include <utility>

#include "devhost/Boundary.h"
#include "devhost/HostSecurityEvent.h"

namespace KALVO::DevHost {

using Agent::Hosting::ObjectPtr;

void ReportingService::SetListener(Listener listener) {
    std::lock_guard lock(m_mutex);
    m_listener = std::move(listener);
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
        record->observations = ours->Recorded();
        std::lock_guard lock(m_mutex);
        record->sequence = ++m_sequence;
        m_events.Add(record);
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
