// The package lifecycle as a host drives it, through the built library.
#include <gtest/gtest.h>

#include "devhost/Host.h"
#include "devhost/Plugin.h"
#include "tests/support/SensorTest.h"

namespace KALVO::Testing {
namespace {

using DevHost::Operation;

// That Stop undoes all of it, the fault matrix checks after each of its cases.
TEST_F(SensorTest, StartRegistersMonitorsAndCommand) {
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
}

TEST_F(SensorTest, StopBeforeStartOnlyUnregistersTheCommandAndASecondStartReplacesTheCore) {
    EXPECT_EQ(sensor.Stop(), Result::Success);
    EXPECT_EQ(sensor.Host().Faults().Calls(Operation::UnregisterCommandHandler), 1u);
    EXPECT_EQ(sensor.Host().Faults().Calls(Operation::UnregisterProcessMonitor), 0u);
    ASSERT_EQ(sensor.Start(), Result::Success);
    ASSERT_EQ(sensor.Start(), Result::Success);
    EXPECT_EQ(sensor.Host().Faults().Calls(Operation::RegisterProcessMonitor), 2u);
    EXPECT_EQ(sensor.Host().Faults().Calls(Operation::UnregisterProcessMonitor), 1u);
    EXPECT_EQ(sensor.Host().Monitors().ProcessMonitors().size(), 1u);
    EXPECT_EQ(sensor.Host().Faults().Calls(Operation::RegisterCommandHandler), 2u);
    EXPECT_EQ(sensor.Stop(), Result::Success);
}

TEST_F(SensorTest, ShellRegistrationFailureCarriesTheUndoCodeInItsText) {
    sensor.Host().Faults().Apply({Operation::RegisterShellMonitor, 5, 1});
    EXPECT_EQ(sensor.Start(), Result::ProtocolError);
    EXPECT_EQ(sensor.Logged(LogLevel::Error, "Registering shell monitor from ESP failed: 5"), 1u);
    EXPECT_EQ(sensor.Logged(LogLevel::Error, "Unexpected Exception: 'Registering shell monitor ESP failed: 0'"), 1u);

    sensor.Host().Logs().Clear();
    sensor.Host().Faults().Apply({Operation::RegisterShellMonitor, 5, 1});
    sensor.Host().Faults().Apply({Operation::UnregisterProcessMonitor, 89, 1});
    EXPECT_EQ(sensor.Start(), Result::ProtocolError);
    EXPECT_EQ(sensor.Logged(LogLevel::Error, "Unregistering process monitor from ESP failed: 89"), 1u);
    EXPECT_EQ(sensor.Logged(LogLevel::Error, "Unexpected Exception: 'Registering shell monitor ESP failed: 89'"), 1u);
    sensor.Host().Monitors().Clear();  // the failed undo left the process monitor registered
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
