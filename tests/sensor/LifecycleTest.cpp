// The package lifecycle as a host drives it, through the built library.
#include <gtest/gtest.h>

#include "devhost/Host.h"
#include "devhost/Plugin.h"
#include "tests/support/SensorTest.h"

namespace KALVO::Testing {
namespace {

using DevHost::Operation;

TEST_F(SensorTest, StartRegistersMonitorsAndCommandAndStopUndoesIt) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    auto processMonitors = sensor.Host().Monitors().ProcessMonitors();
    auto shellMonitors = sensor.Host().Monitors().ShellMonitors();
    ASSERT_EQ(processMonitors.size(), 1u);
    ASSERT_EQ(shellMonitors.size(), 1u);
    EXPECT_EQ(processMonitors[0].mask, 14u);
    EXPECT_EQ(shellMonitors[0].mask, 2u);
    EXPECT_TRUE(sensor.Host().Router().HasHandler("securitymonitor!OnHealthCheck"));
    EXPECT_EQ(sensor.Logged(LogLevel::Trace, "SecurityMonitorImpl"), 1u);
    EXPECT_EQ(sensor.Logged(LogLevel::Info, "Reporter successfully initialized."), 1u);

    EXPECT_EQ(sensor.Stop(), Result::Success);
    EXPECT_TRUE(sensor.Host().Monitors().ProcessMonitors().empty());
    EXPECT_TRUE(sensor.Host().Monitors().ShellMonitors().empty());
    EXPECT_FALSE(sensor.Host().Router().HasHandler("securitymonitor!OnHealthCheck"));
}

TEST_F(SensorTest, VersionIsOneInEveryState) {
    EXPECT_EQ(sensor.Package().Version(), 1u);
    EXPECT_EQ(sensor.Package().Install(nullptr, 0), Result::Success);
    EXPECT_EQ(sensor.Package().Uninstall("x", 1), Result::Success);
    ASSERT_EQ(sensor.Start(), Result::Success);
    EXPECT_EQ(sensor.Package().Version(), 1u);
    EXPECT_EQ(sensor.Stop(), Result::Success);
    EXPECT_EQ(sensor.Package().Version(), 1u);
}

TEST_F(SensorTest, StopBeforeStartOnlyTriesToUnregisterTheCommand) {
    EXPECT_EQ(sensor.Stop(), Result::Success);
    EXPECT_EQ(sensor.Host().Faults().Calls(Operation::UnregisterCommandHandler), 1u);
    EXPECT_EQ(sensor.Host().Faults().Calls(Operation::UnregisterProcessMonitor), 0u);
}

TEST_F(SensorTest, SecondStartReplacesTheCoreAfterTheNewOneIsBuilt) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    ASSERT_EQ(sensor.Start(), Result::Success);
    EXPECT_EQ(sensor.Host().Faults().Calls(Operation::RegisterProcessMonitor), 2u);
    EXPECT_EQ(sensor.Host().Faults().Calls(Operation::UnregisterProcessMonitor), 1u);
    EXPECT_EQ(sensor.Host().Monitors().ProcessMonitors().size(), 1u);
    EXPECT_EQ(sensor.Host().Faults().Calls(Operation::RegisterCommandHandler), 2u);
    EXPECT_EQ(sensor.Stop(), Result::Success);
}

TEST_F(SensorTest, FailedStartLogsAndLeavesNoCoreBehind) {
    struct Case {
        Operation operation;
        Result::Code code;
    };
    const Case cases[] = {
        {Operation::GetInterfaceServiceProvider, 43}, {Operation::GetInterfaceObject, 43},
        {Operation::GetServiceMonitorRegistration, 2}, {Operation::GetServiceEventFilter, 2},
        {Operation::RegisterProcessMonitor, 5},      {Operation::RegisterShellMonitor, 5},
        {Operation::GetInterfaceMessageRouter, 43},  {Operation::RegisterCommandHandler, 89},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(DevHost::OperationName(c.operation)));
        sensor.Host().Logs().Clear();
        sensor.Host().Faults().FailNext(c.operation, c.code);
        EXPECT_EQ(sensor.Start(), Result::ProtocolError);
        EXPECT_EQ(sensor.Logged(LogLevel::Error, "unable to create our interface"), 1u);
        EXPECT_EQ(sensor.Logged(LogLevel::Error, "Unexpected Exception: '"), 1u);
        EXPECT_TRUE(sensor.Host().Monitors().ProcessMonitors().empty());
        EXPECT_TRUE(sensor.Host().Monitors().ShellMonitors().empty());
        EXPECT_FALSE(sensor.Host().Router().HasHandler("securitymonitor!OnHealthCheck"));
    }
    // Once the faults are gone the same package starts normally.
    EXPECT_EQ(sensor.Start(), Result::Success);
    EXPECT_EQ(sensor.Stop(), Result::Success);
}

TEST_F(SensorTest, ShellRegistrationFailureCarriesTheUndoCodeInItsText) {
    sensor.Host().Faults().FailNext(Operation::RegisterShellMonitor, 5);
    EXPECT_EQ(sensor.Start(), Result::ProtocolError);
    EXPECT_EQ(sensor.Logged(LogLevel::Error, "Registering shell monitor from ESP failed: 5"), 1u);
    EXPECT_EQ(sensor.Logged(LogLevel::Error, "Unexpected Exception: 'Registering shell monitor ESP failed: 0'"), 1u);

    sensor.Host().Logs().Clear();
    sensor.Host().Faults().FailNext(Operation::RegisterShellMonitor, 5);
    sensor.Host().Faults().FailNext(Operation::UnregisterProcessMonitor, 89);
    EXPECT_EQ(sensor.Start(), Result::ProtocolError);
    EXPECT_EQ(sensor.Logged(LogLevel::Error, "Unregistering process monitor from ESP failed: 89"), 1u);
    EXPECT_EQ(sensor.Logged(LogLevel::Error, "Unexpected Exception: 'Registering shell monitor ESP failed: 89'"), 1u);
    sensor.Host().Monitors().Clear();  // the failed undo left the process monitor registered
}

TEST_F(SensorTest, ProcessRegistrationFailureNamesItsCode) {
    sensor.Host().Faults().FailNext(Operation::RegisterProcessMonitor, 22);
    EXPECT_EQ(sensor.Start(), Result::ProtocolError);
    EXPECT_EQ(sensor.Logged(LogLevel::Error, "Registering process monitor from ESP failed: 22"), 1u);
    EXPECT_EQ(sensor.Logged(LogLevel::Error, "Unexpected Exception: 'Registering process monitor ESP failed: 22'"), 1u);
}

TEST_F(SensorTest, TeardownLogsUnregistrationFailures) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    sensor.Host().Faults().FailNext(Operation::UnregisterProcessMonitor, 5);
    sensor.Host().Faults().FailNext(Operation::UnregisterShellMonitor, 6);
    EXPECT_EQ(sensor.Stop(), Result::Success);
    EXPECT_EQ(sensor.Logged(LogLevel::Error, "Unregistering process monitor from ESP failed: 5"), 1u);
    EXPECT_EQ(sensor.Logged(LogLevel::Error, "Unregistering shell monitor from ESP failed: 6"), 1u);
    sensor.Host().Monitors().Clear();
}

TEST(SensorWithoutHost, NullHostGivesAPackageWhoseStartFails) {
    DevHost::Host host;
    DevHost::Plugin plugin(KALVO_PLUGIN_PATH, nullptr);
    Agent::Hosting::IPackage& package = *plugin.Package();
    EXPECT_EQ(package.Version(), 1u);
    EXPECT_EQ(package.Start(nullptr, 0), Result::ProtocolError);
    EXPECT_EQ(package.Stop(nullptr, 0), Result::Success);
}

TEST(SensorPackages, OnlyTheFirstPackageOwnsAndDetachesTheLogger) {
    DevHost::Host first;
    DevHost::Host second;
    auto one = std::make_unique<DevHost::Plugin>(KALVO_PLUGIN_PATH, first.Root());
    auto two = std::make_unique<DevHost::Plugin>(KALVO_PLUGIN_PATH, second.Root());

    // The logger belongs to the first package's host, whoever logs.
    EXPECT_EQ(two->Package()->Start(nullptr, 0), Result::Success);
    EXPECT_EQ(first.Logs().CountContaining(LogLevel::Trace, "SecurityMonitorImpl"), 1u);
    EXPECT_EQ(second.Logs().CountContaining(LogLevel::Trace, "SecurityMonitorImpl"), 0u);
    EXPECT_EQ(two->Package()->Stop(nullptr, 0), Result::Success);

    two.reset();  // the second package does not own the logger: it stays
    EXPECT_EQ(one->Package()->Start(nullptr, 0), Result::Success);
    EXPECT_EQ(first.Logs().CountContaining(LogLevel::Trace, "SecurityMonitorImpl"), 2u);
    EXPECT_EQ(one->Package()->Stop(nullptr, 0), Result::Success);

    one.reset();  // the first one detaches it: a new package makes a logger of its own
    DevHost::Plugin three(KALVO_PLUGIN_PATH, second.Root());
    EXPECT_EQ(three.Package()->Start(nullptr, 0), Result::Success);
    EXPECT_EQ(second.Logs().CountContaining(LogLevel::Trace, "SecurityMonitorImpl"), 1u);
    EXPECT_EQ(three.Package()->Stop(nullptr, 0), Result::Success);
}

}  // namespace
}  // namespace KALVO::Testing
