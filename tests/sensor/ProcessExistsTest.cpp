// Running processes: reported once across restarts through the persisted identifiers.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/SensorTest.h"

namespace KALVO::Testing {
namespace {

std::size_t Exists(SensorHarness& sensor, const std::string& uid) {
    auto process = sensor.Process(uid, "/usr/sbin/" + uid, uid);
    const auto before = sensor.Reported();
    sensor.Host().Monitors().DeliverProcessExists(process);
    return sensor.Reported() - before;
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
        auto child = sensor.Process("short-lived", "/bin/true", "true");
        sensor.Created(child, parent);
    }
    Terminate(sensor, "short-lived");
    Terminate(sensor, "never-seen");  // no effect
    ASSERT_EQ(sensor.Stop(), Result::Success);
    EXPECT_EQ(Stored(sensor), "a1,b2,");

    ASSERT_EQ(sensor.Start(), Result::Success);
    EXPECT_EQ(Exists(sensor, "a1"), 0u);  // the previous run knew it
    EXPECT_EQ(Exists(sensor, "c3"), 1u);
    Terminate(sensor, "b2");
    EXPECT_EQ(Exists(sensor, "b2"), 0u);  // known for the whole run, even after it ended
    ASSERT_EQ(sensor.Stop(), Result::Success);
    EXPECT_EQ(Stored(sensor), "a1,b2,c3,");
    EXPECT_EQ(sensor.Logged(LogLevel::Error, ""), 0u);
}

}  // namespace
}  // namespace KALVO::Testing
