// Numbers in host texts that RapidJSON 1.1.0's full-precision reader mishandles, found by
// fuzzing: one crashes the process, others come out as wrong values. Json::FromString reads
// every health-check payload and synchronize context, so a host text must not be able to do
// either; the reader therefore runs at its normal precision.
#include <gtest/gtest.h>

#include <string>

#include "eil/json/Json.h"
#include "tests/support/SensorTest.h"
#include "tests/support/SmallStack.h"

namespace KALVO::Testing {
namespace {

using EIL::Json::FromString;
using EIL::Json::Json;

// Segmentation fault inside RapidJSON's StrtodDiyFp (release and sanitizer builds alike).
TEST(JsonHostileNumbers, AnUnderflowingNumberParsesWithoutCrashing) {
    RunOnSmallStack([] { EXPECT_NO_FATAL_FAILURE((void)FromString("1.080000000095e-337")); });
}

// Read as -2.6e-141, 1.3e269 and 3.6e-71 by the g++ release build, other values by clang.
TEST(JsonHostileNumbers, ZeroWithALargeExponentIsZero) {
    for (const char* text : {"0e-88", "0E83", "-0e304"}) {
        EXPECT_EQ(FromString(text).Get<double>(), 0.0) << " input: " << text;
    }
}

TEST_F(SensorTest, HealthCheckWithAnUnderflowingNumberIsAnswered) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    std::string answer;
    EXPECT_EQ(sensor.Host().Router().Execute("securitymonitor!OnHealthCheck", R"({"id":"1","n":1.080000000095e-337})", answer),
              Result::Success);
    EXPECT_EQ(answer, R"({"id":"1","status":"ok"})");
}

}  // namespace
}  // namespace KALVO::Testing
