// The package lifecycle as a host drives it, through the built library: Start, Stop, and the
// Synchronize contexts with the configuration they re-read.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

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

// Synchronize.

TEST_F(SensorTest, SynchronizeContexts) {
    // A re-read takes the served text whole: the absent limit goes back to its default of 3.
    StartWith(R"({"securitymonitor":{"process_tree_report_limit":1}})");
    sensor.Host().Config().SetText("{}");
    const struct {
        std::string context;
        Result::Code code;
        bool rereads;
        std::size_t warnings;
        std::size_t errors;
    } cases[] = {
        {R"({"reason":"Configuration"})", 0, false, 0, 0},
        {R"({"reason":"other"})", 0, false, 0, 0},
        {R"({})", 0, false, 0, 0},
        {"null", 0, false, 0, 0},
        {R"({"reason":5})", 0, false, 0, 0},
        {"not json", 100, false, 1, 0},
        {"[1]", 0, true, 0, 2},  // "incompatible type": logged, and the configuration re-read
        {R"({"reason":"configuration"})", 0, true, 0, 0},
    };
    int limit = 1;
    int round = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.context);
        sensor.Host().Logs().Clear();
        EXPECT_EQ(sensor.Synchronize(c.context), c.code);
        EXPECT_EQ(sensor.Logged(LogLevel::Warn, ""), c.warnings);
        EXPECT_EQ(sensor.Logged(LogLevel::Error, ""), c.errors);
        EXPECT_EQ(sensor.Logged(LogLevel::Trace, "SecurityMonitorImpl::OnSynchronize: context = " + c.context), 1u);
        if (c.rereads) limit = 3;
        const auto reported = sensor.RepeatedCreation(4, std::string("cmd").append(std::to_string(round++)));
        EXPECT_EQ(std::count(reported.begin(), reported.end(), true), limit);
        // Flip the served value back so that the next re-read is visible.
        if (c.rereads) {
            limit = 1;
            EXPECT_EQ(sensor.Reconfigure(R"({"securitymonitor":{"process_tree_report_limit":1}})"), Result::Success);
            sensor.Host().Config().SetText("{}");
        }
    }
    EXPECT_EQ(sensor.Synchronize("not json"), Result::ProtocolError);
    EXPECT_EQ(sensor.Logged(LogLevel::Warn, "cannot determine reason for synchronize"), 1u);
}

// A re-read without the collapse expression goes back to the default, which collapses nothing.
TEST_F(SensorTest, AReReadWithoutTheCollapseExpressionStopsCollapsing) {
    StartWith(R"({"securitymonitor":{"process_tree_collapse_regex":"SLEEP .*"}})");
    auto parent = sensor.Process("p", "/bin/sh", "sh");
    const auto creations = [&] {
        for (const char* command : {"sleep a", "sleep b", "sleep c", "sleep d"})
            sensor.Created(sensor.Process("c", "/bin/sleep", command), parent);
    };
    EXPECT_EQ(sensor.ReportsFrom(creations), 3u);  // one collapsed key, at its limit of 3
    EXPECT_EQ(sensor.Reconfigure("{}"), Result::Success);
    EXPECT_EQ(sensor.ReportsFrom(creations), 4u);
}

TEST_F(SensorTest, ConfigurationProblemsGiveOneWarningAndKeepWhatWorked) {
    StartWith(R"({"securitymonitor":{"process_tree_collapse_regex":"sleep.*"}})");
    const struct {
        std::string configuration;
        std::size_t warnings;
    } cases[] = {
        {"not json", 1},
        {R"({"securitymonitor":{"process_tree_report_limit":"3"}})", 1},
        {R"({"securitymonitor":{"process_tree_collapse_regex":"("}})", 1},
        {R"({"securitymonitor":{"process_tree_collapse_regex":"("}})", 0},  // the same invalid text: silent
        {R"({"securitymonitor":{"process_tree_collapse_regex":")" + std::string(300, 'a') + R"("}})", 1},
        {R"({"securitymonitor":{"process_tree_report_limit":1.5}})", 1},
#if defined(__GLIBCXX__)
        {R"({"securitymonitor":{"process_tree_collapse_regex":"(a)\\1"}})", 1},  // back references: refused as invalid
#endif
    };
    for (const auto& c : cases) {
        sensor.Host().Logs().Clear();
        EXPECT_EQ(sensor.Reconfigure(c.configuration), Result::Success) << c.configuration.substr(0, 80);
        EXPECT_EQ(sensor.Logged(LogLevel::Warn, "Failed to get configuration for process tree collapsing"), c.warnings)
            << c.configuration.substr(0, 80);
    }
}

}  // namespace
}  // namespace KALVO::Testing
