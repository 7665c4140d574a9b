#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "eil/json/Json.h"
#include "tests/eil_json/JsonTesting.h"

namespace {

using namespace KALVO::EIL::Json;
using namespace KALVO::EIL::Json::Testing;

const char* const Sample = R"({"a":{"b":[10,{"c":"x"}]},"s/l":1,"t~":{"~1":2},"":3,"n":null,"e":{}})";

// Every node below `root`, root included.
std::vector<const Json*> AllNodes(const Json& root) {
    std::vector<const Json*> nodes{&root};
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const Json& node = *nodes[i];
        if (node.IsObject()) {
            for (const auto& member : node.Get<Json::ObjectType>()) nodes.push_back(&member.second);
        } else if (node.IsArray()) {
            for (const auto& element : node.Get<Json::ArrayType>()) nodes.push_back(&element);
        }
    }
    return nodes;
}

TEST(JsonAccess, MemberAccessByType) {
    Json null;
    EXPECT_TRUE(null["x"].IsNull());
    EXPECT_TRUE(null.IsObject());  // null turned into an object, member inserted
    EXPECT_EQ(ToStringA(null), R"({"x":null})");

    const Json constNull;
    EXPECT_TRUE(Throws<std::out_of_range>([&] { constNull["key"]; }, "key"));
    const Json object = FromString(R"({"a":1})");
    EXPECT_EQ(object["a"], Json(std::uint64_t{1}));
    EXPECT_TRUE(Throws<std::out_of_range>([&] { object["missing"]; }, "missing"));
    for (const char* text : {"[]", "1", "\"s\"", "true", "1.5"}) {
        Json json = FromString(text);
        const Json& constJson = json;
        EXPECT_TRUE(Throws<std::runtime_error>([&] { json["a"]; }, "incompatible type")) << text;
        EXPECT_TRUE(Throws<std::runtime_error>([&] { constJson["a"]; }, "incompatible type")) << text;
    }
}

TEST(JsonAccess, IndexAccessByType) {
    Json emptyObject = Object();
    EXPECT_TRUE(emptyObject[0ul].IsNull());
    EXPECT_EQ(ToStringA(emptyObject), "[null]");  // deliberately: an empty object becomes an array
    Json object = FromString(R"({"a":1})");
    EXPECT_TRUE(Throws<std::runtime_error>([&] { object[0ul]; }, "incompatible type"));

    Json null;
    EXPECT_TRUE(Throws<std::out_of_range>([&] { null[1ul]; }, "index"));
    EXPECT_TRUE(null.IsNull());  // a failed access changed nothing
    Json array = FromString("[1,2]");
    EXPECT_TRUE(Throws<std::out_of_range>([&] { array[3ul]; }, "index"));
    array[2ul] = "third";
    EXPECT_EQ(ToStringA(array), R"([1,2,"third"])");

    const Json& constArray = array;
    EXPECT_TRUE(Throws<std::out_of_range>([&] { constArray[3ul]; }, "index"));
    const Json constNull;
    EXPECT_TRUE(Throws<std::out_of_range>([&] { constNull[0ul]; }, "index"));
    const Json constString = "s";
    EXPECT_TRUE(Throws<std::runtime_error>([&] { constString[0ul]; }, "incompatible type"));
}

TEST(JsonParents, HoldAfterCopiesMovesAndAssignments) {
    const Json original = FromString(Sample);
    ASSERT_TRUE(ParentsAreConsistent(original));

    Json copy = original;
    EXPECT_EQ(copy.GetParent(), nullptr);
    EXPECT_TRUE(ParentsAreConsistent(copy));
    Json moved = std::move(copy);
    EXPECT_TRUE(ParentsAreConsistent(moved));

    Json target = FromString(R"({"keep":{"x":[]}})");
    target["keep"]["x"] = original;  // copy-assign into a member
    EXPECT_TRUE(ParentsAreConsistent(target));
    EXPECT_EQ(target["keep"]["x"].GetParent(), &target["keep"]);
    target["keep"] = std::move(moved);  // move-assign over a subtree
    EXPECT_TRUE(ParentsAreConsistent(target));
    EXPECT_EQ(target["keep"], original);

    Json self = FromString(Sample);
    self = self["a"];  // from a descendant, by copy
    EXPECT_TRUE(ParentsAreConsistent(self));
    EXPECT_EQ(ToStringA(self), R"({"b":[10,{"c":"x"}]})");
    self = std::move(self["b"]);  // from a descendant, by move
    EXPECT_TRUE(ParentsAreConsistent(self));
    EXPECT_EQ(ToStringA(self), R"([10,{"c":"x"}])");

    Json outer = FromString(R"({"in":{"v":1}})");
    outer["in"] = std::move(outer);  // from an ancestor: copied, never self-containing
    EXPECT_TRUE(ParentsAreConsistent(outer));
    EXPECT_EQ(ToStringA(outer), R"({"in":{"in":{"v":1}}})");
}

TEST(JsonParents, HoldWhileArraysGrow) {
    Json array;
    for (unsigned long i = 0; i < 1000; ++i) {
        Json& element = i % 2 ? CreateArrayChild(array, Type::Object) : array[i];
        element["i"] = i;
        element["nested"][0ul]["deeper"] = "x";
        ASSERT_EQ(element.GetParent(), &array);
    }
    EXPECT_TRUE(ParentsAreConsistent(array));
    EXPECT_EQ(array[999ul]["nested"][0ul]["deeper"].GetPath(), "/999/nested/0/deeper");
    Json copy(array);
    EXPECT_TRUE(ParentsAreConsistent(copy));
    EXPECT_EQ(copy, array);
}

TEST(JsonFind, WalksEscapedPaths) {
    const Json json = FromString(Sample);
    const struct {
        const char* path;
        const char* value;
    } cases[] = {
        {"", nullptr}, {"/a/b/0", "10"}, {"/a/b/1/c", R"("x")"}, {"/s~1l", "1"}, {"/t~0/~01", "2"}, {"/", "3"},
        {"/n", "null"}, {"/e", "{}"}, {"/a/b/01", R"({"c":"x"})"},  // the index is read as a number
    };
    for (const auto& test : cases) {
        const Json& found = json.Find(test.path);
        EXPECT_EQ(ToStringA(found), test.value ? test.value : ToStringA(json)) << test.path;
        Json copy = json;
        EXPECT_EQ(copy.Find(std::wstring(test.path, test.path + std::strlen(test.path))), found) << test.path;
    }
}

TEST(JsonFind, FailuresByTypeAndText) {
    Json json = FromString(Sample);
    const Json& constJson = json;
    EXPECT_TRUE(Throws<std::invalid_argument>([&] { json.Find("a"); }, "path"));
    EXPECT_TRUE(Throws<std::invalid_argument>([&] { constJson.Find("a/b"); }, "path"));
    EXPECT_TRUE(Throws<std::invalid_argument>([&] { json.Find("/s~1l/x"); }, "path"));  // into a number
    EXPECT_TRUE(Throws<std::invalid_argument>([&] { json.Find("/n/x"); }, "path"));     // into null
    EXPECT_TRUE(Throws<std::out_of_range>([&] { constJson.Find("/a/missing"); }, "missing"));
    EXPECT_TRUE(Throws<std::out_of_range>([&] { constJson.Find("/a/b/2"); }, "index"));
    EXPECT_TRUE(Throws<std::out_of_range>([&] { constJson.Find("/a/b/-"); }, "index"));
    EXPECT_TRUE(Throws<std::out_of_range>([&] { json.Find("/a/b/3"); }, "index"));
    EXPECT_THROW(json.Find("/a/b/x"), std::invalid_argument);  // std::stoul's own
    EXPECT_EQ(ToStringA(json), ToStringA(FromString(Sample)));  // no failure above created anything
}

TEST(JsonFind, CreatesWhatIsMissingAtTheEnd) {
    Json json = FromString(Sample);
    json.Find("/a/new") = 5;
    json.Find("/a/b/-") = "appended";
    json.Find("/a/b/3") = true;
    EXPECT_EQ(ToStringA(json["a"]), R"({"b":[10,{"c":"x"},"appended",true],"new":5})");
    EXPECT_TRUE(ParentsAreConsistent(json));
}

TEST(JsonPath, EveryNodeIsFoundAtItsPath) {
    const Json json = FromString(Sample);
    for (const Json* node : AllNodes(json)) {
        EXPECT_EQ(&json.Find(node->GetPath()), node) << node->GetPath();
    }
    EXPECT_EQ(json.GetPath(), "");
    EXPECT_EQ(json["s/l"].GetPath(), "/s~1l");
    EXPECT_EQ(json["t~"]["~1"].GetPath(), "/t~0/~01");
    EXPECT_EQ(json[""].GetPath(), "/");
    EXPECT_EQ(json["a"]["b"][1ul].GetPath(), "/a/b/1");
}

TEST(JsonPath, NameAndIndexNeedTheRightParent) {
    const Json json = FromString(Sample);
    EXPECT_EQ(json["t~"]["~1"].GetName(), "~1");
    EXPECT_EQ(json["a"]["b"][1ul].GetIndex(), 1u);
    EXPECT_TRUE(Throws<std::runtime_error>([&] { json.GetName(); }, "position not found"));
    EXPECT_TRUE(Throws<std::runtime_error>([&] { json.GetIndex(); }, "position not found"));
    EXPECT_TRUE(Throws<std::runtime_error>([&] { json["a"].GetIndex(); }, "position not found"));
    EXPECT_TRUE(Throws<std::runtime_error>([&] { json["a"]["b"][0ul].GetName(); }, "position not found"));
}

TEST(JsonText, StringsReadBackFromCharacterArrays) {
    EXPECT_EQ(std::string(FromString("[104,105]")), "hi");
    EXPECT_EQ(std::string(FromString("[-61,-87]")), "\xC3\xA9");
    EXPECT_EQ(std::string(FromString("[]")), "");
    EXPECT_EQ(std::string(FromString(R"("text")")), "text");
    for (const char* text : {"[200]", "[128]", "[-129]", "[1.0]", "[\"a\"]", "5", "{}", "null"}) {
        EXPECT_TRUE(Throws<std::runtime_error>([&] { (void)std::string(FromString(text)); }, "incompatible type")) << text;
    }
    std::wstring wide;
    EXPECT_TRUE(FromString("[104,233,128512]").TryStringWFromArray(wide));
    EXPECT_EQ(wide, L"h\u00e9\U0001F600");
    EXPECT_FALSE(FromString(R"("s")").TryStringWFromArray(wide));
    std::string narrow = "unchanged";
    EXPECT_FALSE(FromString("{}").TryStringAFromArray(narrow));
    EXPECT_EQ(narrow, "unchanged");
    EXPECT_EQ(static_cast<char>(FromString("127")), '\x7F');
    EXPECT_EQ(static_cast<char>(FromString("-128")), '\x80');
    EXPECT_TRUE(Throws<std::runtime_error>([] { (void)static_cast<wchar_t>(FromString("4294967296")); }, "incompatible type"));
}

TEST(JsonTryGetMember, ReadsOnlyConvertibleMembers) {
    const Json json = FromString(R"({"s":"text","chars":[111,107],"n":5,"bad":[300]})");
    std::string out = "unchanged";
    EXPECT_TRUE(json.TryGetMember<std::string>("s", out));
    EXPECT_EQ(out, "text");
    EXPECT_TRUE(json.TryGetMember<std::string>("chars", out));
    EXPECT_EQ(out, "ok");
    out = "unchanged";
    EXPECT_FALSE(json.TryGetMember<std::string>("n", out));
    EXPECT_FALSE(json.TryGetMember<std::string>("bad", out));
    EXPECT_FALSE(json.TryGetMember<std::string>("missing", out));
    EXPECT_FALSE(Json().TryGetMember<std::string>("s", out));
    EXPECT_EQ(out, "unchanged");
    EXPECT_TRUE(Throws<std::runtime_error>([&] { FromString("[]").TryGetMember<std::string>("s", out); }, "incompatible type"));
}

TEST(JsonBuild, CreatesChildrenOrRefuses) {
    Json root;
    CreateObjectChild(root, "list", Type::Array);
    CreateArrayChild(root["list"], std::string("x"));
    CreateArrayChild(root["list"], Type::Object)["k"] = false;
    CreateObjectChild(root, "n", std::int64_t{-5});
    CreateObjectChild(root, "u", std::uint64_t{5});
    CreateObjectChild(root, "d", 2.5);
    EXPECT_EQ(ToStringA(root), R"({"d":2.5,"list":["x",{"k":false}],"n":-5,"u":5})");
    EXPECT_TRUE(ParentsAreConsistent(root));

    EXPECT_TRUE(Throws<std::runtime_error>([&] { CreateObjectChild(root, "n", true); }, "Json key exists"));
    EXPECT_TRUE(Throws<std::runtime_error>([&] { CreateArrayChild(root, true); }, "incompatible type"));
    EXPECT_TRUE(Throws<std::runtime_error>([&] { CreateObjectChild(root["list"], "k", true); }, "incompatible type"));
    EXPECT_TRUE(Throws<std::invalid_argument>([&] { CreateObjectChild(root, std::nullopt, true); }, "key"));
    EXPECT_EQ(ToStringA(root), R"({"d":2.5,"list":["x",{"k":false}],"n":-5,"u":5})");
}

TEST(JsonEquality, ComparesTypeAndValueButNotParents) {
    EXPECT_FALSE(Json(std::int64_t{5}) == Json(std::uint64_t{5}));
    EXPECT_FALSE(Json(5.0) == Json(std::uint64_t{5}));
    EXPECT_FALSE(FromString("[1,2]") == FromString("[1]"));
    EXPECT_FALSE(FromString(R"({"a":1})") == FromString(R"({"b":1})"));
    EXPECT_FALSE(FromString(R"({"a":[1]})") == FromString(R"({"a":[2]})"));
    EXPECT_TRUE(Object() == Object());
    EXPECT_FALSE(Object() == Array());
    const Json json = FromString(Sample);
    EXPECT_EQ(json["a"], FromString(R"({"b":[10,{"c":"x"}]})"));  // a member against a root
}

}  // namespace
