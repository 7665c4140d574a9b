// ReportingService: the stand-in host's IReportingService. Makes empty security events and
// records the finished ones it is handed, for tests to inspect and tools to show.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "devhost/EventRecord.h"
#include "devhost/FaultInjector.h"
#include "devhost/ObjectLedger.h"
#include "devhost/RetainedList.h"
#include "devhost/TrackedObject.h"
#include "host/IReportingService.h"

namespace KALVO::DevHost {

class ReportingService : public Reporting::IReportingService {
public:
    static constexpr char const* Kind = "ReportingService";

    using Listener = std::function<void(const EventRecord&)>;

    ReportingService(std::shared_ptr<FaultInjector> faults, std::shared_ptr<ObjectLedger> ledger)
        : m_faults(std::move(faults)), m_ledger(std::move(ledger)) {}

    // The retained events, oldest first.
    std::vector<std::shared_ptr<const EventRecord>> Events() const { return m_events.Snapshot(); }
    // Events reported since construction, retained or not.
    std::uint64_t EventCount() const { return m_events.Total(); }
    // Keeps only the latest `limit` events (0 keeps none); the default keeps all.
    void SetRetention(std::size_t limit) { m_events.SetLimit(limit); }
    // Called on the reporting thread for each event once it is recorded, one call at a time
    // (empty removes). The listener must not call SetListener.
    void SetListener(Listener listener);

    // Only IObject, IReportingService has no identifier of its own (it is found as a service).
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
        return AnswerObjectOnly<Reporting::IReportingService>(this, id, out);
    }

    // IReportingService. Any thread, concurrently.
    Result::Code CreateSecurityEvent(Agent::Hosting::ObjectPtr<Reporting::IHostSecurityEvent>& event) override;
    // An event this host did not make: 22. Null: 22.
    Result::Code ReportSecurityEvent(Agent::Hosting::ObjectPtr<Reporting::IHostSecurityEvent> event) override;

protected:
    ~ReportingService() = default;

private:
    std::shared_ptr<FaultInjector> m_faults;
    std::shared_ptr<ObjectLedger> m_ledger;
    RetainedList<std::shared_ptr<const EventRecord>> m_events;
    std::mutex m_mutex;  // guards the two below, and is held while the listener runs
    std::uint64_t m_sequence = 0;
    Listener m_listener;
};

}  // namespace KALVO::DevHost
