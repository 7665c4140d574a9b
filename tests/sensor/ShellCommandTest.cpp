// Shell commands: counted per shell and command, every byte kept. What one is reported with, and
// the filter's context, ProcessCreateTest checks with the other kinds.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "devhost/EventRenderer.h"
#include "tests/support/SensorTest.h"

namespace KALVO::Testing {
namespace {

std::vector<bool> Commands(SensorHarness& sensor, const std::string& shellPath, const std::vector<std::string>& commands) {
    auto shell = sensor.Process("shell", shellPath, "-zsh");
    std::vector<bool> reported;
    for (const auto& command : commands) {
        const auto before = sensor.Reported();
        sensor.Host().Monitors().DeliverShellCommand(shell, command);
        reported.push_back(sensor.Reported() > before);
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
        {R"({"securitymonitor":{"process_tree_report_limit":0}})", "/bin/zsh", {"ls", "ls", "ls", "ls"}, {true, true, true, true}},
        {"{}", "", {"", "", "", ""}, {true, true, true, true}},  // nothing to count by
        {"{}", "/proc/12/root/bin/zsh", {"id", "id", "id", "id"}, {true, true, true, false}},
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
    EXPECT_NE(DevHost::RenderValuesJson(*events[0]->observations.at(0).observables.at(1).values).find("done"), std::string::npos);
    EXPECT_EQ(DevHost::RenderValuesJson(*events[1]->observations.at(0).observables.at(1).values),
              R"({"command":"","type_id":"d2828e56-c9a9-43a0-91b6-96eccca93a5e","type":"shell_command"})");
}

}  // namespace
}  // namespace KALVO::Testing
