// IterativeHandler: receives RapidJSON's SAX events and builds a Json tree from them. It keeps
// only the node being filled and a pending member name, walking back up through parent links,
// so together with the reader's iterative mode no nesting of the text costs machine stack.
// It refuses nesting deeper than MaxParseDepth by stopping the reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "eil/json/Json.h"
#include "eil/json/RapidJson.h"

namespace KALVO::EIL::Json {

class IterativeHandler {
public:
    // Fills `root`, which must be null, and must outlive the handler.
    explicit IterativeHandler(Json& root) noexcept : m_current(&root) {}

    // The RapidJSON handler concept. Returning false stops the reader with an error; member
    // name clashes throw "Json key exists" out of the reader.
    bool Null() { return Add(Json()); }
    bool Bool(bool value) { return Add(Json(value)); }
    bool Int(int value) { return Integer(value); }
    bool Uint(unsigned value) { return Add(Json(std::uint64_t{value})); }
    bool Int64(std::int64_t value) { return Integer(value); }
    bool Uint64(std::uint64_t value) { return Add(Json(value)); }
    bool Double(double value) { return Add(Json(value)); }
    bool RawNumber(const char*, RJ::SizeType, bool) { return false; }  // only with kParseNumbersAsStringsFlag
    bool String(const char* text, RJ::SizeType length, bool) { return Add(Json(std::string(text, length))); }
    bool Key(const char* text, RJ::SizeType length, bool) {
        m_name.emplace(text, length);
        return true;
    }
    bool StartObject() { return Open(Type::Object); }
    bool EndObject(RJ::SizeType) { return Close(); }
    bool StartArray() { return Open(Type::Array); }
    bool EndArray(RJ::SizeType) { return Close(); }

private:
    // Non-negative integers are stored unsigned whatever width the reader reports them in.
    bool Integer(std::int64_t value) {
        return value >= 0 ? Add(Json(static_cast<std::uint64_t>(value))) : Add(Json(value));
    }
    bool Add(Json value);
    bool Open(Type container);
    bool Close() noexcept;

    Json* m_current;
    std::optional<std::string> m_name;
    std::size_t m_depth = 0;
};

}  // namespace KALVO::EIL::Json
