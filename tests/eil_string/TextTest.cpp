// The string helpers of the foundation library, one table each.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "eil/string/Buffer.h"
#include "eil/string/Case.h"
#include "eil/string/CmdLine.h"
#include "eil/string/Search.h"
#include "eil/string/StrSplit.h"
#include "eil/string/Trim.h"

namespace {

using namespace KALVO::EIL::String;
using namespace std::string_literals;
using namespace std::string_view_literals;

TEST(StrTrim, RemovesWhitespaceIncludingZeroBytes) {
    const struct {
        std::string_view input, left, right, both;
    } cases[] = {
        {"", "", "", ""}, {" \t\r\n\0"sv, "", "", ""}, {"\0 a b\t\0"sv, "a b\t\0"sv, "\0 a b"sv, "a b"},
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
        {"abab", "ab", "", "ab", ""}, {"xyz", "q", "r", "xyz", "xyz"}, {"", "a", "b", "", ""},
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
        {",a,,b,", ",", {"a", "b"}, {"", "a", "", "b", ""}}, {"", ",", {}, {""}}, {",", ",", {}, {"", ""}},
        {"abc", "", {"abc"}, {"abc"}}, {"a::b:c", "::", {"a", "b:c"}, {"a", "b:c"}},
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
        {0, 4, 4, 4, false}, {0, 5, 4, 4, true}, {4, 4, 0, 5, true}, {4, 4, 0, 4, false}, {0, 16, 3, 1, true},
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

}  // namespace
