// HostSecurityEvent: a security event being assembled (IHostSecurityEvent), made by
// ReportingService::CreateSecurityEvent and handed back through ReportSecurityEvent, and
// HostObservation, one of its observations (IHostObservation). Both hold what they were given
// until the event is reported or dropped.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "devhost/EventRecord.h"
#include "devhost/FaultInjector.h"
#include "devhost/HostRef.h"
#include "devhost/ObjectLedger.h"
#include "devhost/TrackedObject.h"
#include "host/IHostObservation.h"
#include "host/IHostSecurityEvent.h"

namespace KALVO::DevHost {

class HostObservation : public Reporting::IHostObservation {
public:
    static constexpr char const* Kind = "Observation";

    // `contents` holds the plug-in's own containers, shared.
    HostObservation(std::shared_ptr<FaultInjector> faults, ObservationRecord contents)
        : m_faults(std::move(faults)), m_contents(std::move(contents)) {}

    // What the observation holds now, for the record of a reported event: the plug-in's
    // containers copied, the host's own shared (see EventRecord). Throws std::bad_alloc.
    ObservationRecord Recorded() const;

    // IObject only, besides the private host interface: IHostObservation has no identifier.
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
        return AnswerObjectOnly<Reporting::IHostObservation>(this, id, out);
    }

    // IHostObservation
    void Reserved3() override {}
    void Reserved4() override {}
    void Reserved5() override {}
    void Reserved6() override {}
    void Reserved7() override {}
    void Reserved8() override {}
    // Null name or observable: 22. Takes its own reference on the observable.
    Result::Code AddObservable(char const* name, Agent::Hosting::ObjectPtr<EIL::Values::IValues>& observable) override;

protected:
    ~HostObservation() = default;

private:
    std::shared_ptr<FaultInjector> m_faults;
    mutable std::mutex m_mutex;  // guards m_contents.observables
    ObservationRecord m_contents;
};

class HostSecurityEvent : public Reporting::IHostSecurityEvent {
public:
    static constexpr char const* Kind = "SecurityEvent";

    HostSecurityEvent(std::shared_ptr<FaultInjector> faults, std::shared_ptr<ObjectLedger> ledger)
        : m_faults(std::move(faults)), m_ledger(std::move(ledger)) {}

    // The observations created so far, in order, as HostObservation::Recorded. Throws std::bad_alloc.
    std::vector<ObservationRecord> Recorded() const;

    // IObject only, besides the private host interface: IHostSecurityEvent has no identifier.
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
        return AnswerObjectOnly<Reporting::IHostSecurityEvent>(this, id, out);
    }

    // IHostSecurityEvent
    void Reserved3() override {}
    void Reserved4() override {}
    void Reserved5() override {}
    void Reserved6() override {}
    void Reserved7() override {}
    void Reserved8() override {}
    // Null typeId or message: 22. Source and tags may be null. `reserved` is ignored.
    Result::Code CreateObservation(std::uint32_t severity, Agent::Hosting::ObjectPtr<EIL::Values::IValues>& source,
                                   char const* typeId, char const* message,
                                   Agent::Hosting::ObjectPtr<EIL::Values::IValues>& tags, void* reserved,
                                   Agent::Hosting::ObjectPtr<Reporting::IHostObservation>& observation) override;

protected:
    ~HostSecurityEvent() = default;

private:
    std::shared_ptr<FaultInjector> m_faults;
    std::shared_ptr<ObjectLedger> m_ledger;
    mutable std::mutex m_mutex;  // guards m_observations
    std::vector<HostRef<TrackedObject<HostObservation>>> m_observations;
};

}  // namespace KALVO::DevHost
