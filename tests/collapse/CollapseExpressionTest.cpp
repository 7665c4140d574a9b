#include "monitor/CollapseExpression.h"

#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <regex>
#include <string>
#include <vector>

namespace KALVO::SecurityMonitor {
namespace {

bool RegexMatchesWhole(std::string const& pattern, std::string const& text) {
    return std::regex_match(text, std::regex(pattern, std::regex_constants::ECMAScript | std::regex_constants::icase));
}

// Literal patterns are compared as text; the answers must be the regular expression's.
TEST(CollapseExpression, LiteralPatternsMatchLikeTheRegularExpression) {
    const std::vector<std::string> patterns = {
        "this_will_not_match//any_process", "", "sleep 1", "A-b/c,d=e:f@g", "~!#%&'\"`<>;", "Z"};
    const std::vector<std::string> texts = {
        "", "this_will_not_match//any_process", "THIS_WILL_NOT_MATCH//ANY_PROCESS", "this_will_not_match//any_process ",
        " this_will_not_match//any_process", "this_will_not_match//any_proces", "SLEEP 1", "sleep  1",
        "a-B/C,D=E:F@G", "~!#%&'\"`<>;", "z", "Z", std::string("z\0", 2), "\xC3\x9A", "\xFA", "[", "{"};
    for (const auto& pattern : patterns) {
        const CollapseExpression expression(pattern);
        for (const auto& text : texts)
            EXPECT_EQ(expression.MatchesWhole(text), RegexMatchesWhole(pattern, text)) << pattern << " / " << text;
    }
}

TEST(CollapseExpression, RandomLiteralPatternsAgreeWithTheRegularExpression) {
#if defined(KALVO_SANITIZED) || defined(KALVO_EMULATED)
    constexpr int Rounds = 500;
#else
    constexpr int Rounds = 5000;
#endif
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

TEST(CollapseExpression, ExpressionsMatchWholeTextsOnly) {
    const CollapseExpression python("python.*");
    EXPECT_TRUE(python.MatchesWhole("Python a.py"));
    EXPECT_TRUE(python.MatchesWhole("python b.py"));
    EXPECT_FALSE(python.MatchesWhole("/usr/bin/env python"));
}

TEST(CollapseExpression, CountsUnrolledAtoms) {
    const struct {
        const char* pattern;
        std::size_t atoms;
    } cases[] = {
        {"abc", 3},         {"a*", 2},       {"a{3}", 3},       {"a{2,5}", 5},     {"a{4,}", 5},
        {"(ab){3}", 9},     {"[{}]{2}", 2},  {"\\{3}", 3},      {"a{x}", 4},       {"(a|b)c", 4},
        {"(?:a){2}", 4},    {"((a){2}){3}", 15},
    };
    for (const auto& c : cases) EXPECT_EQ(CollapseExpressionAtoms(c.pattern), c.atoms) << c.pattern;
}

TEST(CollapseExpression, RefusesExpressionsTooCostlyToMatch) {
    const std::vector<std::string> refused = {
        "(.*.*.*){5000}", "(.*.*.*){100}", "a{600}", "(a{50}){50}", "x{99999999999999999999999}", "((((a{9}){9}){9}){9})",
        std::string(MaxCollapsePatternLength + 1, 'a'), "(" + std::string(MaxCollapsePatternLength, 'a') + ")",
        "("};
    for (const auto& pattern : refused) EXPECT_THROW(CollapseExpression{pattern}, std::regex_error) << pattern;

    const std::vector<std::string> accepted = {
        "python.*", "(.*.*.*){50}", "a{500}", std::string(MaxCollapsePatternLength, 'a'), "[0-9]{1,64}", "(a+)+b"};
    for (const auto& pattern : accepted) EXPECT_NO_THROW(CollapseExpression{pattern}) << pattern;
}

}  // namespace
}  // namespace KALVO::SecurityMonitor
