// HostSecurityEvent: a security event being assembled (IHostSecurityEvent), made by
// ReportingService::CreateSecurityEvent and handed back through ReportSecurityEvent.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "devhost/FaultInjector.h"
#include "devhost/HostObservation.h"
#include "devhost/HostRef.h"
#include "devhost/ObjectLedger.h"
#include "devhost/TrackedObject.h"
#include "host/IHostSecurityEvent.h"

namespace KALVO::DevHost {

class HostSecurityEvent : public Reporting::IHostSecurityEvent {
public:
    static constexpr char const* Kind = "SecurityEvent";

    HostSecurityEvent(std::shared_ptr<FaultInjector> faults, std::shared_ptr<ObjectLedger> ledger);

    // The observations created so far, in order (each counted). Throws std::bad_alloc.
    std::vector<HostObservation::Contents> Observations() const;

    // IObject only, besides the private host interface: IHostSecurityEvent has no identifier.
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out);

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
