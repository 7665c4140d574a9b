// The configuration reader against the stand-in host: every failure a caller can meet, the
// type tests, key forms and the host's text being given back on every path.
#include "configuration/Configuration.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "devhost/Host.h"
#include "tests/support/SmallStack.h"

namespace {

using KALVO::Configuration::Configuration;
using KALVO::DevHost::Host;
using KALVO::DevHost::HostOptions;
using KALVO::DevHost::Operation;

HostOptions WithText(std::string text) {
    HostOptions options;
    options.configuration = std::move(text);
    return options;
}

// Every text handed out went back exactly once, and the IConfiguration reference too.
void ExpectEverythingGivenBack(const Host& host, const std::string& context) {
    EXPECT_EQ(host.Config().OutstandingTexts(), 0u) << context;
    EXPECT_EQ(host.Config().UnknownReleases(), 0u) << context;
    EXPECT_EQ(host.OutstandingReferences(), 0u) << host.DescribeOutstandingReferences() << " " << context;
}

// Runs `work` and returns the message of the std::runtime_error it throws ("" when none).
std::string RuntimeErrorOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "";
}

constexpr char const* Unresolved = "The specified key cannot be resolved";
constexpr char const* InvalidSchema = "The schema of the data is not valid and cannot be used";

TEST(Configuration, NullConfigurationIsRefusedByEveryConstructor) {
    const std::vector<std::function<void()>> constructions = {
        [] { Configuration config(nullptr); },
        [] { Configuration config(static_cast<KALVO::Configuration::IConfiguration*>(nullptr)); },
        [] { Configuration config(static_cast<KALVO::Agent::Hosting::IObject*>(nullptr)); },
    };
    for (std::size_t i = 0; i < constructions.size(); ++i) {
        try {
            constructions[i]();
            ADD_FAILURE() << "constructor " << i << " did not throw";
        } catch (const std::invalid_argument& e) {
            EXPECT_STREQ(e.what(), "The IConfiguration pointer may not be nullptr") << "constructor " << i;
        }
    }
}

TEST(Configuration, HostWithoutConfigurationThrowsItsLookupCode) {
    Host host;
    host.Faults().FailNext(Operation::GetInterfaceConfiguration, 43);
    try {
        Configuration config(host.Root());
        FAIL() << "no exception";
    } catch (const std::system_error& e) {
        EXPECT_EQ(e.code(), std::error_code(43, std::generic_category()));
    }
    EXPECT_EQ(host.Faults().Calls(Operation::GetData), 0u);
    ExpectEverythingGivenBack(host, "lookup failure");
}

TEST(Configuration, UnavailableDataNamesTheHostCode) {
    // A code of 0 from the fault injector means "succeed without handing out a text".
    for (const KALVO::Result::Code code : {0u, 5u, 89u, 100u}) {
        Host host(WithText(R"({"a":1})"));
        host.Faults().FailNext(Operation::GetData, code);
        EXPECT_EQ(RuntimeErrorOf([&] { Configuration config(host.Root()); }),
                  "The requested data could not be determined (" + std::to_string(code) + ")")
            << "code " << code;
        ExpectEverythingGivenBack(host, "code " + std::to_string(code));
    }
}

TEST(Configuration, TextThatIsNotJsonIsRefusedAndGivenBack) {
    const std::vector<std::string> texts = {
        "", " ", "{", "}", "nul", "[1,]", R"({"a":1,})", "{} {}", "'a'", R"({"a" 1})", "\xEF\xBB\xBF",
        "\xEF\xBB{}",  // a broken byte-order mark is not skipped
        "\xBF{}", "[01]", "[1e]", R"(["\x"])", "NaN", "[Infinity]", "// comment\n{}",
    };
    for (const std::string& text : texts) {
        Host host(WithText(text));
        EXPECT_EQ(RuntimeErrorOf([&] { Configuration config(host.Root()); }), InvalidSchema) << "input: " << text;
        ExpectEverythingGivenBack(host, "input: " + text);
    }
}

TEST(Configuration, ByteOrderMarkIsSkipped) {
    Host host(WithText("\xEF\xBB\xBF{\"a\":[true]}"));
    const Configuration config(host.Root());
    EXPECT_TRUE(config.GetBool("/a/0"));
    EXPECT_EQ(config.GetMembers(""), std::vector<std::string>{"a"});
    ExpectEverythingGivenBack(host, "after construction");
}

// The type tests, in the order of TypeRow's columns.
using TypeTest = bool (Configuration::*)(const std::string&) const;
constexpr TypeTest TypeTests[] = {&Configuration::IsNull,   &Configuration::IsObject, &Configuration::IsBool,
                                  &Configuration::IsInt32,  &Configuration::IsUInt32, &Configuration::IsInt64,
                                  &Configuration::IsUInt64, &Configuration::IsDouble, &Configuration::IsString};

struct TypeRow {
    char const* key;
    bool passes[std::size(TypeTests)];
};

// Each getter, the type test it requires (an index into TypeTests) and its failure text.
struct Getter {
    std::size_t test;
    std::function<void()> get;
    char const* message;
};

std::vector<Getter> GettersOf(const Configuration& config, const std::string& key) {
    return {
        {2, [&config, key] { (void)config.GetBool(key); }, "The key does not refer to an bool"},
        {3, [&config, key] { (void)config.GetInt32(key); }, "The key does not refer to an int32_t"},
        {4, [&config, key] { (void)config.GetUInt32(key); }, "The key does not refer to an uint32_t"},
        {5, [&config, key] { (void)config.GetInt64(key); }, "The key does not refer to an int64_t"},
        {6, [&config, key] { (void)config.GetUInt64(key); }, "The key does not refer to an uint64_t"},
        {7, [&config, key] { (void)config.GetDouble(key); }, "The key does not refer to an double"},
        {8, [&config, key] { (void)config.GetString(key); }, "The key does not refer to an string"},
        {1, [&config, key] { (void)config.GetObject(key); }, "The key does not refer to an object"},
        {1, [&config, key] { (void)config.GetMembers(key); }, "The key does not refer to an object"},
    };
}

constexpr char const* TypedDocument = R"({
    "five": 5, "fivePointZero": 5.0, "minusOne": -1, "exponent": 1e2, "zero": 0, "minusZero": -0.0,
    "int32Min": -2147483648, "int32Max": 2147483647, "uint32Max": 4294967295, "pastUInt32": 4294967296,
    "belowInt32": -2147483649, "int64Min": -9223372036854775808, "int64Max": 9223372036854775807,
    "pastInt64": 9223372036854775808, "uint64Max": 18446744073709551615,
    "pastUInt64": 18446744073709551616, "belowInt64": -9223372036854775809,
    "true": true, "false": false, "null": null, "text": "5", "object": {}, "array": [5]
})";

TEST(Configuration, TypeTestsFollowTheValueNotItsSpelling) {
    constexpr bool o = true, _ = false;
    const TypeRow rows[] = {
        // key               null object bool int32 uint32 int64 uint64 double string
        {"/five",           {_,   _,     _,   o,    o,     o,    o,     _,     _}},
        {"/fivePointZero",  {_,   _,     _,   _,    _,     _,    _,     o,     _}},
        {"/minusOne",       {_,   _,     _,   o,    _,     o,    _,     _,     _}},
        {"/exponent",       {_,   _,     _,   _,    _,     _,    _,     o,     _}},
        {"/zero",           {_,   _,     _,   o,    o,     o,    o,     _,     _}},
        {"/minusZero",      {_,   _,     _,   _,    _,     _,    _,     o,     _}},
        {"/int32Min",       {_,   _,     _,   o,    _,     o,    _,     _,     _}},
        {"/int32Max",       {_,   _,     _,   o,    o,     o,    o,     _,     _}},
        {"/uint32Max",      {_,   _,     _,   _,    o,     o,    o,     _,     _}},
        {"/pastUInt32",     {_,   _,     _,   _,    _,     o,    o,     _,     _}},
        {"/belowInt32",     {_,   _,     _,   _,    _,     o,    _,     _,     _}},
        {"/int64Min",       {_,   _,     _,   _,    _,     o,    _,     _,     _}},
        {"/int64Max",       {_,   _,     _,   _,    _,     o,    o,     _,     _}},
        {"/pastInt64",      {_,   _,     _,   _,    _,     _,    o,     _,     _}},
        {"/uint64Max",      {_,   _,     _,   _,    _,     _,    o,     _,     _}},
        {"/pastUInt64",     {_,   _,     _,   _,    _,     _,    _,     o,     _}},
        {"/belowInt64",     {_,   _,     _,   _,    _,     _,    _,     o,     _}},
        {"/true",           {_,   _,     o,   _,    _,     _,    _,     _,     _}},
        {"/false",          {_,   _,     o,   _,    _,     _,    _,     _,     _}},
        {"/null",           {o,   _,     _,   _,    _,     _,    _,     _,     _}},
        {"/text",           {_,   _,     _,   _,    _,     _,    _,     _,     o}},
        {"/object",         {_,   o,     _,   _,    _,     _,    _,     _,     _}},
        {"/array",          {_,   _,     _,   _,    _,     _,    _,     _,     _}},
    };
    Host host(WithText(TypedDocument));
    const Configuration config(host.Root());
    for (const TypeRow& row : rows) {
        for (std::size_t test = 0; test < std::size(TypeTests); ++test) {
            EXPECT_EQ((config.*TypeTests[test])(row.key), row.passes[test]) << "key " << row.key << " test " << test;
        }
        // Each getter succeeds exactly when its test passes, and otherwise names its type.
        for (const Getter& getter : GettersOf(config, row.key)) {
            EXPECT_EQ(RuntimeErrorOf(getter.get), row.passes[getter.test] ? "" : getter.message)
                << "key " << row.key << ": " << getter.message;
        }
    }
}

TEST(Configuration, NumbersReadBackAtTheirFullRange) {
    Host host(WithText(TypedDocument));
    const Configuration config(host.Root());
    EXPECT_EQ(config.GetInt32("/int32Min"), INT32_MIN);
    EXPECT_EQ(config.GetUInt32("/uint32Max"), UINT32_MAX);
    EXPECT_EQ(config.GetInt64("/int64Min"), INT64_MIN);
    EXPECT_EQ(config.GetUInt64("/uint64Max"), UINT64_MAX);
    EXPECT_EQ(config.GetInt64("/minusOne"), -1);
    EXPECT_EQ(config.GetDouble("/pastUInt64"), 18446744073709551616.0);
    EXPECT_EQ(config.GetDouble("/exponent"), 100.0);
}

TEST(Configuration, EveryQueryOfAnUnresolvedKeyThrowsButDataAndExists) {
    Host host(WithText(R"({"a":{"b":[10,20]},"s":"text","n":null})"));
    const Configuration config(host.Root());
    // Missing member, index past the end, a step through a scalar, a pointer that is not one.
    const std::vector<std::string> keys = {"/missing", "/a/b/2", "/a/b/-", "/a/b/x", "/s/0", "/n/x", "a",
                                           "/a/b/01", "#/a/%zz", "/a/~2"};
    for (const std::string& key : keys) {
        EXPECT_EQ(config.Data(key), nullptr) << "key: " << key;
        EXPECT_FALSE(config.Exists(key)) << "key: " << key;
        for (const TypeTest isType : TypeTests) {
            EXPECT_EQ(RuntimeErrorOf([&] { (void)(config.*isType)(key); }), Unresolved) << "key: " << key;
        }
        for (const Getter& getter : GettersOf(config, key)) {
            EXPECT_EQ(RuntimeErrorOf(getter.get), Unresolved) << "key: " << key << " getter " << getter.message;
        }
        EXPECT_EQ(RuntimeErrorOf([&] { (void)config.HasMember(key, "b"); }), Unresolved) << "key: " << key;
    }
    EXPECT_EQ(RuntimeErrorOf([] { (void)KALVO::Configuration::JsonValue(nullptr); }), Unresolved);
}

TEST(Configuration, KeysAcceptBothPointerFormsAndTheirEscapes) {
    Host host(WithText(R"({"a":[1,{"x y":2}],"s/t":3,"m~n":4,"":5,"%":6})"));
    const Configuration config(host.Root());
    const struct {
        char const* key;
        std::int32_t expected;
    } rows[] = {
        {"/a/0", 1}, {"#/a/0", 1}, {"/a/1/x y", 2}, {"#/a/1/x%20y", 2}, {"/s~1t", 3},
        {"#/s~1t", 3}, {"/m~0n", 4}, {"/", 5}, {"#/", 5}, {"/%", 6}, {"#/%25", 6},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(config.GetInt32(row.key), row.expected) << "key: " << row.key;
    }
    EXPECT_TRUE(config.IsObject(""));
    EXPECT_TRUE(config.IsObject("#"));
    EXPECT_EQ(config.Data(""), config.Data("#"));
}

TEST(Configuration, StringsKeepEmbeddedZeroBytes) {
    Host host(WithText(R"({"s":"a\u0000b","e":""})"));
    const Configuration config(host.Root());
    EXPECT_EQ(config.GetString("/s"), std::string("a\0b", 3));
    EXPECT_EQ(config.GetString("/e"), "");
}

TEST(Configuration, ObjectsAreWrittenCompactWithMembersInDocumentOrder) {
    Host host(WithText(R"( { "z" : [ 1 , 2.5 , "x" ] , "a" : { } , "m" : { "k" : null , "t" : true } } )"));
    const Configuration config(host.Root());
    EXPECT_EQ(config.GetObject(""), R"({"z":[1,2.5,"x"],"a":{},"m":{"k":null,"t":true}})");
    EXPECT_EQ(config.GetObject("/a"), "{}");
    EXPECT_EQ(config.GetMembers(""), (std::vector<std::string>{"z", "a", "m"}));
    EXPECT_EQ(config.GetMembers("/m"), (std::vector<std::string>{"k", "t"}));
    EXPECT_TRUE(config.GetMembers("/a").empty());
}

TEST(Configuration, HasMemberAppendsTheNameUnescaped) {
    Host host(WithText(R"({"o":{"a":1,"b":{"c":null},"e":{}},"arr":[1],"s":"a"})"));
    const Configuration config(host.Root());
    const struct {
        char const* key;
        char const* name;
        bool expected;
    } rows[] = {
        {"/o", "a", true},   {"/o", "missing", false}, {"/o", "b/c", true},  // the slash nests
        {"/o", "b/d", false}, {"/o", "", false},       {"", "o", true},
        {"/o/b", "c", true},  {"/o/e", "a", false},
        {"/arr", "0", false},  // not an object: false, even though "/arr/0" resolves
        {"/s", "x", false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(config.HasMember(row.key, row.name), row.expected) << "key: " << row.key << " name: " << row.name;
    }
}

TEST(Configuration, VersionAndRevisionFallBackOnAnyFailure) {
    const struct {
        char const* text;
        std::uint32_t version;
        char const* revision;
    } rows[] = {
        {R"({"$version":7,"$revision":"r12"})", 7, "r12"},
        {R"({})", 0, ""},
        {R"([])", 0, ""},
        {R"({"$version":-1,"$revision":12})", 0, ""},
        {R"({"$version":7.0,"$revision":null})", 0, ""},
        {R"({"$version":4294967295})", 4294967295u, ""},
        {R"({"$version":4294967296})", 0, ""},
        {R"({"$version":"7","$revision":{}})", 0, ""},
    };
    for (const auto& row : rows) {
        Host host(WithText(row.text));
        const Configuration config(host.Root());
        EXPECT_EQ(config.GetVersion(), row.version) << "input: " << row.text;
        EXPECT_EQ(config.GetRevision(), row.revision) << "input: " << row.text;
    }
}

// Nesting of `depth` arrays, or of objects each holding the next under "a".
std::string Nested(std::size_t depth, bool objects) {
    std::string text;
    text.reserve(depth * 6);
    for (std::size_t i = 0; i < depth; ++i) text += objects ? R"({"a":)" : "[";
    text += "0";
    for (std::size_t i = 0; i < depth; ++i) text += objects ? "}" : "]";
    return text;
}

TEST(Configuration, NestingUpToTheLimitIsReadOnAHostThread) {
    for (const bool objects : {false, true}) {
        Host host(WithText("{\"n\":" + Nested(KALVO::Configuration::MaxNestingDepth - 1, objects) + "}"));
        KALVO::Testing::RunOnSmallStack([&] {
            const Configuration config(host.Root());
            const std::string written = config.GetObject("");
            EXPECT_EQ(written.size(), host.Config().Text().size()) << "objects: " << objects;
        });
        ExpectEverythingGivenBack(host, "objects: " + std::to_string(objects));
    }
}

TEST(Configuration, NestingBeyondTheLimitIsRefusedOnAHostThread) {
    const std::string texts[] = {
        Nested(KALVO::Configuration::MaxNestingDepth + 1, false), Nested(KALVO::Configuration::MaxNestingDepth + 1, true),
        Nested(100'000, false), Nested(100'000, true), std::string(100'000, '['),
    };
    for (const std::string& text : texts) {
        Host host(WithText(text));
        std::string message;
        KALVO::Testing::RunOnSmallStack([&] { message = RuntimeErrorOf([&] { Configuration config(host.Root()); }); });
        EXPECT_EQ(message, InvalidSchema) << "input: " << text.substr(0, 12) << "... of " << text.size() << " bytes";
        ExpectEverythingGivenBack(host, "input of " + std::to_string(text.size()) + " bytes");
    }
}

}  // namespace
