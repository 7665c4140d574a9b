#include "monitor/RepeatKeys.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace KALVO::SecurityMonitor {
namespace {

TEST(RepeatKeys, ProcessTreeKeyNormalisesEachPartAndCollapsesWholeCommandLines) {
    struct Case {
        std::string pattern, parentPath, childPath, parentCommandLine, childCommandLine, key;
    };
    const std::vector<Case> cases = {
        {"this_will_not_match//any_process", "/bin/bash", "/bin/ls", "bash", "ls -l", "/bin/bash|/bin/ls|bash|ls -l"},
        {"this_will_not_match//any_process", "/proc/12/root/bin/sh", "/proc/3/root/usr/bin/curl", "sh -c 'curl 1234'",
         "curl /tmp/x.y 12345", "container:/bin/sh|container:/usr/bin/curl|sh -c 'curl <number>'|curl <tmp> <number>"},
        // Matched against the normalised command line, whole, ignoring case.
        {"SLEEP <number>", "/bin/bash", "/bin/sleep", "bash", "sleep 4444", "/bin/bash|/bin/sleep|bash|<>"},
        {"sleep", "/bin/bash", "/bin/sleep", "bash", "sleep 4444", "/bin/bash|/bin/sleep|bash|sleep <number>"},
        {"bash", "/bin/bash", "/bin/ls", "bash", "ls", "/bin/bash|/bin/ls|<>|ls"},
        {"ba.*|ls", "/bin/bash", "/bin/ls", "bash -l", "ls", "/bin/bash|/bin/ls|<>|<>"},
        {".*", "", "", "", "", "||<>|<>"},
    };
    for (const auto& c : cases) {
        const CollapseExpression collapse(c.pattern);
        EXPECT_EQ(ProcessTreeKey(c.parentPath, c.childPath, c.parentCommandLine, c.childCommandLine, collapse), c.key)
            << "pattern: " << c.pattern << " child: " << c.childCommandLine;
    }
}

TEST(RepeatKeys, ShellCommandKeyNormalisesOnlyThePath) {
    struct Case {
        std::string path, commandLine, command, key;
    };
    const std::vector<Case> cases = {
        {"/bin/bash", "-bash", "ls", "/bin/bash|-bash|ls"},
        {"/proc/7/root/bin/sh", "sh 12345", "cat /tmp/a 12345", "container:/bin/sh|sh 12345|cat /tmp/a 12345"},
        {"", "", "ls", "||ls"},
        {"", "sh", "", ""},  // nothing to tell such commands apart: not counted
    };
    for (const auto& c : cases)
        EXPECT_EQ(ShellCommandKey(c.path, c.commandLine, c.command), c.key) << "command: " << c.command;
}

}  // namespace
}  // namespace KALVO::SecurityMonitor
