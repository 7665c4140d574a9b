// The wildcard matcher against the same pattern as a regular expression, on random patterns and
// texts over an alphabet of letters in both cases, stars, question marks and escapes.
#include "eil/string/Wildcard.h"

#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <string>

#include "tests/support/Scaled.h"

namespace {

using namespace KALVO::EIL::String;

constexpr int WildcardRandomRounds = KALVO::Testing::Scaled(100'000, 5'000);

// The same pattern as an ECMAScript regular expression, an independent reference.
std::string ToRegex(std::string_view pattern) {
    std::string regex;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '*' || pattern[i] == '?') {
            regex += pattern[i] == '*' ? ".*" : ".";
            continue;
        }
        // An escaped character stands for itself; a dangling escape ends the pattern.
        if (pattern[i] == '\\' && ++i == pattern.size()) break;
        if (std::string_view("\\^$.|?*+()[]{}").find(pattern[i]) != std::string_view::npos) regex += '\\';
        regex += pattern[i];
    }
    return regex;
}

TEST(WildcardMatchI, AgreesWithARegularExpressionOnRandomInput) {
    std::mt19937 random(11);
    const std::string patternChars = "aAb*?\\", textChars = "aBb*?\\";
    std::uniform_int_distribution<std::size_t> length(0, 7), patternChar(0, patternChars.size() - 1),
        textChar(0, textChars.size() - 1);
    for (int round = 0; round < WildcardRandomRounds; ++round) {
        std::string pattern, text;
        for (auto n = length(random); n > 0; --n) pattern += patternChars[patternChar(random)];
        for (auto n = length(random); n > 0; --n) text += textChars[textChar(random)];
        const std::regex reference(ToRegex(pattern), std::regex::icase);
        ASSERT_EQ(WildcardMatchI(pattern, text), std::regex_match(text, reference)) << pattern << " vs " << text;
    }
}

TEST(WildcardEscape, MakesAnyTextMatchOnlyItself) {
    const std::string texts[] = {"", "a*b", "?", "\\", "a\\*?\\", "***"};
    for (const auto& text : texts) {
        const std::string pattern = WildcardEscape(text);
        EXPECT_TRUE(WildcardMatchI(pattern, text)) << text;
        EXPECT_FALSE(WildcardMatchI(pattern, text + "x")) << text;
    }
    EXPECT_EQ(WildcardEscape("a*b?c\\"), "a\\*b\\?c\\\\");
    EXPECT_EQ(WildcardEscape(L"*"), L"\\*");
}

}  // namespace
