// Synchronize contexts and the configuration they re-read.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/support/SensorTest.h"

namespace KALVO::Testing {
namespace {

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
        {R"({"reason":"Configuration"})", 0, false, 0, 0}, {R"({"reason":"other"})", 0, false, 0, 0},
        {R"({})", 0, false, 0, 0}, {"null", 0, false, 0, 0}, {R"({"reason":5})", 0, false, 0, 0},
        {"not json", 100, false, 1, 0}, {"", 100, false, 1, 0},
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

TEST_F(SensorTest, ConfigurationProblemsGiveOneWarningAndKeepWhatWorked) {
    StartWith(R"({"securitymonitor":{"process_tree_collapse_regex":"sleep.*"}})");
    const struct {
        std::string configuration;
        std::size_t warnings;
    } cases[] = {
        {"not json", 1}, {R"({"securitymonitor":{"process_tree_report_limit":"3"}})", 1},
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
