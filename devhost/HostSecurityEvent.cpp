#include "devhost/HostSecurityEvent.h"

#include <utility>

#include "devhost/Boundary.h"

namespace KALVO::DevHost {

using Agent::Hosting::ObjectPtr;
using EIL::Values::IValues;

HostSecurityEvent::HostSecurityEvent(std::shared_ptr<FaultInjector> faults, std::shared_ptr<ObjectLedger> ledger)
    : m_faults(std::move(faults)), m_ledger(std::move(ledger)) {}

std::vector<HostObservation::Contents> HostSecurityEvent::Observations() const {
    std::vector<HostObservation::Contents> observations;
    std::lock_guard lock(m_mutex);
    observations.reserve(m_observations.size());
    for (const auto& observation : m_observations) observations.push_back(observation->Read());
    return observations;
}

Result::Code HostSecurityEvent::LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
    return AnswerObjectOnly<Reporting::IHostSecurityEvent>(this, id, out);
}

Result::Code HostSecurityEvent::CreateObservation(std::uint32_t severity, ObjectPtr<IValues>& source, char const* typeId,
                                                  char const* message, ObjectPtr<IValues>& tags, void* /*reserved*/,
                                                  ObjectPtr<Reporting::IHostObservation>& observation) {
    if (const auto failure = m_faults->Check(Operation::CreateObservation)) return *failure;
    if (!typeId || !message) return Result::InvalidArgument;
    return AtBoundary([&] {
        HostRef<TrackedObject<HostObservation>> made(TrackedObject<HostObservation>::Make(
            m_ledger, m_faults, severity, HostRef<IValues>::Share(source.Get()), std::string(typeId),
            std::string(message), HostRef<IValues>::Share(tags.Get())));
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
