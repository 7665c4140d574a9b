// HostObservation: one observation of a security event being assembled (IHostObservation),
// made by HostSecurityEvent::CreateObservation. Holds what it was given until the event is
// reported or dropped.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "devhost/FaultInjector.h"
#include "devhost/HostRef.h"
#include "host/IHostObservation.h"
#include "host/IValues.h"

namespace KALVO::DevHost {

class HostObservation : public Reporting::IHostObservation {
public:
    static constexpr char const* Kind = "Observation";

    struct Contents {
        std::uint32_t severity = 0;
        std::string typeId;
        std::string message;
        Agent::Hosting::ObjectPtr<EIL::Values::IValues> source;
        Agent::Hosting::ObjectPtr<EIL::Values::IValues> tags;
        std::vector<std::pair<std::string, Agent::Hosting::ObjectPtr<EIL::Values::IValues>>> observables;
    };

    HostObservation(std::shared_ptr<FaultInjector> faults, std::uint32_t severity,
                    HostRef<EIL::Values::IValues> source, std::string typeId, std::string message,
                    HostRef<EIL::Values::IValues> tags);

    // What the observation holds now (counted references). Throws std::bad_alloc.
    Contents Read() const;

    // IObject only, besides the private host interface: IHostObservation has no identifier.
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out);

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
    const std::uint32_t m_severity;
    const HostRef<EIL::Values::IValues> m_source;
    const std::string m_typeId;
    const std::string m_message;
    const HostRef<EIL::Values::IValues> m_tags;
    mutable std::mutex m_mutex;  // guards m_observables
    std::vector<std::pair<std::string, HostRef<EIL::Values::IValues>>> m_observables;
};

}  // namespace KALVO::DevHost
