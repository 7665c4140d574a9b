// The ESP registration service: where monitors sign up for events.
#pragma once

#include <cstdint>

#include "host/IObject.h"
#include "host/IProcessMonitor.h"
#include "host/IShellMonitor.h"

namespace KALVO::ESP::v0 {

class IMonitorRegistration : public Agent::Hosting::IObject {
public:
    static constexpr Agent::Hosting::ServiceId ServiceId = 0x3e20a3f67bf52ffb;  // IServiceProvider::GetService

    // Slot 3. Events arrive from the moment this returns 0. The mask's meaning is the host's.
    virtual Result::Code RegisterProcessMonitor(IProcessMonitor* monitor, std::uint32_t eventMask) = 0;
    // Slot 4. No event arrives after this returns.
    virtual Result::Code UnregisterProcessMonitor(IProcessMonitor* monitor) = 0;
    // Slot 5.
    virtual Result::Code RegisterShellMonitor(IShellMonitor* monitor, std::uint32_t eventMask) = 0;
    // Slot 6.
    virtual Result::Code UnregisterShellMonitor(IShellMonitor* monitor) = 0;

protected:
    ~IMonitorRegistration() = default;
};

}  // namespace KALVO::ESP::v0
