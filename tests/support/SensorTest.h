// A fixture around SensorHarness that, when each test ends, unloads the plug-in and checks
// that it gave back everything it took from the host: references and configuration texts.
#pragma once

#include <gtest/gtest.h>

#include "tests/support/SensorHarness.h"

namespace KALVO::Testing {

namespace LogLevel {
inline constexpr std::uint32_t Error = 2;
inline constexpr std::uint32_t Warn = 3;
inline constexpr std::uint32_t Info = 4;
inline constexpr std::uint32_t Trace = 7;
}  // namespace LogLevel

class SensorTest : public ::testing::Test {
protected:
    void TearDown() override {
        sensor.Unload();
        EXPECT_EQ(sensor.Host().OutstandingReferences(), "");
        EXPECT_EQ(sensor.Host().Config().OutstandingTexts(), 0u);
        EXPECT_EQ(sensor.Host().Monitors().EscapedExceptions(), 0u);
    }

    // Starts the sensor with `configuration` served by the host.
    void StartWith(std::string configuration) {
        sensor.Host().Config().SetText(std::move(configuration));
        ASSERT_EQ(sensor.Start(), Result::Success);
    }

    SensorHarness sensor;
};

}  // namespace KALVO::Testing
