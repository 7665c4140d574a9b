// The string helpers of the foundation library. Splitting, which the sensor calls, is tested for
// what it relies on; the others for their main behaviour through the narrow forms: trimming, a
// command line's options, every scalar value through UTF-8 and back, the wildcard matcher
// against the same pattern as a regular expression (random patterns and texts over letters in
// both cases, stars, question marks and escapes), hex and Base64 (the standard vectors, every
// padding, and the lenient reading of what is not in the alphabet).
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "eil/string/Base64.h"
#include "eil/string/CmdLine.h"
#include "eil/string/Convert.h"
#include "eil/string/Hex.h"
#include "eil/string/StrSplit.h"
#include "eil/string/Trim.h"
#include "eil/string/Wildcard.h"
#include "tests/support/Scaled.h"

namespace {

using namespace KALVO::EIL::String;
using namespace std::string_literals;
using namespace std::string_view_literals;
using Bytes = std::vector<std::uint8_t>;

TEST(StrTrim, RemovesWhitespaceIncludingZeroBytes) {
    const struct {
        std::string_view input;
        std::string_view left;
        std::string_view right;
        std::string_view both;
    } cases[] = {
        {" \t\r\n\0"sv, "", "", ""},
        {"\0 a b\t\0"sv, "a b\t\0"sv, "\0 a b"sv, "a b"},
        {"\v x \f", "\v x \f", "\v x \f", "\v x \f"},  // vertical tab and form feed are not whitespace here
    };
    for (const auto& test : cases) {
        EXPECT_EQ(StrLTrim(test.input), test.left) << "input: " << test.input;
        EXPECT_EQ(StrRTrim(test.input), test.right) << "input: " << test.input;
        EXPECT_EQ(StrLRTrim(test.input), test.both) << "input: " << test.input;
    }
}

TEST(StrSplit, DropsOrKeepsEmptyPieces) {
    using Parts = std::vector<std::string>;
    const struct {
        std::string_view text;
        std::string_view separator;
        Parts dropped;
        Parts kept;
    } cases[] = {
        {",a,,b,", ",", {"a", "b"}, {"", "a", "", "b", ""}},
        {"", ",", {}, {""}},
        {",", ",", {}, {"", ""}},
        {"abc", "", {"abc"}, {"abc"}},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(StrSplit(test.text, test.separator, false), test.dropped) << "input: " << test.text;
        EXPECT_EQ(StrSplit(test.text, test.separator, true), test.kept) << "input: " << test.text;
    }
}

TEST(MapCmdLine, GroupsValuesUnderTheOptionBeforeThem) {
    const char* argv[] = {"prog", "-a", "1", "2", "--b=x", "3", "-a", "4", nullptr, "-flag"};
    const auto options = MapCmdLine(10, argv);
    using Values = std::map<unsigned, std::string>;
    EXPECT_EQ(options.size(), 4u);
    EXPECT_EQ(options.at(""), (Values{{0, "prog"}}));
    EXPECT_EQ(options.at("-a"), (Values{{2, "1"}, {3, "2"}, {7, "4"}}));
    EXPECT_EQ(options.at("--b"), (Values{{4, "x"}, {5, "3"}}));
    EXPECT_EQ(options.at("-flag"), Values{});
    EXPECT_TRUE(MapCmdLine(0, argv).empty() && MapCmdLine(-1, argv).empty());
}

constexpr char32_t ScalarStep = KALVO::Testing::Scaled<char32_t>(1, 17);  // reduced: a sample of the code points

TEST(Convert, EveryScalarValueRoundTripsThroughUtf8) {
    // U+0000 included: the decoders must not stop at a zero.
    std::u32string all;
    for (char32_t c = 0; c <= 0x10FFFF; c += ScalarStep)
        if (c < 0xD800 || c > 0xDFFF) all += c;
    const std::string utf8 = ToUtf8(all);
    EXPECT_EQ(ToUtf32(utf8), all);
    const std::wstring wide = v1::ToWide(utf8);
    EXPECT_EQ(std::u32string(wide.begin(), wide.end()), all);
    EXPECT_EQ(v1::ToUtf8(wide), utf8);
    EXPECT_EQ(ToUtf8(std::u32string(1, 0x10000)), "\xF0\x90\x80\x80");
}

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
    const std::string patternChars = "aAb*?\\";
    const std::string textChars = "aBb*?\\";
    std::uniform_int_distribution<std::size_t> length(0, 7);
    std::uniform_int_distribution<std::size_t> patternChar(0, patternChars.size() - 1);
    std::uniform_int_distribution<std::size_t> textChar(0, textChars.size() - 1);
    for (int round = 0; round < KALVO::Testing::Scaled(100'000, 5'000); ++round) {
        std::string pattern;
        std::string text;
        for (auto n = length(random); n > 0; --n) pattern += patternChars[patternChar(random)];
        for (auto n = length(random); n > 0; --n) text += textChars[textChar(random)];
        const std::regex reference(ToRegex(pattern), std::regex::icase);
        ASSERT_EQ(WildcardMatchI(pattern, text), std::regex_match(text, reference)) << pattern << " vs " << text;
    }
}

TEST(Hex, ReadsPairsAndNeverRefuses) {
    const struct {
        std::string_view text;
        Bytes bytes;
    } cases[] = {
        {"0aFF", {0x0A, 0xFF}},
        {"", {}},
        {"abc", {0xAB}},                 // odd last character ignored
        {"zz11", {0x00, 0x11}},          // no leading digit: 0
        {"1z", {0x01}},                  // only the first is a digit: its value
        {"-1+1 1", {0x00, 0x00, 0x00}},  // no sign, no blank skipping
    };
    for (const auto& test : cases) {
        Bytes out{0x55};
        EXPECT_TRUE(FromHex(test.text, out)) << test.text;
        EXPECT_EQ(out, test.bytes) << test.text;
    }
    EXPECT_EQ(ToHexA(Bytes{0x0A, 0xFF}), "0AFF");
}

TEST(Base64, MatchesTheStandardVectors) {
    const struct {
        std::string_view bytes;
        std::string_view text;
    } cases[] = {
        {"", ""},
        {"\0"sv, "AA=="},  // "A" stands for zero bits: it must not read as outside the alphabet
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
        {"\xFB\xFF", "+/8="},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(ToBase64A(test.bytes), test.text);
        EXPECT_EQ(FromBase64(test.text), test.bytes) << test.text;
    }
}

TEST(Base64, StopsSilentlyAtTheFirstCharacterOutsideTheAlphabet) {
    const struct {
        std::string_view text;
        std::string_view bytes;
    } cases[] = {
        {"Zm9v Zm9v", "foo"},                                         // a space ends decoding
        {"Zm9v=Zm9v", "foo"}, {"Zm9vY", "foo"},                       // a single leftover character gives nothing
        {"Zm9vYg", "foob"},                                           // missing padding is fine
        {"Zm9vYmE", "fooba"}, {"*Zm9v", ""},    {"Zm\xC3\xA9", "f"},  // two characters give one byte
    };
    for (const auto& test : cases) {
        std::string out = "stale";
        EXPECT_TRUE(FromBase64(test.text, out)) << test.text;
        EXPECT_EQ(out, test.bytes) << test.text;
    }
}

}  // namespace
