// MonitorRegistration: the stand-in host's ESP registration service. Keeps the registered
// process and shell monitors with their masks, and delivers events to them the way the ESP
// would: on the caller's thread, from any number of threads at once.
//
// The masks are this host's: a monitor receives an event only when its mask has the event's
// bit (process create 0x2, exists 0x4, terminate 0x8; shell command 0x2). An unregistration
// returns only when no delivery is still running (unless it is called from inside a delivery,
// on the same thread), so no event arrives after it returns: deliveries hold a shared lock
// for their whole run, and an unregistration takes it exclusively once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string_view>
#include <vector>

#include "devhost/FaultInjector.h"
#include "devhost/HostRef.h"
#include "devhost/LogSink.h"
#include "devhost/ObjectLedger.h"
#include "devhost/TrackedObject.h"
#include "host/IMonitorRegistration.h"
#include "host/IProcessInfo.h"
#include "host/IProcessMonitor.h"
#include "host/IShellMonitor.h"
#include "host/ObjectPtr.h"

namespace KALVO::DevHost {

namespace EventMask {
inline constexpr std::uint32_t ProcessCreate = 0x2;     // OnProcessCreate and OnProcessCreateInstant
inline constexpr std::uint32_t ProcessExists = 0x4;     // OnProcessExists
inline constexpr std::uint32_t ProcessTerminate = 0x8;  // OnProcessTerminate and OnProcessTerminateInstant
inline constexpr std::uint32_t ShellCommand = 0x2;      // OnShellCommand
}  // namespace EventMask

class MonitorRegistration : public ESP::v0::IMonitorRegistration {
public:
    static constexpr char const* Kind = "MonitorRegistration";

    using ProcessPtr = Agent::Hosting::ObjectPtr<ESP::v0::IProcessInfo>;

    // `log` receives a line when a monitor lets an exception escape (which a real host would
    // not survive).
    MonitorRegistration(std::shared_ptr<FaultInjector> faults, std::shared_ptr<ObjectLedger> ledger,
                        HostRef<TrackedObject<LogSink>> log);

    // Each delivers one event, with a new EventInfo, to every registered monitor whose mask
    // takes it, and returns how many it reached. Every monitor gets its own counted copies of
    // the arguments, so one cannot disturb what the next receives.
    std::size_t DeliverProcessCreate(const ProcessPtr& process, const ProcessPtr& parent);
    std::size_t DeliverProcessCreateInstant(const ProcessPtr& process, const ProcessPtr& parent);
    std::size_t DeliverProcessExists(const ProcessPtr& process);
    std::size_t DeliverProcessTerminate(const ProcessPtr& process);
    std::size_t DeliverProcessTerminateInstant(const ProcessPtr& process);
    // The text is passed as its bytes and length (null when empty), with no terminator.
    std::size_t DeliverShellCommand(const ProcessPtr& process, std::string_view commandLine);

    struct Registered {
        void* monitor;  // the registered interface (IProcessMonitor or IShellMonitor)
        std::uint32_t mask;
    };
    std::vector<Registered> ProcessMonitors() const;
    std::vector<Registered> ShellMonitors() const;
    // Monitor callbacks that let an exception escape.
    std::uint64_t EscapedExceptions() const;
    // Forgets every registration (waiting for deliveries in flight on other threads), before
    // unloading a plug-in that left one behind.
    void Clear();

    // Only IObject: IMonitorRegistration is found as a service and has no identifier of its own.
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
        return AnswerObjectOnly<ESP::v0::IMonitorRegistration>(this, id, out);
    }

    // IMonitorRegistration. Any thread. Registering a null monitor, or one already registered:
    // 22; unregistering a monitor not registered: 2.
    Result::Code RegisterProcessMonitor(ESP::v0::IProcessMonitor* monitor, std::uint32_t eventMask) override {
        return Register(Operation::RegisterProcessMonitor, m_process, monitor, eventMask);
    }
    Result::Code UnregisterProcessMonitor(ESP::v0::IProcessMonitor* monitor) override {
        return Unregister(Operation::UnregisterProcessMonitor, m_process, monitor);
    }
    Result::Code RegisterShellMonitor(ESP::v0::IShellMonitor* monitor, std::uint32_t eventMask) override {
        return Register(Operation::RegisterShellMonitor, m_shell, monitor, eventMask);
    }
    Result::Code UnregisterShellMonitor(ESP::v0::IShellMonitor* monitor) override {
        return Unregister(Operation::UnregisterShellMonitor, m_shell, monitor);
    }

protected:
    ~MonitorRegistration() = default;

private:
    using List = std::vector<Registered>;

    Result::Code Register(Operation operation, List& list, void* monitor, std::uint32_t mask);
    Result::Code Unregister(Operation operation, List& list, void* monitor);
    // Calls `method` with `args` on every monitor of type M on `list` whose mask has `bit` and
    // that is still registered when its turn comes.
    template <class M, class... Params, class... Args>
    std::size_t Deliver(const List& list, std::uint32_t bit, void (M::*method)(Params...), const Args&... args);

    std::shared_ptr<FaultInjector> m_faults;
    std::shared_ptr<ObjectLedger> m_ledger;
    const HostRef<TrackedObject<LogSink>> m_log;
    mutable std::mutex m_mutex;  // guards the lists and m_escaped
    List m_process;
    List m_shell;
    std::uint64_t m_escaped = 0;
    std::shared_mutex m_delivering;  // shared for each delivery, exclusive to wait for them
};

}  // namespace KALVO::DevHost
