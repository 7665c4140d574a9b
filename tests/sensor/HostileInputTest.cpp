// Texts any local user controls, and documents a host may pass, on a thread with the stack of
// a macOS secondary thread (512 KiB): no crash, and every event handled.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/SensorTest.h"
#include "tests/support/SmallStack.h"

namespace KALVO::Testing {
namespace {

constexpr std::size_t MiB = 1024 * 1024;

std::vector<std::pair<std::string, std::string>> HostileTexts() {
    std::string manyTmp;
    while (manyTmp.size() < MiB) manyTmp += "/tmp/a";
    std::string hexWords;
    while (hexWords.size() < MiB) hexWords += std::string(64, 'a') + " " + std::string(32, 'F') + " ";
    std::string mixed;
    for (std::size_t i = 0; mixed.size() < MiB; ++i) mixed += static_cast<char>((i * 131) % 256);
    return {
        {"digits", std::string(MiB, '7')},
        {"tmp run", "/tmp/" + std::string(MiB, 'x')},
        {"many tmp", manyTmp},
        {"hex words", hexWords},
        {"nul bytes", std::string(MiB, '\0')},
        {"every byte", mixed},
        {"invalid utf-8", std::string(MiB, '\xc3')},
        {"proc path", "/proc/" + std::string(MiB, '1') + "/root/bin/sh"},
    };
}

// The collapse expression is catastrophic for a backtracking matcher: a match that would not end
// must be refused, not hang.
TEST_F(SensorTest, HugeHostileTextsOnASmallStack) {
    StartWith(R"({"securitymonitor":{"process_tree_collapse_regex":"(a|aa)*b"}})");
    RunOnSmallStack([&] {
        for (const auto& [name, text] : HostileTexts()) {
            SCOPED_TRACE(name);
            const auto before = sensor.Reported();
            auto parent = sensor.Process("p-" + name, text, text);
            auto child = sensor.Process("c-" + name, text, text);
            sensor.Created(child, parent);
            sensor.Host().Monitors().DeliverProcessExists(child);
            sensor.Host().Monitors().DeliverShellCommand(parent, text);
            sensor.Host().Monitors().DeliverProcessTerminate(child);
            // A refused collapse match is logged, not fatal; the other two are always reported.
            EXPECT_GE(sensor.Reported(), before + 2);
        }
    });
    EXPECT_EQ(sensor.Stop(), Result::Success);
}

TEST_F(SensorTest, CollapseExpressionMatchingAWholeMegabyteOnASmallStack) {
    // Matching walks the whole text here; neither library may recurse per character.
    StartWith(R"({"securitymonitor":{"process_tree_collapse_regex":"(\\w+\\s?)*|[^z]*"}})");
    RunOnSmallStack([&] {
        for (const auto& [name, text] : HostileTexts()) {
            SCOPED_TRACE(name);
            auto parent = sensor.Process("p-" + name, "/bin/sh", "sh");
            auto child = sensor.Process("c-" + name, "/bin/x", text);
            sensor.Created(child, parent);
        }
    });
    EXPECT_EQ(sensor.Logged(LogLevel::Error, ""), 0u);
    EXPECT_EQ(sensor.Reported(), 3u);  // every child command line collapsed into one key
}

}  // namespace
}  // namespace KALVO::Testing
