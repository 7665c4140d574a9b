// Running processes: reported once across restarts through the persisted identifiers.
#include <gtest/gtest.h>

#include <string>

#include "devhost/EventRenderer.h"
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

TEST_F(SensorTest, ExistenceObservationCarriesTheProcessRecord) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    ASSERT_EQ(Exists(sensor, "x"), 1u);
    const auto events = sensor.Host().Reports().Events();
    const auto& observation = events.at(0)->observations.at(0);
    EXPECT_EQ(observation.typeId, "6e7f8c8a-9213-4020-aeb1-d8d608c63d78");
    EXPECT_EQ(observation.message, "{process} exists on the system");
    ASSERT_EQ(observation.observables.size(), 1u);
    EXPECT_EQ(observation.observables[0].name, "process");
    EXPECT_NE(DevHost::RenderValuesJson(*observation.observables[0].values).find("/usr/sbin/x"), std::string::npos);
}

TEST_F(SensorTest, StoredIdentifiersAreSplitDroppingEmptyPieces) {
    sensor.Host().Store().Write("securitymonitor", "CachedProcessUIDs", "x,,y,");
    ASSERT_EQ(sensor.Start(), Result::Success);
    EXPECT_EQ(Exists(sensor, "x"), 0u);
    EXPECT_EQ(Exists(sensor, "y"), 0u);
    EXPECT_EQ(Exists(sensor, ""), 1u);
}

}  // namespace
}  // namespace KALVO::Testing
