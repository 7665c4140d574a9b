#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "devhost/Host.h"
#include "host/IMonitorRegistration.h"

namespace KALVO::DevHost {
namespace {

using Agent::Hosting::ObjectPtr;
using ESP::v0::IEventInfo;
using ESP::v0::IProcessInfo;

// Counts each callback; optionally runs a hook inside OnProcessExists.
class CountingMonitor : public ESP::v0::IProcessMonitor, public ESP::v0::IShellMonitor {
public:
    void OnProcessCreate(ObjectPtr<IEventInfo>& event, ObjectPtr<IProcessInfo>& process, ObjectPtr<IProcessInfo>& parent) override {
        EXPECT_TRUE(event && process && parent);
        if (parent) lastParentPath = parent->GetPath() ? parent->GetPath() : "";
        process.Reset();  // must not disturb what the next monitor receives
        ++creates;
    }
    void OnProcessCreateInstant(ObjectPtr<IEventInfo>&, ObjectPtr<IProcessInfo>&, ObjectPtr<IProcessInfo>&) override { ++instants; }
    void OnProcessExists(ObjectPtr<IEventInfo>&, ObjectPtr<IProcessInfo>&) override {
        ++exists;
        if (hook) hook();
    }
    void OnProcessTerminate(ObjectPtr<IEventInfo>&, ObjectPtr<IProcessInfo>&) override { ++terminates; }
    void OnProcessTerminateInstant(ObjectPtr<IEventInfo>&, ObjectPtr<IProcessInfo>&) override { ++instants; }
    void OnShellCommand(ObjectPtr<IEventInfo>&, ObjectPtr<IProcessInfo>&, char const* commandLine, unsigned long length) override {
        lastCommand = commandLine ? std::string(commandLine, length) : "<null>";
        ++shells;
    }

    std::atomic<int> creates{0}, instants{0}, exists{0}, terminates{0}, shells{0};
    std::string lastParentPath, lastCommand;
    std::function<void()> hook;
};

TEST(MonitorRegistration, DeliversByMaskToEveryMonitor) {
    Host host;
    auto& monitors = host.Monitors();
    CountingMonitor all, createsOnly;
    ASSERT_EQ(monitors.RegisterProcessMonitor(&all, 14), Result::Success);
    ASSERT_EQ(monitors.RegisterProcessMonitor(&createsOnly, EventMask::ProcessCreate), Result::Success);
    ASSERT_EQ(monitors.RegisterShellMonitor(&all, 2), Result::Success);
    EXPECT_EQ(monitors.RegisterProcessMonitor(&all, 14), Result::InvalidArgument);
    EXPECT_EQ(monitors.RegisterProcessMonitor(nullptr, 14), Result::InvalidArgument);

    auto parent = host.MakeProcess({.pid = 1, .path = "/sbin/launchd"});
    auto child = host.MakeProcess({.pid = 2, .path = "/bin/zsh"});
    EXPECT_EQ(monitors.DeliverProcessCreate(child, parent), 2u);
    EXPECT_EQ(monitors.DeliverProcessCreateInstant(child, parent), 2u);
    EXPECT_EQ(monitors.DeliverProcessExists(child), 1u);
    EXPECT_EQ(monitors.DeliverProcessTerminate(child), 1u);
    EXPECT_EQ(monitors.DeliverProcessTerminateInstant(child), 1u);
    EXPECT_EQ(monitors.DeliverShellCommand(child, "ls -la"), 1u);
    EXPECT_EQ(all.lastCommand, "ls -la");
    EXPECT_EQ(monitors.DeliverShellCommand(child, ""), 1u);
    EXPECT_EQ(all.lastCommand, "<null>");

    EXPECT_EQ(all.creates, 1);
    EXPECT_EQ(createsOnly.creates, 1);
    EXPECT_EQ(createsOnly.lastParentPath, "/sbin/launchd");
    EXPECT_EQ(all.instants, 2);
    EXPECT_EQ(createsOnly.instants, 1);
    EXPECT_EQ(createsOnly.exists + createsOnly.terminates, 0);

    EXPECT_EQ(monitors.UnregisterProcessMonitor(&createsOnly), Result::Success);
    EXPECT_EQ(monitors.UnregisterProcessMonitor(&createsOnly), Result::NoSuchEntry);
    EXPECT_EQ(monitors.DeliverProcessCreate(child, parent), 1u);
    monitors.Clear();
    EXPECT_EQ(monitors.DeliverShellCommand(child, "x"), 0u);
    parent.Reset();
    child.Reset();
    EXPECT_EQ(host.OutstandingReferences(), 0u) << host.DescribeOutstandingReferences();
}

TEST(MonitorRegistration, NoDeliveryAfterUnregistrationReturns) {
#ifdef KALVO_SANITIZED
    constexpr int Rounds = 5;
#else
    constexpr int Rounds = 25;
#endif
    Host host;
    auto process = host.MakeProcess({.pid = 3});
    for (int round = 0; round < Rounds; ++round) {
        CountingMonitor monitor;
        std::atomic<bool> unregistered{false};
        std::atomic<int> late{0};
        monitor.hook = [&] {
            std::this_thread::yield();  // widens the window an early return of Unregister would open
            if (unregistered.load()) ++late;
        };
        ASSERT_EQ(host.Monitors().RegisterProcessMonitor(&monitor, 14), Result::Success);
        std::atomic<bool> stop{false};
        std::vector<std::thread> senders;
        for (int t = 0; t < 3; ++t) {
            senders.emplace_back([&] {
                while (!stop.load()) host.Monitors().DeliverProcessExists(process);
            });
        }
        while (monitor.exists.load() < 3) std::this_thread::yield();
        ASSERT_EQ(host.Monitors().UnregisterProcessMonitor(&monitor), Result::Success);
        unregistered = true;
        stop = true;
        for (auto& sender : senders) sender.join();
        EXPECT_EQ(late.load(), 0) << "round " << round;
    }
}

TEST(MonitorRegistration, MonitorMayUnregisterItselfDuringDelivery) {
    Host host;
    CountingMonitor monitor;
    ASSERT_EQ(host.Monitors().RegisterProcessMonitor(&monitor, 14), Result::Success);
    monitor.hook = [&] { EXPECT_EQ(host.Monitors().UnregisterProcessMonitor(&monitor), Result::Success); };
    auto process = host.MakeProcess({.pid = 4});
    EXPECT_EQ(host.Monitors().DeliverProcessExists(process), 1u);
    EXPECT_EQ(host.Monitors().DeliverProcessExists(process), 0u);
}

TEST(MonitorRegistration, MonitorMayChangeTheRegistrationsDuringDelivery) {
    // A callback that unregisters a monitor later in the same delivery (which must then not be
    // called, and must not wait for this very delivery), and registers a new one (which takes
    // effect from the next event).
    Host host;
    auto& monitors = host.Monitors();
    CountingMonitor first, second, added;
    ASSERT_EQ(monitors.RegisterProcessMonitor(&first, 14), Result::Success);
    ASSERT_EQ(monitors.RegisterProcessMonitor(&second, 14), Result::Success);
    first.hook = [&] {
        EXPECT_EQ(monitors.UnregisterProcessMonitor(&second), Result::Success);
        EXPECT_EQ(monitors.RegisterProcessMonitor(&added, 14), Result::Success);
        first.hook = nullptr;
    };
    auto process = host.MakeProcess({.pid = 6});
    EXPECT_EQ(monitors.DeliverProcessExists(process), 1u);
    EXPECT_EQ(second.exists, 0);
    EXPECT_EQ(added.exists, 0);
    EXPECT_EQ(monitors.DeliverProcessExists(process), 2u);
    EXPECT_EQ(added.exists, 1);
    EXPECT_EQ(monitors.ProcessMonitors().size(), 2u);
    monitors.Clear();
}

TEST(MonitorRegistration, EventKeptByAMonitorIsAccountedFor) {
    struct Keeper : CountingMonitor {
        void OnProcessCreate(ObjectPtr<IEventInfo>& event, ObjectPtr<IProcessInfo>&, ObjectPtr<IProcessInfo>&) override {
            if (keep) kept = event;
        }
        bool keep = false;
        ObjectPtr<IEventInfo> kept;
    } keeper;
    Host host;
    ASSERT_EQ(host.Monitors().RegisterProcessMonitor(&keeper, EventMask::ProcessCreate), Result::Success);
    auto process = host.MakeProcess({.pid = 7});
    host.Monitors().DeliverProcessCreate(process, process);
    EXPECT_EQ(host.OutstandingReferences(), 1u) << "only the test's process: " << host.DescribeOutstandingReferences();

    keeper.keep = true;
    host.Monitors().DeliverProcessCreate(process, process);
    ASSERT_TRUE(keeper.kept);
    EXPECT_EQ(host.OutstandingReferences(), 2u) << host.DescribeOutstandingReferences();
    EXPECT_NE(host.DescribeOutstandingReferences().find("EventInfo x1"), std::string::npos);
    std::thread([&] { keeper.kept.Reset(); }).join();  // given back on another thread
    process.Reset();
    EXPECT_EQ(host.OutstandingReferences(), 0u) << host.DescribeOutstandingReferences();
    host.Monitors().Clear();
}

TEST(MonitorRegistration, ConcurrentDeliveriesAndRegistrationsKeepEveryCount) {
#ifdef KALVO_SANITIZED
    constexpr int Events = 2000;
#else
    constexpr int Events = 20000;
#endif
    Host host;
    auto& monitors = host.Monitors();
    CountingMonitor steady, churned;
    ASSERT_EQ(monitors.RegisterProcessMonitor(&steady, 14), Result::Success);
    std::atomic<std::size_t> reached{0};
    std::vector<std::thread> senders;
    for (int t = 0; t < 3; ++t) {
        senders.emplace_back([&, t] {
            auto process = host.MakeProcess({.pid = 100u + static_cast<std::uint64_t>(t)});
            for (int i = 0; i < Events; ++i) reached += monitors.DeliverProcessExists(process);
        });
    }
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(monitors.RegisterProcessMonitor(&churned, 14), Result::Success);
        std::this_thread::yield();
        ASSERT_EQ(monitors.UnregisterProcessMonitor(&churned), Result::Success);
    }
    for (auto& sender : senders) sender.join();
    EXPECT_EQ(steady.exists.load(), 3 * Events);
    EXPECT_EQ(reached.load(), static_cast<std::size_t>(steady.exists.load() + churned.exists.load()));
    monitors.Clear();
    EXPECT_EQ(host.OutstandingReferences(), 0u) << host.DescribeOutstandingReferences();
}

TEST(MonitorRegistration, EscapingExceptionIsCountedAndLogged) {
    Host host;
    CountingMonitor monitor;
    monitor.hook = [] { throw std::runtime_error("bug"); };
    ASSERT_EQ(host.Monitors().RegisterProcessMonitor(&monitor, 14), Result::Success);
    host.Monitors().DeliverProcessExists(host.MakeProcess({.pid = 5}));
    EXPECT_EQ(host.Monitors().EscapedExceptions(), 1u);
    EXPECT_EQ(host.Logs().CountContaining(2, "exception"), 1u);
    host.Monitors().Clear();
}

}  // namespace
}  // namespace KALVO::DevHost
