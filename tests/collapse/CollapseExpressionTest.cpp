// The collapse expression: literal patterns compared as text against std::regex on random
// patterns, and the refusal of expressions too costly to match.
#include "monitor/CollapseExpression.h"

#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/SmallStack.h"
#include "tests/support/Scaled.h"

namespace KALVO::SecurityMonitor {
namespace {

bool RegexMatchesWhole(std::string const& pattern, std::string const& text) {
    return std::regex_match(text, std::regex(pattern, std::regex_constants::ECMAScript | std::regex_constants::icase));
}

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
            if (random() % 2) c = static_cast<char>(std::isupper(static_cast<unsigned char>(c)) ? std::tolower(c) : std::toupper(c));
        if (random() % 4 == 0 && !text.empty()) text[random() % text.size()] = static_cast<char>(random() % 256);
        if (random() % 8 == 0) text.push_back(alphabet[random() % alphabet.size()]);
        EXPECT_EQ(CollapseExpression(pattern).MatchesWhole(text), RegexMatchesWhole(pattern, text))
            << '"' << pattern << "\" / \"" << text << '"';
    }
}

TEST(CollapseExpression, RefusesExpressionsTooCostlyToMatch) {
    const std::vector<std::string> refused = {
        "(.*.*.*){5000}", "(.*.*.*){100}", "a{600}", "(a{50}){50}", "x{99999999999999999999999}", "((((a{9}){9}){9}){9})",
        std::string(MaxCollapsePatternLength + 1, 'a'), "(" + std::string(MaxCollapsePatternLength, 'a') + ")",
        "("};
    for (const auto& pattern : refused) EXPECT_THROW(CollapseExpression{pattern}, std::regex_error) << pattern;

    // The longest accepted expressions, the deepest nested among them included, compile on a
    // host thread's stack.
    const std::vector<std::string> accepted = {"python.*", "(.*.*.*){50}", "a{500}", std::string(MaxCollapsePatternLength, 'a'),
                                               std::string(127, '(') + "ab" + std::string(127, ')'), "[0-9]{1,64}", "(a+)+b"};
    Testing::RunOnSmallStack([&] {
        for (const auto& pattern : accepted) EXPECT_NO_THROW(CollapseExpression{pattern}) << pattern;
    });
}

}  // namespace
}  // namespace KALVO::SecurityMonitor
