// Json::FromString over arbitrary bytes must either throw one of its documented exceptions or
// give a tree that survives the round trip: written compactly and indented, each text parses
// back to an equal tree, and a copy of the tree equals it. The reader reads numbers at its
// normal precision (its full-precision path crashes on some host texts), so a double may come
// back one unit in the last place off: for trees holding a double only the parse back is checked.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "eil/json/Json.h"

using KALVO::EIL::Json::Json;

namespace {

// A broken property prints what was expected and aborts, which libFuzzer reports as a crash
// and saves the input for.
void Check(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "property broken: %s\n", what);
    std::abort();
}

// Parsed trees are at most MaxParseDepth deep, so plain recursion is fine here.
bool HasDouble(const Json& node) {
    if (node.IsObject()) {
        const auto& members = node.Get<Json::ObjectType>();
        return std::any_of(members.begin(), members.end(), [](const auto& member) { return HasDouble(member.second); });
    }
    if (node.IsArray()) {
        const auto& elements = node.Get<Json::ArrayType>();
        return std::any_of(elements.begin(), elements.end(), HasDouble);
    }
    return node.IsDouble();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    Json tree;
    try {
        tree = KALVO::EIL::Json::FromString(text);
    } catch (const std::runtime_error&) {
        return 0;  // "Failed to parse the json" or "Json key exists"
    }
    const std::string compact = KALVO::EIL::Json::ToStringA(tree);
    const std::string indented = KALVO::EIL::Json::ToIndentedStringA(tree);
    Json fromCompact;
    Json fromIndented;
    try {
        fromCompact = KALVO::EIL::Json::FromString(compact);
        fromIndented = KALVO::EIL::Json::FromString(indented);
    } catch (const std::exception&) {
        Check(false, "a written tree parses back");
    }
    if (HasDouble(tree)) return 0;
    Check(fromCompact == tree, "the compact text parses back to an equal tree");
    Check(fromIndented == tree, "the indented text parses back to an equal tree");
    Check(KALVO::EIL::Json::ToStringA(fromCompact) == compact, "writing is stable");
    const Json copy = tree;
    Check(copy == tree, "a copy equals its original");
    return 0;
}
