// The string helpers of the foundation library, one table each; the UTF conversions (every
// scalar value through every form and back, and the malformed inputs a strict decoder must
// refuse); the wildcard matcher against the same pattern as a regular expression, on random
// patterns and texts over an alphabet of letters in both cases, stars, question marks and
// escapes; hex and Base64 (the standard vectors, every length modulo three, both ways, every
// padding, and the lenient reading of what is not in the alphabet).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include "eil/string/Base64.h"
#include "eil/string/Buffer.h"
#include "eil/string/Case.h"
#include "eil/string/CmdLine.h"
#include "eil/string/Convert.h"
#include "eil/string/Hex.h"
#include "eil/string/Search.h"
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
        std::string_view input, left, right, both;
    } cases[] = {
        {"", "", "", ""},
        {" \t\r\n\0"sv, "", "", ""},
        {"\0 a b\t\0"sv, "a b\t\0"sv, "\0 a b"sv, "a b"},
        {"\v x \f", "\v x \f", "\v x \f", "\v x \f"},  // vertical tab and form feed are not whitespace here
    };
    for (const auto& test : cases) {
        EXPECT_EQ(StrLTrim(test.input), test.left) << "input: " << test.input;
        EXPECT_EQ(StrRTrim(test.input), test.right) << "input: " << test.input;
        EXPECT_EQ(StrLRTrim(test.input), test.both) << "input: " << test.input;
    }
    EXPECT_EQ(StrLRTrim(L"\0 w \0"sv), L"w");
}

TEST(StrSearch, AffixesAndContainsTreatAnEmptyPartTheirOwnWay) {
    EXPECT_TRUE(StrBeginsWith("abc", "") && StrBeginsWith("abc", "ab") && StrEndsWith(L"abc", L"bc"));
    EXPECT_FALSE(StrBeginsWith("ab", "abc") || StrBeginsWith("abc", "AB") || StrEndsWith("bc", "abc"));
    EXPECT_EQ(StrLCut("/tmp/x", "/tmp/"), "x");
    EXPECT_EQ(StrLCut("/tmp/x", "/var/"), "/tmp/x");
    EXPECT_EQ(StrRCut(L"file.txt", L".txt"), L"file");
    EXPECT_TRUE(StrContains("abc", "bc"));
    EXPECT_FALSE(StrContains("abc", "") || StrContains("", "") || StrContains(L"abc", L"cd"));
}

TEST(StrReplace, ReplacesFirstOrAllWithoutRescanning) {
    const struct {
        std::string_view text, from, to, first, all;
    } cases[] = {
        {"aaa", "a", "aa", "aaaa", "aaaaaa"},  // an inserted "a" is not searched again
        {"aaaa", "aa", "b", "baa", "bb"},      // non-overlapping, left to right
        {"abc", "", "x", "abc", "abc"},        // nothing to look for: unchanged
        {"abab", "ab", "", "ab", ""},         {"xyz", "q", "r", "xyz", "xyz"}, {"", "a", "b", "", ""},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(StrReplace(test.text, test.from, test.to), test.first) << test.text << " " << test.from;
        EXPECT_EQ(StrReplaceAll(test.text, test.from, test.to), test.all) << test.text << " " << test.from;
    }
    EXPECT_EQ(StrReplaceAll(L"a~b~", L"~", L"~0"), L"a~0b~0");
}

TEST(StrSplit, DropsOrKeepsEmptyPieces) {
    using Parts = std::vector<std::string>;
    const struct {
        std::string_view text, separator;
        Parts dropped, kept;
    } cases[] = {
        {",a,,b,", ",", {"a", "b"}, {"", "a", "", "b", ""}},
        {"", ",", {}, {""}},
        {",", ",", {}, {"", ""}},
        {"abc", "", {"abc"}, {"abc"}},
        {"a::b:c", "::", {"a", "b:c"}, {"a", "b:c"}},
        {"a:::b", "::", {"a", ":b"}, {"a", ":b"}},  // occurrences do not overlap
    };
    for (const auto& test : cases) {
        EXPECT_EQ(StrSplit(test.text, test.separator, false), test.dropped) << "input: " << test.text;
        EXPECT_EQ(StrSplit(test.text, test.separator, true), test.kept) << "input: " << test.text;
    }
    EXPECT_EQ(StrSplit(L"x;;y", L";", true), (std::vector<std::wstring>{L"x", L"", L"y"}));
}

TEST(StrCase, MapsOnlyAsciiLetters) {
    EXPECT_EQ(StrUpper("abc-XYZ_09\xC3\xA9"), "ABC-XYZ_09\xC3\xA9");
    EXPECT_EQ(StrLower("ABC-xyz@[`{\xC3\x89"), "abc-xyz@[`{\xC3\x89");
    EXPECT_EQ(StrLower(L"A\u00c9Z"), L"a\u00c9z");
}

TEST(Overlap, DetectsSharedBytesOnly) {
    const char buffer[16] = {};
    const struct {
        std::size_t a, aLength, b, bLength;
        bool overlap;
    } cases[] = {
        {0, 4, 4, 4, false}, {0, 5, 4, 4, true},   {4, 4, 0, 5, true},   {4, 4, 0, 4, false}, {0, 16, 3, 1, true},
        {3, 1, 0, 16, true}, {2, 0, 0, 16, false}, {0, 16, 2, 0, false}, {5, 1, 5, 1, true},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(Overlap(buffer + test.a, test.aLength, buffer + test.b, test.bLength), test.overlap)
            << test.a << "+" << test.aLength << " " << test.b << "+" << test.bLength;
    }
}

TEST(SetText, ReportsTheNeededSizeAndCopiesWhenItFits) {
    char small[3] = {'x', 'x', 'x'}, fits[8];
    std::size_t size = sizeof small;
    EXPECT_FALSE(SetText(small, size, "abc"));
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(small[0], 'x');  // nothing written
    size = sizeof fits;
    EXPECT_TRUE(SetText(fits, size, "abc"));
    EXPECT_EQ(size, 4u);
    EXPECT_STREQ(fits, "abc");
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

    const wchar_t* wide[] = {L"-x", L"v"};
    EXPECT_EQ(MapCmdLine(2, wide).at(L"-x"), (std::map<unsigned, std::wstring>{{1, L"v"}}));
    EXPECT_TRUE(MapCmdLine(0, argv).empty() && MapCmdLine(-1, argv).empty());
}

constexpr char32_t ScalarStep = KALVO::Testing::Scaled<char32_t>(1, 17);  // reduced: a sample of the code points

TEST(Convert, EveryScalarValueRoundTripsThroughEveryForm) {
    // U+0000 included: the decoders must not stop at a zero.
    std::u32string all;
    for (char32_t c = 0; c <= 0x10FFFF; c += ScalarStep)
        if (c < 0xD800 || c > 0xDFFF) all += c;
    const std::string utf8 = ToUtf8(all);
    EXPECT_EQ(ToUtf32(utf8), all);
    const std::u16string utf16 = ToUtf16(utf8);
    const auto supplementary = std::count_if(all.begin(), all.end(), [](char32_t c) { return c > 0xFFFF; });
    EXPECT_EQ(utf16.size(), all.size() + static_cast<std::size_t>(supplementary));  // one extra unit each
    EXPECT_EQ(ToUtf8(utf16), utf8);
    const std::wstring wide = v1::ToWide(utf8);
    EXPECT_EQ(std::u32string(wide.begin(), wide.end()), all);
    EXPECT_EQ(v1::ToUtf8(wide), utf8);
    EXPECT_EQ(v1::ToWide(utf16), wide);
    EXPECT_EQ(ToUtf8(std::u32string(1, 0x10000)), "\xF0\x90\x80\x80");
}

TEST(Convert, RefusesMalformedUtf8AndLoneSurrogates) {
    const std::string cases[] = {
        "\x80",
        "a\xBF",
        "\xC2",
        "\xE2\x82",
        "\xF0\x9F\x98",
        "\xC2\x41",  // stray or truncated forms
        "\xC0\x80",
        "\xC1\xBF",
        "\xE0\x9F\xBF",
        "\xF0\x8F\xBF\xBF",  // overlong forms
        "\xED\xA0\x80",
        "\xED\xBF\xBF",
        "\xF4\x90\x80\x80",  // surrogates, U+110000
        "\xF8\x88\x80\x80\x80",
        "\xFE",
        "\xFF",
    };
    for (const auto& input : cases) {
        EXPECT_THROW(ToUtf16(input), std::range_error) << ::testing::PrintToString(input);
        EXPECT_THROW(ToUtf32(input), std::range_error) << ::testing::PrintToString(input);
        EXPECT_THROW(v1::ToWide(input), std::range_error) << ::testing::PrintToString(input);
    }
    EXPECT_THROW(ToUtf8(std::u16string(u"a\xD800")), std::range_error);
    EXPECT_THROW(ToUtf8(std::u32string(1, 0x110000)), std::range_error);
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
    const std::string patternChars = "aAb*?\\", textChars = "aBb*?\\";
    std::uniform_int_distribution<std::size_t> length(0, 7), patternChar(0, patternChars.size() - 1),
        textChar(0, textChars.size() - 1);
    for (int round = 0; round < KALVO::Testing::Scaled(100'000, 5'000); ++round) {
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

TEST(Hex, ReadsPairsAndNeverRefuses) {
    const struct {
        std::string_view text;
        Bytes bytes;
    } cases[] = {
        {"0aFF", {0x0A, 0xFF}},
        {"", {}},
        {"a", {}},                       // shorter than a pair
        {"abc", {0xAB}},                 // odd last character ignored
        {"zz11", {0x00, 0x11}},          // no leading digit: 0
        {"1z", {0x01}},                  // only the first is a digit: its value
        {"-1+1 1", {0x00, 0x00, 0x00}},  // no sign, no blank skipping
    };
    for (const auto& test : cases) {
        Bytes out{0x55};
        EXPECT_TRUE(FromHex(test.text, out)) << test.text;
        EXPECT_EQ(out, test.bytes) << test.text;
        EXPECT_EQ(FromHex(test.text), test.bytes) << test.text;
    }
    EXPECT_EQ(FromHex(L"7f\u0100"), (Bytes{0x7F}));
    EXPECT_EQ(ToHexA(Bytes{0x0A, 0xFF}), "0AFF");
    EXPECT_EQ(ToHexW(std::string_view("\x00\x7f", 2)), L"007F");
}

TEST(Base64, MatchesTheStandardVectors) {
    const struct {
        std::string_view bytes, text;
    } cases[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
        {"\xFB\xFF", "+/8="},
        // Every character of the alphabet, in order.
        {"\x00\x10\x83\x10\x51\x87\x20\x92\x8B\x30\xD3\x8F\x41\x14\x93\x51\x55\x97\x61\x96\x9B\x71\xD7\x9F"
         "\x82\x18\xA3\x92\x59\xA7\xA2\x9A\xAB\xB2\xDB\xAF\xC3\x1C\xB3\xD3\x5D\xB7\xE3\x9E\xBB\xF3\xDF\xBF"sv,
         "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(ToBase64A(test.bytes), test.text);
        EXPECT_EQ(FromBase64(test.text), test.bytes) << test.text;
        const std::wstring wide(test.text.begin(), test.text.end());
        EXPECT_EQ(ToBase64W(test.bytes), wide);
        EXPECT_EQ(FromBase64(wide), test.bytes) << test.text;
    }
}

TEST(Base64, StopsSilentlyAtTheFirstCharacterOutsideTheAlphabet) {
    const struct {
        std::string_view text, bytes;
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
        std::vector<std::uint8_t> bytes{1, 2};
        EXPECT_TRUE(FromBase64(test.text, bytes)) << test.text;
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), test.bytes) << test.text;
    }
    // A wide character whose low byte is in the alphabet is still outside it.
    EXPECT_EQ(FromBase64(L"Zm9v\u015aZm9v"), "foo");
}

}  // namespace
