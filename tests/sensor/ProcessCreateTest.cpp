// Process creations: what is reported, the per-key report limit, and records without texts.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "devhost/EventRenderer.h"
#include "tests/support/SensorTest.h"

namespace KALVO::Testing {
namespace {

// Delivers `times` creations of one key, each by a fresh child (normalised away: its number has
// four digits); returns, per creation, whether it was reported.
std::vector<bool> Deliver(SensorHarness& sensor, int times) {
    std::vector<bool> reported;
    auto parent = sensor.Process("parent", "/bin/bash", "bash");
    for (int n = 0; n < times; ++n) {
        const auto before = sensor.Reported();
        sensor.Created(sensor.Process("child" + std::to_string(n), "/bin/sleep", "sleep " + std::to_string(1000 + n)), parent);
        reported.push_back(sensor.Reported() > before);
    }
    return reported;
}

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
    const struct {
        const char* configuration;
        int creations;
        std::vector<bool> reported;
    } cases[] = {
        {"{}", 5, {true, true, true, false, false}}, {R"({"securitymonitor":{"process_tree_report_limit":1}})", 3, {true, false, false}},
        {R"({"securitymonitor":{"process_tree_report_limit":0}})", 5, {true, true, true, true, true}},
        {R"({"securitymonitor":{"process_tree_report_limit":-1}})", 5, {true, true, true, true, true}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.configuration);
        EXPECT_EQ(sensor.Reconfigure(c.configuration), Result::ProtocolError);  // not started yet: refused
        StartWith(c.configuration);
        EXPECT_EQ(Deliver(sensor, c.creations), c.reported);
        EXPECT_EQ(sensor.Stop(), Result::Success);
    }
    EXPECT_EQ(sensor.Logged(LogLevel::Info, "Skipping"), 0u);  // drops are silent
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

// The fault matrix checks every host call failing in every phase; a failed report still
// counts against its key's limit.
TEST_F(SensorTest, AFailedReportStillUsesUpOneOfTheKeysReports) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    auto parent = sensor.Process("p", "/bin/sh", "sh");
    auto child = sensor.Process("c", "/bin/ls", "ls");
    sensor.Host().Faults().FailNext(DevHost::Operation::ReportSecurityEvent, 5);
    for (int i = 0; i < 4; ++i) sensor.Created(child, parent);
    EXPECT_EQ(sensor.Reported(), 2u);
}

}  // namespace
}  // namespace KALVO::Testing
