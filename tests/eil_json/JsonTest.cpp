// The JSON tree: what the sensor parses from host texts (one value or a refusal, numbers in
// their narrowest type, nesting refused before it can exhaust a host thread's stack), and one
// test of each tree operation it or the reader uses. The JSON fuzzer checks the write-and-read-
// back round trip on arbitrary texts; the sensor's tests check the texts it writes.
#include "eil/json/Json.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/ErrorOf.h"
#include "tests/support/SmallStack.h"

namespace KALVO::EIL::Json {

// Failures print the tree as text instead of its bytes.
inline void PrintTo(const Json& json, std::ostream* out) { *out << ToStringA(json); }

namespace {

using namespace std::string_literals;
using Testing::ErrorOf;
using Testing::Nested;

const char* const Sample = R"({"a":{"b":[10,{"c":"x"}]},"s/l":1,"t~":{"~1":2},"":3,"n":null,"e":{}})";

TEST(JsonText, TakesTheNarrowestNumberType) {
    const struct {
        std::string text;
        Type type;
    } cases[] = {
        {"0", Type::UInt64},
        {"-0", Type::UInt64},
        {"18446744073709551615", Type::UInt64},
        {"-1", Type::Int64},
        {"-9223372036854775808", Type::Int64},
        {"18446744073709551616", Type::Double},
        {"1.0", Type::Double},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(FromString(test.text).GetType(), test.type) << test.text;
        EXPECT_EQ(FromString(test.text).IsInt64(), test.type == Type::Int64) << test.text;
    }
}

TEST(JsonText, RefusesAnythingButOneValue) {
    const std::string texts[] = {
        "",      " \n",        "{",   "[1,]",  "[1] [2]",        "{} x",           "nul", "[01]", R"({a:1})",
        "{}\0"s, "[\"a\0\"]"s, "NaN", "1e400", "// comment\n{}", "\xEF\xBB\xBF{}",
    };
    for (const auto& text : texts) {
        EXPECT_EQ(ErrorOf([&] { FromString(text); }), "Failed to parse the json") << "input: " << text;
    }
    EXPECT_EQ(ErrorOf([] { FromString(R"({"a":1,"a":2})"); }), "Json key exists");
    EXPECT_NO_THROW(FromString(" \t\r\n{} \n"));
}

// Numbers in host texts that RapidJSON's full-precision reader mishandles, found by fuzzing:
// the first crashes it (inside StrtodDiyFp), the zeros came out as -2.6e-141, 1.3e269 and
// 3.6e-71. Every health-check payload and synchronize context is read here, so the reader runs
// at its normal precision.
TEST(JsonText, HostileNumbersNeitherCrashNorComeOutWrong) {
    Testing::RunOnSmallStack(
        [] { EXPECT_NO_FATAL_FAILURE((void)FromString(R"({"id":"1","n":1.080000000095e-337})")); });
    for (const char* text : {"0e-88", "0E83", "-0e304"})
        EXPECT_EQ(FromString(text).Get<double>(), 0.0) << " input: " << text;
}

TEST(JsonText, NestingIsReadToTheLimitAndRefusedBeyondOnAHostThreadStack) {
    Testing::RunOnSmallStack([] {
        for (const auto& brackets : {std::pair{"[", "]"}, std::pair{R"({"a":)", "}"}}) {
            const std::string_view open = brackets.first;
            const std::string_view close = brackets.second;
            for (const std::string& text :
                 {Nested(100'000, open, ""), Nested(100'000, open, close), Nested(MaxParseDepth + 1, open, close)}) {
                EXPECT_EQ(ErrorOf([&] { FromString(text); }), "Failed to parse the json") << text.size();
            }
            const std::string text = Nested(MaxParseDepth, open, close);
            const Json json = FromString(text);
            EXPECT_EQ(ToStringA(json), text);
            Json copy = json;
            EXPECT_EQ(copy, json);
            EXPECT_EQ(Json(std::move(copy)), json);
        }
    });
}

// Access by key, the way the sensor writes its answers and filter contexts.
TEST(JsonTree, AccessByKeyInsertsIntoAMutableTreeAndThrowsOnAConstOne) {
    Json null;
    Json array = FromString("[1,2]");
    EXPECT_TRUE(null["x"].IsNull());
    EXPECT_EQ(ToStringA(null), R"({"x":null})");  // null turned into an object, member inserted
    const Json object = FromString(R"({"a":1})");
    EXPECT_EQ(ErrorOf([&] { object["missing"]; }), "missing");
    EXPECT_EQ(ErrorOf([&] { array["a"]; }), "incompatible type");
}

TEST(JsonTree, FindWalksEscapedPathsThatGetPathWrites) {
    const Json json = FromString(Sample);
    const struct {
        const char* path;
        const char* value;
    } cases[] = {
        {"/a/b/0", "10"}, {"/a/b/1/c", R"("x")"}, {"/s~1l", "1"}, {"/t~0/~01", "2"}, {"/", "3"}, {"/e", "{}"},
    };
    for (const auto& test : cases) {
        const Json& found = json.Find(test.path);
        EXPECT_EQ(ToStringA(found), test.value) << test.path;
        EXPECT_EQ(found.GetPath(), test.path);
    }
    EXPECT_EQ(ErrorOf([&] { json.Find("a"); }), "path");
    EXPECT_EQ(ErrorOf([&] { json.Find("/a/b/2"); }), "index");
}

TEST(JsonTree, StringsAndCharactersReadBackOnlyWhenTheyFit) {
    EXPECT_EQ(std::string(FromString("[104,105]")), "hi");
    EXPECT_EQ(std::string(FromString("[-61,-87]")), "\xC3\xA9");
    for (const char* text : {"[200]", "[128]", "[-129]", "[1.0]", "5", "{}"}) {
        EXPECT_EQ(ErrorOf([&] { (void)std::string(FromString(text)); }), "incompatible type") << text;
    }
    EXPECT_EQ(ErrorOf([] { (void)static_cast<char>(Json(std::int64_t{128})); }), "incompatible type");

    const Json json = FromString(R"({"s":"text","chars":[111,107],"n":5})");
    std::string out = "unchanged";
    EXPECT_FALSE(json.TryGetMember<std::string>("n", out));
    EXPECT_FALSE(json.TryGetMember<std::string>("missing", out));
    EXPECT_EQ(out, "unchanged");
    EXPECT_TRUE(json.TryGetMember<std::string>("chars", out));
    EXPECT_EQ(out, "ok");
}

TEST(JsonTree, CreatesChildrenOrRefusesAndComparesByTypeAndValue) {
    Json root;
    CreateObjectChild(root, "list", Type::Array);
    CreateArrayChild(root["list"], Type::Object)["k"] = false;
    CreateObjectChild(root, "n", std::int64_t{-5});
    EXPECT_EQ(ToStringA(root), R"({"list":[{"k":false}],"n":-5})");
    Json null;
    CreateArrayChild(null, true);
    EXPECT_EQ(ToStringA(null), "[true]");
    EXPECT_EQ(ErrorOf([&] { CreateObjectChild(root, "n", true); }), "Json key exists");
    EXPECT_EQ(ErrorOf([&] { CreateArrayChild(root, true); }), "incompatible type");

    EXPECT_FALSE(Json(std::int64_t{5}) == Json(std::uint64_t{5}));
    EXPECT_FALSE(FromString("[1,2]") == FromString("[1]") || FromString(R"({"a":[1]})") == FromString(R"({"b":[1]})"));
    EXPECT_EQ(FromString(Sample)["a"], FromString(R"({"b":[10,{"c":"x"}]})"));  // a member against a root
}

}  // namespace
}  // namespace KALVO::EIL::Json
