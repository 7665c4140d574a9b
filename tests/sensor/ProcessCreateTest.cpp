// Process creations: the per-key report limit and records without texts; and what each kind of
// event is reported with. Running processes: reported once across restarts through the persisted
// identifiers. Shell commands: counted per shell and command, every byte kept.
#include <gtest/gtest.h>

#include <fmt/format.h>

#include <functional>
#include <string>
#include <vector>

#include "devhost/EventRenderer.h"
#include "package/Version.h"
#include "tests/support/SensorTest.h"

namespace KALVO::Testing {
namespace {

// One event of each kind: its observation's type, message, source and observables (the first
// one the process record), and the context the host's filter was asked with.
TEST_F(SensorTest, EachKindOfEventIsReportedWithItsObservables) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    auto parent = sensor.Process("p1", "/bin/bash", "bash -l");
    auto child = sensor.Process("c1", "/usr/bin/curl", "curl https://example.invalid");
    auto& monitors = sensor.Host().Monitors();
    const struct {
        std::function<void()> deliver;
        const char* typeId;
        const char* message;
        std::vector<std::string> observables;
        const char* firstPath;
        const char* filterContext;
    } cases[] = {
        {[&] { sensor.Created(child, parent); },
         "d5f9b921-5881-46fd-9ab8-dbee84f6dc6f",
         "{parent} created {child}",
         {"child", "parent"},
         "/usr/bin/curl",
         R"({"sensor":"securitymonitor"})"},
        {[&] { monitors.DeliverProcessExists(child); },
         "6e7f8c8a-9213-4020-aeb1-d8d608c63d78",
         "{process} exists on the system",
         {"process"},
         "/usr/bin/curl",
         R"({"sensor":"securitymonitor"})"},
        {[&] { monitors.DeliverShellCommand(parent, "ls -la"); },
         "79c21e2a-95c3-48b3-9af6-c5327b6b5c73",
         "Shell {process} received {command}",
         {"process", "command"},
         "/bin/bash",
         R"({"command":"ls -la","sensor":"securitymonitor"})"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        ASSERT_EQ(sensor.ReportsFrom(c.deliver), 1u);
        const auto events = sensor.Host().Reports().Events();
        ASSERT_EQ(events.back()->observations.size(), 1u);
        const auto& observation = events.back()->observations[0];
        EXPECT_EQ(observation.severity, 0u);
        EXPECT_EQ(observation.typeId, c.typeId);
        EXPECT_EQ(observation.message, c.message);
        EXPECT_EQ(DevHost::RenderValuesJson(*observation.source),
                  fmt::format(R"({{"info":{{"version":"{}"}},"source_type":"SecurityMonitor","type":"source_info"}})",
                              SecurityMonitor::Version));
        std::vector<std::string> names;
        for (const auto& observable : observation.observables) names.push_back(observable.name);
        ASSERT_EQ(names, c.observables);
        EXPECT_NE(DevHost::RenderValuesJson(*observation.observables[0].values).find(c.firstPath), std::string::npos);
        EXPECT_EQ(sensor.Host().Filter().Contexts().back(), c.filterContext);
    }
}

TEST_F(SensorTest, ReportLimitPerKey) {
    const struct {
        const char* configuration;
        int creations;
        std::vector<bool> reported;
    } cases[] = {
        {"{}", 5, {true, true, true, false, false}},
        {R"({"securitymonitor":{"process_tree_report_limit":1}})", 3, {true, false, false}},
        {R"({"securitymonitor":{"process_tree_report_limit":0}})", 5, {true, true, true, true, true}},
        {R"({"securitymonitor":{"process_tree_report_limit":-1}})", 5, {true, true, true, true, true}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.configuration);
        EXPECT_EQ(sensor.Reconfigure(c.configuration), Result::ProtocolError);  // not started yet: refused
        StartWith(c.configuration);
        EXPECT_EQ(sensor.RepeatedCreation(c.creations), c.reported);
        EXPECT_EQ(sensor.Stop(), Result::Success);
    }
    EXPECT_EQ(sensor.Logged(LogLevel::Info, "Skipping"), 0u);  // drops are silent
}

TEST_F(SensorTest, NullTextsGiveTheEmptyKey) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    for (int i = 0; i < 4; ++i) {
        auto child = sensor.Host().MakeProcess({.uid = std::string("n").append(std::to_string(i))});
        sensor.Created(child, sensor.Host().MakeProcess({.uid = std::string("np").append(std::to_string(i))}));
    }
    EXPECT_EQ(sensor.Reported(), 3u);
}

// Each kind counts its keys in a cache of its own of 512: a key is forgotten, and reported again,
// once 512 newer keys of its kind have come, and never because of keys of the other kind.
TEST_F(SensorTest, EachKindCountsTheLast512KeysOfItsOwn) {
    StartWith(R"({"securitymonitor":{"process_tree_report_limit":1}})");
    auto parent = sensor.Process("p", "/bin/sh", "sh");
    auto shell = sensor.Process("s", "/bin/zsh", "-zsh");
    const auto create = [&](int step) {
        sensor.Created(sensor.Process("c", "/bin/step" + std::to_string(step), "s"), parent);
    };
    const auto command = [&] { sensor.Host().Monitors().DeliverShellCommand(shell, "ls"); };
    EXPECT_EQ(sensor.ReportsFrom([&] { create(0); }), 1u);
    EXPECT_EQ(sensor.ReportsFrom(command), 1u);
    for (int step = 1; step < 512; ++step) create(step);
    EXPECT_EQ(sensor.ReportsFrom([&] { create(0); }), 0u);  // 511 newer keys: still counted
    EXPECT_EQ(sensor.ReportsFrom(command), 0u);
    for (int step = 512; step < 1024; ++step) create(step);
    EXPECT_EQ(sensor.ReportsFrom([&] { create(0); }), 1u);  // 512 newer keys: forgotten
}

// The fault matrix checks every host call failing in every phase; a failed report still
// counts against its key's limit.
TEST_F(SensorTest, AFailedReportStillUsesUpOneOfTheKeysReports) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    auto parent = sensor.Process("p", "/bin/sh", "sh");
    auto child = sensor.Process("c", "/bin/ls", "ls");
    sensor.Host().Faults().Apply({DevHost::Operation::ReportSecurityEvent, 5, 1});
    for (int i = 0; i < 4; ++i) sensor.Created(child, parent);
    EXPECT_EQ(sensor.Reported(), 2u);
}

// Running processes.

std::size_t Exists(SensorHarness& sensor, const std::string& uid) {
    auto process = sensor.Process(uid, "/usr/sbin/" + uid, uid);
    return sensor.ReportsFrom([&] { sensor.Host().Monitors().DeliverProcessExists(process); });
}

void Terminate(SensorHarness& sensor, const std::string& uid) {
    sensor.Host().Monitors().DeliverProcessTerminate(sensor.Process(uid, "", ""));
}

std::string Stored(SensorHarness& sensor) {
    return sensor.Host().Store().Read("securitymonitor", "CachedProcessUIDs").value_or("<none>");
}

TEST_F(SensorTest, RunningProcessesAreReportedOncePerRunAndRememberedAcrossRestarts) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    EXPECT_EQ(Exists(sensor, "a1"), 1u);
    EXPECT_EQ(Exists(sensor, "a1"), 1u);  // no repeat limit within a run
    EXPECT_EQ(Exists(sensor, "b2"), 1u);
    {
        auto parent = sensor.Process("a1", "/bin/sh", "sh");
        sensor.Created(sensor.Process("short-lived", "/bin/true", "true"), parent);
        sensor.Created(sensor.Process("c0", "/bin/sleep", "sleep 9"), parent);  // seen only at its creation
    }
    Terminate(sensor, "short-lived");
    Terminate(sensor, "never-seen");  // no effect
    ASSERT_EQ(sensor.Stop(), Result::Success);
    EXPECT_EQ(Stored(sensor), "a1,b2,c0,");

    ASSERT_EQ(sensor.Start(), Result::Success);
    EXPECT_EQ(Exists(sensor, "a1"), 0u);  // the previous run knew it
    EXPECT_EQ(Exists(sensor, "c0"), 0u);  // from its creation
    EXPECT_EQ(Exists(sensor, "c3"), 1u);
    Terminate(sensor, "b2");
    EXPECT_EQ(Exists(sensor, "b2"), 0u);  // known for the whole run, even after it ended
    ASSERT_EQ(sensor.Stop(), Result::Success);
    EXPECT_EQ(Stored(sensor), "a1,b2,c0,c3,");
    EXPECT_EQ(sensor.Logged(LogLevel::Error, ""), 0u);
}

// Shell commands.

std::vector<bool> Commands(SensorHarness& sensor, const std::string& shellPath,
                           const std::vector<std::string>& commands) {
    auto shell = sensor.Process("shell", shellPath, "-zsh");
    std::vector<bool> reported;
    for (const auto& command : commands) {
        const auto deliver = [&] { sensor.Host().Monitors().DeliverShellCommand(shell, command); };
        reported.push_back(sensor.ReportsFrom(deliver) > 0);
    }
    return reported;
}

TEST_F(SensorTest, ShellCommandLimit) {
    const struct {
        const char* configuration;
        std::string shellPath;
        std::vector<std::string> commands;
        std::vector<bool> reported;
    } cases[] = {
        {"{}", "/bin/zsh", {"ls", "ls", "ls", "ls", "pwd"}, {true, true, true, false, true}},
        {R"({"securitymonitor":{"process_tree_report_limit":0}})",
         "/bin/zsh",
         {"ls", "ls", "ls", "ls"},
         {true, true, true, true}},
        {"{}", "", {"", "", "", ""}, {true, true, true, true}},  // nothing to count by
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.configuration + (" " + c.shellPath));
        StartWith(c.configuration);
        EXPECT_EQ(Commands(sensor, c.shellPath, c.commands), c.reported);
        ASSERT_EQ(sensor.Stop(), Result::Success);
    }
}

TEST_F(SensorTest, ShellCommandKeepsEveryByteAndANullTextIsEmpty) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    auto shell = sensor.Process("s", "/bin/sh", "sh");
    static constexpr char bytes[] = "echo \0\xff\x80 done";
    sensor.Host().Monitors().DeliverShellCommand(shell, std::string_view(bytes, sizeof bytes - 1));
    sensor.Host().Monitors().DeliverShellCommand(shell, std::string_view());  // a null text of length 0
    const auto events = sensor.Host().Reports().Events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_NE(DevHost::RenderValuesJson(*events[0]->observations.at(0).observables.at(1).values).find("done"),
              std::string::npos);
    EXPECT_EQ(DevHost::RenderValuesJson(*events[1]->observations.at(0).observables.at(1).values),
              R"({"command":"","type_id":"d2828e56-c9a9-43a0-91b6-96eccca93a5e","type":"shell_command"})");
}

}  // namespace
}  // namespace KALVO::Testing
