// Shell callbacks, implemented by a plug-in and registered with IMonitorRegistration.
#pragma once

#include "host/IEventInfo.h"
#include "host/IMonitorBase.h"
#include "host/IProcessInfo.h"
#include "host/ObjectPtr.h"

namespace KALVO::ESP::v0 {

class IShellMonitor : public IMonitorBase {
public:
    // Slot 0. Event threads, possibly concurrently; never throws. The shell `process` received
    // `commandLine`: `length` bytes of any content, not necessarily terminated (null when 0).
    virtual void OnShellCommand(Agent::Hosting::ObjectPtr<IEventInfo>& event,
                                Agent::Hosting::ObjectPtr<IProcessInfo>& process, char const* commandLine,
                                unsigned long length) = 0;

protected:
    ~IShellMonitor() = default;
};

}  // namespace KALVO::ESP::v0
