// Process callbacks, implemented by a plug-in and registered with IMonitorRegistration.
// The host calls them on its event threads, possibly concurrently; they never throw.
// Every argument is borrowed for the call.
#pragma once

#include "host/IEventInfo.h"
#include "host/IMonitorBase.h"
#include "host/IProcessInfo.h"
#include "host/ObjectPtr.h"

namespace KALVO::ESP::v0 {

class IProcessMonitor : public IMonitorBase {
public:
    using EventPtr = Agent::Hosting::ObjectPtr<IEventInfo>;
    using ProcessPtr = Agent::Hosting::ObjectPtr<IProcessInfo>;

    // Slot 0. `process` was created by `parent`.
    virtual void OnProcessCreate(EventPtr& event, ProcessPtr& process, ProcessPtr& parent) = 0;
    // Slot 1. The same, delivered synchronously.
    virtual void OnProcessCreateInstant(EventPtr& event, ProcessPtr& process, ProcessPtr& parent) = 0;
    // Slot 2. `process` was already running, typically found when monitoring began.
    virtual void OnProcessExists(EventPtr& event, ProcessPtr& process) = 0;
    // Slot 3. `process` ended.
    virtual void OnProcessTerminate(EventPtr& event, ProcessPtr& process) = 0;
    // Slot 4. The same, delivered synchronously.
    virtual void OnProcessTerminateInstant(EventPtr& event, ProcessPtr& process) = 0;

protected:
    ~IProcessMonitor() = default;
};

}  // namespace KALVO::ESP::v0
