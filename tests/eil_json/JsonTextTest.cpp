#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "eil/json/Json.h"
#include "tests/eil_json/JsonTesting.h"
#include "tests/support/SmallStack.h"

namespace {

using namespace KALVO::EIL::Json;
using namespace KALVO::EIL::Json::Testing;
using namespace std::string_literals;

#ifdef KALVO_SANITIZED
constexpr int RandomTrees = 300;
constexpr int HandBuiltDepth = 30'000;  // still far beyond what recursion survives on 512 KiB
#else
constexpr int RandomTrees = 3'000;
constexpr int HandBuiltDepth = 100'000;
#endif

std::wstring Widen(std::string_view ascii) { return std::wstring(ascii.begin(), ascii.end()); }

TEST(JsonText, CompactTextRoundTripsInEveryForm) {
    const std::string texts[] = {
        "null", "true", "false", "0", "-1", "18446744073709551615", "-9223372036854775808", "1.5", "-0.0",
        "1e300", R"("")", R"("a\"b\\c\n\t\u0001")", "[]", "{}", R"([null,[],{},[[1]]])",
        R"({"":0,"a":{"b":[1,"x",{"c":null}]},"z":false})",
    };
    for (const auto& text : texts) {
        const Json json = FromString(text);
        EXPECT_EQ(ToStringA(json), text);
        EXPECT_EQ(ToStringW(json), Widen(text));
        EXPECT_EQ(FromString(Widen(text)), json) << text;
        EXPECT_EQ(FromString(ToIndentedStringA(json)), json) << text;
        EXPECT_TRUE(ParentsAreConsistent(json)) << text;
    }
}

TEST(JsonText, WritesMembersInNameOrder) {
    const Json json = FromString(R"({"b":1,"a":{"z":1,"y":2,"Z":3},"B":[]})");
    EXPECT_EQ(ToStringA(json), R"({"B":[],"a":{"Z":3,"y":2,"z":1},"b":1})");
    EXPECT_EQ(ToIndentedStringA(json), "{\n    \"B\": [],\n    \"a\": {\n        \"Z\": 3,\n        \"y\": 2,\n        \"z\": 1\n    },\n    \"b\": 1\n}");
    EXPECT_EQ(ToIndentedStringW(json), Widen(ToIndentedStringA(json)));
}

TEST(JsonText, TakesTheNarrowestNumberType) {
    const struct {
        std::string text;
        Type type;
    } cases[] = {
        {"0", Type::UInt64}, {"-0", Type::UInt64}, {"7", Type::UInt64}, {"4294967296", Type::UInt64},
        {"18446744073709551615", Type::UInt64}, {"-1", Type::Int64}, {"-9223372036854775808", Type::Int64},
        {"18446744073709551616", Type::Double}, {"1.0", Type::Double}, {"1e2", Type::Double}, {"-0.5", Type::Double},
    };
    for (const auto& test : cases) EXPECT_EQ(FromString(test.text).GetType(), test.type) << test.text;
    EXPECT_EQ(FromString("-9223372036854775808").Get<std::int64_t>(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(FromString("0.1").Get<double>(), 0.1);
}

TEST(JsonText, RefusesAnythingButOneValue) {
    const std::string texts[] = {
        "", " \n", "{", "}", "[1,]", R"({"a":1,})", "[1] [2]", "{} x", "nul", "'a'", "[01]", R"({a:1})",
        "{}\0"s, "\0{}"s, "[\"a\0\"]"s, "NaN", "1e400", "// comment\n{}", "\xEF\xBB\xBF{}",
    };
    for (const auto& text : texts) {
        EXPECT_TRUE(Throws<std::runtime_error>([&] { FromString(text); }, "Failed to parse the json")) << "input: " << text;
    }
    EXPECT_TRUE(Throws<std::runtime_error>([] { FromString(R"({"a":1,"a":2})"); }, "Json key exists"));
    EXPECT_TRUE(Throws<std::runtime_error>([] { FromString(R"({"a":{},"a":[]})"); }, "Json key exists"));
    EXPECT_TRUE(Throws<std::range_error>([] { FromString(L"[\"\xD800\"]"); }, "bad conversion"));
    EXPECT_NO_THROW(FromString(" \t\r\n{} \n"));
}

TEST(JsonText, KeepsUnicodeAndWidensItWithoutSurrogates) {
    const Json json = FromString(R"(["\u00e9\ud83d\ude00", "\u0000"])");
    EXPECT_EQ(json[0ul].Get<std::string>(), "\xC3\xA9\xF0\x9F\x98\x80");
    EXPECT_EQ(json[1ul].Get<std::string>(), "\0"s);
    EXPECT_EQ(ToStringA(json), "[\"\xC3\xA9\xF0\x9F\x98\x80\",\"\\u0000\"]");
    EXPECT_EQ(ToStringW(json), L"[\"\u00e9\U0001F600\",\"\\u0000\"]");
    EXPECT_EQ(FromString(ToStringW(json)), json);
}

TEST(JsonText, WideWritersRefuseTextThatIsNotUtf8) {
    const Json json = FromString("[\"\xFF\"]");  // the reader passes bytes through unchecked
    EXPECT_EQ(ToStringA(json), "[\"\xFF\"]");
    EXPECT_TRUE(Throws<std::range_error>([&] { ToStringW(json); }, "bad conversion"));
    EXPECT_TRUE(Throws<std::range_error>([&] { ToIndentedStringW(json); }, "bad conversion"));
}

TEST(JsonText, WritesNonFiniteDoublesAsNull) {
    Json json = Array();
    CreateArrayChild(json, std::numeric_limits<double>::quiet_NaN());
    CreateArrayChild(json, -std::numeric_limits<double>::infinity());
    EXPECT_EQ(ToStringA(json), "[null,null]");
}

// `depth` containers around a 0, e.g. [[0]] or {"a":{"a":0}}.
std::string Nested(std::size_t depth, std::string_view open, std::string_view close) {
    std::string text;
    for (std::size_t i = 0; i < depth; ++i) text += open;
    text += '0';
    for (std::size_t i = 0; i < depth; ++i) text += close;
    return text;
}

TEST(JsonText, RefusesHostileNestingOnAHostThreadStack) {
    KALVO::Testing::RunOnSmallStack([] {
        for (const auto& brackets : {std::pair{"[", "]"}, std::pair{R"({"a":)", "}"}}) {
            const std::string_view open = brackets.first, close = brackets.second;
            EXPECT_TRUE(Throws<std::runtime_error>([&] { FromString(Nested(100'000, open, "")); }, "Failed to parse the json"));
            EXPECT_TRUE(Throws<std::runtime_error>([&] { FromString(Nested(100'000, open, close)); }, "Failed to parse the json"));
            EXPECT_TRUE(Throws<std::runtime_error>([&] { FromString(Nested(MaxParseDepth + 1, open, close)); }, "Failed to parse the json"));
        }
    });
}

TEST(JsonText, TreeAtTheDepthLimitSurvivesEverythingOnAHostThreadStack) {
    KALVO::Testing::RunOnSmallStack([] {
        for (const auto& brackets : {std::pair{"[", "]"}, std::pair{R"({"a":)", "}"}}) {
            const std::string_view open = brackets.first, close = brackets.second;
            const std::string text = Nested(MaxParseDepth, open, close);
            const Json json = FromString(text);
            EXPECT_EQ(ToStringA(json), text);
            Json copy = json;
            EXPECT_EQ(copy, json);
            EXPECT_TRUE(ParentsAreConsistent(copy));
            Json moved = std::move(copy);
            EXPECT_TRUE(ParentsAreConsistent(moved));
            EXPECT_EQ(FromString(ToStringW(moved)), json);
        }
        EXPECT_NO_THROW(FromString(Nested(256, "[", "]")));
        EXPECT_NO_THROW(FromString(Nested(MaxParseDepth - 1, "[", "]") + " "));
    });
}

TEST(JsonText, HandBuiltDeepTreeNeedsNoStack) {
    KALVO::Testing::RunOnSmallStack([] {
        Json deep;
        Json* node = &deep;
        for (int i = 0; i < HandBuiltDepth; ++i) node = i % 2 ? &(*node)["k"] : &(*node)[0ul];
        *node = "leaf";
        const Json copy = deep;
        EXPECT_EQ(copy, deep);
        EXPECT_TRUE(ParentsAreConsistent(copy));
        EXPECT_EQ(ToStringA(copy).size(), ToStringA(deep).size());
        node->operator=(1);
        EXPECT_FALSE(copy == deep);
        EXPECT_EQ(deep.Find(copy.Find("/0/k/0").GetPath()).GetPath(), "/0/k/0");
    });  // both trees destroyed here
}

// A random tree as the reader would build it (non-negative integers unsigned).
Json RandomTree(std::mt19937& random, int depth) {
    std::uniform_int_distribution<int> kind(0, depth > 3 ? 5 : 7), small(0, 4);
    const std::string names[] = {"", "a", "b", "a/b", "~", "\xC3\xA9", "\"q\"", "\n"};
    switch (kind(random)) {
        case 0: return Json();
        case 1: return Json(small(random) == 0);
        case 2: return Json(-1 - static_cast<std::int64_t>(random() % 1000));
        case 3: return Json(static_cast<std::uint64_t>(random()) << 20);
        // Few significant digits: the reader's normal precision reads them back exactly.
        case 4: return Json(static_cast<double>(random() % 1000000) / 8.0 + 0.5);
        case 5: return Json(names[random() % std::size(names)]);
        case 6: {
            Json array = Array();
            for (int n = small(random); n > 0; --n) CreateArrayChild(array, RandomTree(random, depth + 1));
            return array;
        }
        default: {
            Json object = Object();
            for (int n = small(random); n > 0; --n) object[names[random() % std::size(names)]] = RandomTree(random, depth + 1);
            return object;
        }
    }
}

TEST(JsonText, RandomTreesRoundTrip) {
    std::mt19937 random(17);
    for (int round = 0; round < RandomTrees; ++round) {
        const Json tree = RandomTree(random, 0);
        ASSERT_TRUE(ParentsAreConsistent(tree));
        const std::string text = ToStringA(tree);
        const Json parsed = FromString(text);
        ASSERT_EQ(parsed, tree) << text;
        ASSERT_TRUE(ParentsAreConsistent(parsed)) << text;
        ASSERT_EQ(FromString(ToStringW(tree)), tree) << text;
        ASSERT_EQ(FromString(ToIndentedStringA(tree)), tree) << text;
    }
}

}  // namespace
