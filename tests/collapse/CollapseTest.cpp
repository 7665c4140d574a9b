// The collapse expression (literal patterns compared as text against std::regex on random
// patterns, and the refusal of expressions too costly to match) and the repeat keys built with it.
#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "monitor/CollapseExpression.h"
#include "monitor/RepeatKeys.h"
#include "tests/support/Scaled.h"
#include "tests/support/SmallStack.h"

namespace KALVO::SecurityMonitor {
namespace {

// Literal patterns are compared as text; the answers must be the regular expression's.
TEST(CollapseExpression, RandomLiteralPatternsAgreeWithTheRegularExpression) {
    constexpr int Rounds = Testing::Scaled(5000, 500);
    std::mt19937 random(7);
    const std::string alphabet = "aAbBzZ09 _-/,:=";
    for (int round = 0; round < Rounds; ++round) {
        std::string pattern(random() % 6, ' ');
        for (char& c : pattern) c = alphabet[random() % alphabet.size()];
        std::string text = pattern;
        // Flip the case of some letters, sometimes change or add a byte.
        for (char& c : text)
            if (random() % 2)
                c = static_cast<char>(std::isupper(static_cast<unsigned char>(c)) ? std::tolower(c) : std::toupper(c));
        if (random() % 4 == 0 && !text.empty()) text[random() % text.size()] = static_cast<char>(random() % 256);
        if (random() % 8 == 0) text.push_back(alphabet[random() % alphabet.size()]);
        EXPECT_EQ(CollapseExpression(pattern).MatchesWhole(text),
                  std::regex_match(text, std::regex(pattern, std::regex::icase)))
            << '"' << pattern << "\" / \"" << text << '"';
    }
}

TEST(CollapseExpression, RefusesExpressionsTooCostlyToMatch) {
    const std::vector<std::string> refused = {"(.*.*.*){5000}",
                                              "(.*.*.*){100}",
                                              "a{600}",
                                              "(a{50}){50}",
                                              "x{99999999999999999999999}",
                                              "((((a{9}){9}){9}){9})",
                                              std::string(MaxCollapsePatternLength + 1, 'a'),
                                              "(" + std::string(MaxCollapsePatternLength, 'a') + ")",
                                              "("};
    for (const auto& pattern : refused) EXPECT_THROW(CollapseExpression{pattern}, std::regex_error) << pattern;

    // The longest accepted expressions, the deepest nested among them included, compile on a
    // host thread's stack.
    const std::vector<std::string> accepted = {"python.*",
                                               "(.*.*.*){50}",
                                               "a{500}",
                                               std::string(MaxCollapsePatternLength, 'a'),
                                               std::string(127, '(') + "ab" + std::string(127, ')'),
                                               "[0-9]{1,64}",
                                               "(a+)+b"};
    Testing::RunOnSmallStack([&] {
        for (const auto& pattern : accepted) EXPECT_NO_THROW(CollapseExpression{pattern}) << pattern;
    });
}

TEST(RepeatKeys, ProcessTreeKeyNormalisesEachPartAndCollapsesWholeCommandLines) {
    struct Case {
        std::string pattern;
        std::string parentPath;
        std::string childPath;
        std::string parentCommandLine;
        std::string childCommandLine;
        std::string key;
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
        {"BA.*", "/bin/bash", "/bin/ls", "bash -l", "ls", "/bin/bash|/bin/ls|<>|ls"},
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
        std::string path;
        std::string commandLine;
        std::string command;
        std::string key;
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
