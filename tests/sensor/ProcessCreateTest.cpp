// Process creations: filtering, the per-key report limit, normalised keys and collapsing.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "devhost/EventRenderer.h"
#include "tests/support/SensorTest.h"

namespace KALVO::Testing {
namespace {

using Agent::Hosting::ObjectPtr;
using ProcessPtr = ObjectPtr<ESP::v0::IProcessInfo>;

struct Step {
    std::string parentPath, parentCommand, childPath, childCommand;
};

// Delivers each step as a creation by a fresh child; returns, per step, whether it was reported.
std::vector<bool> Deliver(SensorHarness& sensor, const std::vector<Step>& steps) {
    std::vector<bool> reported;
    int n = 0;
    for (const Step& step : steps) {
        auto parent = sensor.Process(std::string("parent").append(std::to_string(n)), step.parentPath, step.parentCommand);
        auto child = sensor.Process(std::string("child").append(std::to_string(n)), step.childPath, step.childCommand);
        ++n;
        const auto before = sensor.Reported();
        sensor.Created(child, parent);
        reported.push_back(sensor.Reported() > before);
    }
    return reported;
}

std::vector<Step> Repeat(const Step& step, int times) { return std::vector<Step>(static_cast<std::size_t>(times), step); }

TEST_F(SensorTest, CreationIsReportedWithBothProcessRecords) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    auto parent = sensor.Process("p1", "/bin/bash", "bash -l");
    auto child = sensor.Process("c1", "/usr/bin/curl", "curl https://example.invalid");
    sensor.Created(child, parent);
    auto events = sensor.Host().Reports().Events();
    ASSERT_EQ(events.size(), 1u);
    ASSERT_EQ(events[0]->observations.size(), 1u);
    const auto& observation = events[0]->observations[0];
    EXPECT_EQ(observation.severity, 0u);
    EXPECT_EQ(observation.typeId, "d5f9b921-5881-46fd-9ab8-dbee84f6dc6f");
    EXPECT_EQ(observation.message, "{parent} created {child}");
    ASSERT_EQ(observation.observables.size(), 2u);
    EXPECT_EQ(observation.observables[0].name, "child");
    EXPECT_EQ(observation.observables[1].name, "parent");
    EXPECT_EQ(DevHost::RenderValuesJson(*observation.source),
              R"({"info":{"version":"1.0.28"},"source_type":"SecurityMonitor","type":"source_info"})");
    EXPECT_EQ(sensor.Host().Filter().Contexts().back(), R"({"sensor":"securitymonitor"})");
}

TEST_F(SensorTest, ReportLimitPerKey) {
    struct Case {
        const char* configuration;
        int creations;
        std::vector<bool> reported;
    };
    const Case cases[] = {
        {"{}", 5, {true, true, true, false, false}},
        {R"({"securitymonitor":{"process_tree_report_limit":1}})", 3, {true, false, false}},
        {R"({"securitymonitor":{"process_tree_report_limit":0}})", 5, {true, true, true, true, true}},
        {R"({"securitymonitor":{"process_tree_report_limit":-1}})", 5, {true, true, true, true, true}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.configuration);
        EXPECT_EQ(sensor.Reconfigure(c.configuration), Result::ProtocolError);  // not started yet: refused
        StartWith(c.configuration);
        EXPECT_EQ(Deliver(sensor, Repeat({"/bin/bash", "bash", "/bin/sleep", "sleep 5"}, c.creations)), c.reported);
        EXPECT_EQ(sensor.Stop(), Result::Success);
    }
    EXPECT_EQ(sensor.Logged(LogLevel::Info, "Skipping"), 0u);  // drops are silent
}

TEST_F(SensorTest, NormalisedTextsShareOneKey) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    const std::string hash64(64, 'a');
    const std::vector<Step> steps = {
        {"/bin/bash", "bash", "/bin/sleep", "sleep 1000"},
        {"/bin/bash", "bash", "/bin/sleep", "sleep 2000"},
        {"/bin/bash", "bash", "/bin/sleep", "sleep 30000000"},
        {"/bin/bash", "bash", "/bin/sleep", "sleep 4444"},  // the fourth of one key: dropped
        {"/proc/1/root/bin/sh", "sh /tmp/x1.sh", "/proc/77/root/bin/cat", "cat " + hash64},
        {"/proc/2/root/bin/sh", "sh /tmp/y2.sh", "/proc/88/root/bin/cat", "cat " + std::string(64, 'b')},
        {"/proc/3/root/bin/sh", "sh /tmp/zz", "/proc/99/root/bin/cat", "cat " + std::string(64, 'c')},
        {"/proc/4/root/bin/sh", "sh /tmp/q", "/proc/11/root/bin/cat", "cat " + std::string(64, 'd')},
        {"/bin/bash", "bash", "/bin/sleep", "sleep 123"},  // three digits: a key of its own
    };
    EXPECT_EQ(Deliver(sensor, steps), (std::vector<bool>{true, true, true, false, true, true, true, false, true}));
}

TEST_F(SensorTest, CollapseExpressionMergesWholeCommandLines) {
    StartWith(R"({"securitymonitor":{"process_tree_collapse_regex":"python.*"}})");
    const std::vector<Step> steps = {
        {"/bin/bash", "bash", "/usr/bin/python3", "Python a.py"},
        {"/bin/bash", "bash", "/usr/bin/python3", "python b.py"},
        {"/bin/bash", "bash", "/usr/bin/python3", "PYTHON c.py"},
        {"/bin/bash", "bash", "/usr/bin/python3", "python d.py"},         // fourth of "<>": dropped
        {"/bin/bash", "bash", "/usr/bin/python3", "/usr/bin/env python"},  // no whole match
    };
    EXPECT_EQ(Deliver(sensor, steps), (std::vector<bool>{true, true, true, false, true}));
}

TEST_F(SensorTest, DefaultCollapseExpressionMatchesOnlyItsOwnTextInAnyCase) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    const std::vector<Step> steps = {
        {"/bin/sh", "sh", "/bin/x", "THIS_WILL_NOT_MATCH//ANY_PROCESS"},
        {"/bin/sh", "sh", "/bin/x", "this_will_not_match//any_process"},
        {"/bin/sh", "sh", "/bin/x", "<>"},
        {"/bin/sh", "sh", "/bin/x", "this_will_not_match//Any_Process"},  // fourth of "<>"
    };
    EXPECT_EQ(Deliver(sensor, steps), (std::vector<bool>{true, true, true, false}));
}

TEST_F(SensorTest, NullTextsGiveTheEmptyKey) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    for (int i = 0; i < 4; ++i) {
        DevHost::ProcessRecord record;
        record.uid = std::string("n").append(std::to_string(i));
        auto child = sensor.Host().MakeProcess(record);
        record.uid = std::string("np").append(std::to_string(i));
        auto parent = sensor.Host().MakeProcess(record);
        sensor.Created(child, parent);
    }
    EXPECT_EQ(sensor.Reported(), 3u);
}

TEST_F(SensorTest, SuppressedCreationIsOnlyLogged) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    sensor.Host().Filter().SetAnswer(1);
    auto parent = sensor.Process("p", "/bin/sh", "sh");
    auto child = sensor.Process("suppressed-child", "/bin/ls", "ls");
    sensor.Created(child, parent);
    EXPECT_EQ(sensor.Reported(), 0u);
    EXPECT_EQ(sensor.Logged(LogLevel::Info, "Skipping OnProcessCreate event for process suppressed-child"), 1u);

    // Every other answer, error codes included, lets the event through.
    for (std::uint32_t answer : {0u, 2u, 22u, 100u}) {
        sensor.Host().Filter().SetAnswer(answer);
        auto other = sensor.Process(std::string("c").append(std::to_string(answer)), "/bin/ls", std::string("ls ").append(std::to_string(answer)));
        sensor.Created(other, parent);
    }
    EXPECT_EQ(sensor.Reported(), 4u);
    ASSERT_EQ(sensor.Stop(), Result::Success);
    const auto stored = sensor.Host().Store().Read("securitymonitor", "CachedProcessUIDs");
    ASSERT_TRUE(stored.has_value());
    EXPECT_EQ(*stored, "c0,c100,c2,c22,");  // the suppressed child was never recorded
}

TEST_F(SensorTest, InstantCallbacksDoNothing) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    auto parent = sensor.Process("p", "/bin/sh", "sh");
    auto child = sensor.Process("c", "/bin/ls", "ls");
    sensor.Host().Monitors().DeliverProcessCreateInstant(child, parent);
    sensor.Host().Monitors().DeliverProcessTerminateInstant(child);
    EXPECT_EQ(sensor.Reported(), 0u);
    EXPECT_EQ(sensor.Host().Filter().Calls(), 0u);
}

}  // namespace
}  // namespace KALVO::Testing
