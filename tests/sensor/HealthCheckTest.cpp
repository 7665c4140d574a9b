// The health-check command, sent through the host's message router.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/SensorTest.h"

namespace KALVO::Testing {
namespace {

constexpr char const* HealthCheck = "securitymonitor!OnHealthCheck";

TEST_F(SensorTest, HealthCheckAnswersByPayload) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    const struct {
        std::string payload;
        Result::Code code;
        std::string answer;
    } cases[] = {
        {R"({"id":"42"})", 0, R"({"id":"42","status":"ok"})"},
        {R"({"extra":[1,2],"id":""})", 0, R"({"id":"","status":"ok"})"},
        {"not json", 100, ""},
        {R"({"id":"1"} trailing)", 100, ""},
        {"[]", 22, ""},
        {R"({"id":5})", 22, ""},
        {R"({"id":[104,105]})", 22, ""},
        {R"({"x":"1"})", 22, ""},
        {std::string("{\"id\":\"a\\u0000b\"}"), 0, std::string("{\"id\":\"a\\u0000b\",\"status\":\"ok\"}")},
    };
    for (const auto& c : cases) {
        std::string answer;
        EXPECT_EQ(sensor.Host().Router().Execute(HealthCheck, c.payload, answer), c.code) << " payload: " << c.payload;
        EXPECT_EQ(answer, c.answer) << " payload: " << c.payload;
    }
    EXPECT_EQ(sensor.Logged(LogLevel::Trace, "OnHealthCheck"), std::size(cases));
}

TEST_F(SensorTest, HealthCheckReportsAShortWrite) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    std::string answer;
    EXPECT_EQ(sensor.Host().Router().Execute(HealthCheck, R"({"id":"42"})", answer, 5), Result::OutOfMemory);
    EXPECT_EQ(answer, R"({"id")");
}

}  // namespace
}  // namespace KALVO::Testing
