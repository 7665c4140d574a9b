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

#include <algorithm>
#include <shared_mutex>
#include <tuple>

#include "devhost/LogSink.h"
#include "devhost/TrackedObject.h"
#include "eil/core/ScopeGuard.h"
#include "host/IEventInfo.h"
#include "host/IMonitorRegistration.h"
#include "host/IProcessMonitor.h"
#include "host/IShellMonitor.h"

namespace KALVO::DevHost {

// The record of one delivered event. The sensor does not consult it; it exists so monitors
// receive a real, accounted-for object.
class EventInfo : public ObjectOnly<ESP::v0::IEventInfo> {
public:
    static constexpr char const* Kind = "EventInfo";
};

class MonitorRegistration : public ObjectOnly<ESP::v0::IMonitorRegistration> {
public:
    static constexpr char const* Kind = "MonitorRegistration";

    using ProcessPtr = Agent::Hosting::ObjectPtr<ESP::v0::IProcessInfo>;
    struct Registered {
        void* monitor;  // the registered interface (IProcessMonitor or IShellMonitor)
        std::uint32_t mask;
        // A registration is found by its monitor.
        bool operator==(const void* other) const noexcept { return monitor == other; }
    };

    // `log` receives a line when a monitor lets an exception escape (which a real host would
    // not survive).
    MonitorRegistration(std::shared_ptr<FaultInjector> faults, std::shared_ptr<ObjectLedger> ledger,
                        HostRef<TrackedObject<LogSink>> log)
        : m_faults(std::move(faults)), m_ledger(std::move(ledger)), m_log(std::move(log)) {}

    // Each delivers one event, with a new EventInfo, to every registered monitor whose mask
    // takes it, and returns how many it reached. Every monitor gets its own counted copies of
    // the arguments, so one cannot disturb what the next receives.
    std::size_t DeliverProcessCreate(const ProcessPtr& process, const ProcessPtr& parent) {
        return Deliver(m_process, 0x2, &ESP::v0::IProcessMonitor::OnProcessCreate, process, parent);
    }
    std::size_t DeliverProcessExists(const ProcessPtr& process) {
        return Deliver(m_process, 0x4, &ESP::v0::IProcessMonitor::OnProcessExists, process);
    }
    std::size_t DeliverProcessTerminate(const ProcessPtr& process) {
        return Deliver(m_process, 0x8, &ESP::v0::IProcessMonitor::OnProcessTerminate, process);
    }
    // The text is passed as its bytes and length (null when empty), with no terminator.
    std::size_t DeliverShellCommand(const ProcessPtr& process, std::string_view commandLine) {
        return Deliver(m_shell, 0x2, &ESP::v0::IShellMonitor::OnShellCommand, process,
                       commandLine.empty() ? nullptr : commandLine.data(),
                       static_cast<unsigned long>(commandLine.size()));
    }

    std::vector<Registered> ProcessMonitors() const {
        std::lock_guard lock(m_mutex);
        return m_process;
    }
    std::vector<Registered> ShellMonitors() const {
        std::lock_guard lock(m_mutex);
        return m_shell;
    }
    // Monitor callbacks that let an exception escape.
    std::uint64_t EscapedExceptions() const { return m_escaped; }
    // Forgets every registration (waiting for deliveries in flight on other threads), before
    // unloading a plug-in that left one behind.
    void Clear() {
        {
            std::lock_guard lock(m_mutex);
            m_process.clear();
            m_shell.clear();
        }
        WaitForDeliveries();
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

private:
    using List = std::vector<Registered>;

    // How deeply this thread is inside deliveries: an unregistration from a monitor's own
    // callback must not wait for the delivery it runs in.
    static inline thread_local int t_deliveryDepth = 0;

    void WaitForDeliveries() {
        if (t_deliveryDepth == 0) std::unique_lock wait(m_delivering);
    }

    // Calls `method` with a new event and `args` on every monitor of type M on `list` whose mask
    // has `bit` and that is still registered when its turn comes.
    template <class M, class... Params, class... Args>
    std::size_t Deliver(List& list, std::uint32_t bit, void (M::*method)(Params...), const Args&... args) {
        std::shared_lock delivering(m_delivering);
        ++t_deliveryDepth;
        const auto leave = EIL::Core::MakeScopeExit([] { --t_deliveryDepth; });
        List monitors;
        {
            std::lock_guard lock(m_mutex);
            std::copy_if(list.begin(), list.end(), std::back_inserter(monitors),
                         [&](const auto& entry) { return entry.mask & bit; });
        }
        const Agent::Hosting::ObjectPtr<ESP::v0::IEventInfo> event = TrackedObject<EventInfo>::Make(m_ledger);
        std::size_t reached = 0;
        for (const Registered& entry : monitors) {
            {
                // A monitor unregistered by an earlier callback of this delivery gets nothing more.
                std::lock_guard lock(m_mutex);
                if (std::find(list.begin(), list.end(), entry.monitor) == list.end()) continue;
            }
            std::tuple<Agent::Hosting::ObjectPtr<ESP::v0::IEventInfo>, Args...> copies(event, args...);
            try {
                std::apply([&](auto&... each) { (static_cast<M*>(entry.monitor)->*method)(each...); }, copies);
            } catch (...) {
                ++m_escaped;
                m_log->Record({"devhost", static_cast<std::uint32_t>(Logging::v0::Severity::Error),
                               "a monitor callback let an exception escape"});
            }
            ++reached;
        }
        return reached;
    }

    Result::Code Register(Operation operation, List& list, void* monitor, std::uint32_t mask) {
        return Serve(*m_faults, operation, [&] {
            std::lock_guard lock(m_mutex);
            if (!monitor || std::find(list.begin(), list.end(), monitor) != list.end()) return Result::InvalidArgument;
            list.push_back({monitor, mask});
            return Result::Success;
        });
    }

    Result::Code Unregister(Operation operation, List& list, void* monitor) {
        return Serve(*m_faults, operation, [&] {
            {
                std::lock_guard lock(m_mutex);
                const auto found = std::find(list.begin(), list.end(), monitor);
                if (found == list.end()) return Result::NoSuchEntry;
                list.erase(found);
            }
            WaitForDeliveries();  // returns once no delivery of another thread runs
            return Result::Success;
        });
    }

    std::shared_ptr<FaultInjector> m_faults;
    std::shared_ptr<ObjectLedger> m_ledger;
    const HostRef<TrackedObject<LogSink>> m_log;
    mutable std::mutex m_mutex;  // guards the lists
    List m_process;
    List m_shell;
    std::atomic<std::uint64_t> m_escaped{0};
    std::shared_mutex m_delivering;  // shared for each delivery, exclusive to wait for them
};

}  // namespace KALVO::DevHost
