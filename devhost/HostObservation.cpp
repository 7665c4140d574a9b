#include "devhost/HostObservation.h"

#include <utility>

#include "devhost/Boundary.h"
#include "devhost/TrackedObject.h"

namespace KALVO::DevHost {

using Agent::Hosting::ObjectPtr;
using EIL::Values::IValues;

HostObservation::HostObservation(std::shared_ptr<FaultInjector> faults, std::uint32_t severity,
                                 HostRef<IValues> source, std::string typeId, std::string message,
                                 HostRef<IValues> tags)
    : m_faults(std::move(faults)),
      m_severity(severity),
      m_source(std::move(source)),
      m_typeId(std::move(typeId)),
      m_message(std::move(message)),
      m_tags(std::move(tags)) {}

HostObservation::Contents HostObservation::Read() const {
    Contents contents{m_severity, m_typeId, m_message, m_source.Lend(), m_tags.Lend(), {}};
    std::lock_guard lock(m_mutex);
    for (const auto& [name, values] : m_observables) contents.observables.emplace_back(name, values.Lend());
    return contents;
}

Result::Code HostObservation::LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
    return AnswerObjectOnly<Reporting::IHostObservation>(this, id, out);
}

Result::Code HostObservation::AddObservable(char const* name, ObjectPtr<IValues>& observable) {
    if (const auto failure = m_faults->Check(Operation::AddObservable)) return *failure;
    if (!name || !observable) return Result::InvalidArgument;
    return AtBoundary([&] {
        std::pair<std::string, HostRef<IValues>> entry(name, HostRef<IValues>::Share(observable.Get()));
        std::lock_guard lock(m_mutex);
        m_observables.push_back(std::move(entry));
        return Result::Success;
    });
}

}  // namespace KALVO::DevHost
