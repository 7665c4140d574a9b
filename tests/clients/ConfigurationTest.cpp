// The configuration reader against the stand-in host: every type test, and the getters the
// sensor reads its settings with, against values at each type's limits; key forms and unresolved
// keys; nesting read up to its limit and refused beyond it on a host thread's stack, the host's
// text given back on every path.
#include "configuration/Configuration.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "devhost/Host.h"
#include "tests/support/ErrorOf.h"
#include "tests/support/SmallStack.h"

namespace {

using KALVO::Configuration::Configuration;
using KALVO::DevHost::Host;
using KALVO::Testing::Nested;

// The type tests, in the order of TypeRow's columns.
using TypeTest = bool (Configuration::*)(const std::string&) const;
constexpr TypeTest TypeTests[] = {&Configuration::IsNull,   &Configuration::IsObject, &Configuration::IsBool,
                                  &Configuration::IsInt32,  &Configuration::IsUInt32, &Configuration::IsInt64,
                                  &Configuration::IsUInt64, &Configuration::IsDouble, &Configuration::IsString};

struct TypeRow {
    char const* key;
    bool passes[std::size(TypeTests)];
};

// A getter the sensor reads its settings with, the type test it requires (an index into
// TypeTests) and its failure text.
struct Getter {
    std::size_t test;
    std::function<void()> get;
    char const* message;
};

std::vector<Getter> GettersOf(const Configuration& config, const std::string& key) {
    return {
        {3, [&config, key] { (void)config.GetInt32(key); }, "The key does not refer to an int32_t"},
        {8, [&config, key] { (void)config.GetString(key); }, "The key does not refer to an string"},
    };
}

constexpr char const* TypedDocument = R"({
    "fivePointZero": 5.0, "int32Min": -2147483648, "int32Max": 2147483647, "uint32Max": 4294967295,
    "pastUInt32": 4294967296, "belowInt32": -2147483649, "int64Min": -9223372036854775808,
    "pastInt64": 9223372036854775808, "uint64Max": 18446744073709551615, "pastUInt64": 18446744073709551616,
    "true": true, "null": null, "text": "5", "object": {}, "array": [5]
})";

TEST(Configuration, TypeTestsFollowTheValueNotItsSpelling) {
    constexpr bool o = true;
    constexpr bool _ = false;
    const TypeRow rows[] = {
        // key               null object bool int32 uint32 int64 uint64 double string
        {"/fivePointZero", {_, _, _, _, _, _, _, o, _}}, {"/int32Min", {_, _, _, o, _, o, _, _, _}},
        {"/int32Max", {_, _, _, o, o, o, o, _, _}},      {"/uint32Max", {_, _, _, _, o, o, o, _, _}},
        {"/pastUInt32", {_, _, _, _, _, o, o, _, _}},    {"/belowInt32", {_, _, _, _, _, o, _, _, _}},
        {"/int64Min", {_, _, _, _, _, o, _, _, _}},      {"/pastInt64", {_, _, _, _, _, _, o, _, _}},
        {"/uint64Max", {_, _, _, _, _, _, o, _, _}},     {"/pastUInt64", {_, _, _, _, _, _, _, o, _}},
        {"/true", {_, _, o, _, _, _, _, _, _}},          {"/null", {o, _, _, _, _, _, _, _, _}},
        {"/text", {_, _, _, _, _, _, _, _, o}},          {"/object", {_, o, _, _, _, _, _, _, _}},
        {"/array", {_, _, _, _, _, _, _, _, _}},
    };
    Host host({.configuration = TypedDocument});
    const Configuration config(host.Root());
    for (const TypeRow& row : rows) {
        for (std::size_t test = 0; test < std::size(TypeTests); ++test) {
            EXPECT_EQ((config.*TypeTests[test])(row.key), row.passes[test]) << "key " << row.key << " test " << test;
        }
        // The sensor's getters succeed exactly when their test passes, and otherwise name their type.
        for (const Getter& getter : GettersOf(config, row.key)) {
            EXPECT_EQ(KALVO::Testing::ErrorOf(getter.get), row.passes[getter.test] ? "" : getter.message)
                << "key " << row.key << ": " << getter.message;
        }
    }
}

TEST(Configuration, KeysAcceptBothPointerFormsAndTheirEscapes) {
    Host host({.configuration = R"({"a":[1,{"x y":2}],"s/t":3,"m~n":4,"":5,"%":6})"});
    const Configuration config(host.Root());
    const struct {
        char const* key;
        std::int32_t expected;
    } rows[] = {
        {"/a/0", 1}, {"#/a/1/x%20y", 2}, {"/s~1t", 3}, {"#/s~1t", 3}, {"/m~0n", 4}, {"/", 5}, {"#/%25", 6},
    };
    for (const auto& row : rows) EXPECT_EQ(config.GetInt32(row.key), row.expected) << "key: " << row.key;
    // Missing member, index past the end, a step through a scalar, a pointer that is not one. The
    // getters resolve a key as the type tests do.
    for (const std::string key : {"/missing", "/a/2", "/a/x", "/s~1t/0", "a", "#/a/%zz", "/a/~2"}) {
        EXPECT_FALSE(config.Exists(key)) << "key: " << key;
        EXPECT_EQ(KALVO::Testing::ErrorOf([&] { (void)config.IsNull(key); }), "The specified key cannot be resolved")
            << "key: " << key;
    }
}

TEST(Configuration, NestingIsReadUpToTheLimitAndRefusedBeyondOnAHostThread) {
    const std::size_t limit = KALVO::Configuration::MaxNestingDepth;
    const struct {
        std::string text;
        bool read;
    } cases[] = {
        {"{\"n\":" + Nested(limit - 1, "[", "]") + "}", true},
        {Nested(limit + 1, "[", "]"), false},
        {Nested(limit + 1, R"({"a":)", "}"), false},
        {std::string(100'000, '['), false},
    };
    for (const auto& c : cases) {
        Host host({.configuration = c.text});
        std::string message = "?";
        KALVO::Testing::RunOnSmallStack([&] {
            message = KALVO::Testing::ErrorOf(
                [&] { EXPECT_EQ(Configuration(host.Root()).GetObject("").size(), c.text.size()); });
        });
        EXPECT_EQ(message, c.read ? "" : "The schema of the data is not valid and cannot be used")
            << c.text.size() << " bytes";
        // Every text handed out went back exactly once, and the IConfiguration reference too.
        EXPECT_EQ(host.Config().OutstandingTexts(), 0u) << c.text.size() << " bytes";
        EXPECT_EQ(host.Config().UnknownReleases(), 0u) << c.text.size() << " bytes";
        EXPECT_EQ(host.OutstandingReferences(), "");
    }
}

}  // namespace
