// Json: the foundation library's in-memory JSON tree. Each node holds one value (null, object,
// array, bool, signed or unsigned 64-bit integer, double or UTF-8 string) and knows its parent,
// so a node can tell its name, index and path. RapidJSON only tokenises and writes; the tree,
// its paths and its conversions live here.
//
// Texts come from the host and are hostile; see FromString for the nesting limit that keeps
// every operation on a parsed tree within a 512 KiB thread stack.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace KALVO::EIL::Json {

// The type number of a node: the index of its alternative in Json::ValueType.
enum class Type : std::size_t {
    Null = 0,
    Object = 1,
    Array = 2,
    Bool = 3,
    Int64 = 4,
    UInt64 = 5,
    Double = 6,
    String = 7
};

// Deepest nesting of objects and arrays FromString accepts. Deeper texts are refused, so that
// nothing done with a parsed tree can exhaust a host thread's stack; 512 is far beyond any
// document the sensor exchanges.
inline constexpr std::size_t MaxParseDepth = 512;

// One node of the tree.
//
// Parent invariant: every direct child's parent points to its container. Copies and moves
// make a new root (parent null) whose children point to it; assignment keeps the target's
// parent. Every operation here that adds, copies or moves nodes restores the invariant, which
// is why the containers are only ever handed out const.
//
// Copying, comparing, writing and destroying walk the tree with explicit stacks, so they are
// safe at any depth, also for trees built by hand.
//
// Not thread-safe: a tree may be read from several threads only while nobody changes it.
class Json {
public:
    // Members sorted by name (byte order); lookups by string view need no copy.
    using ObjectType = std::map<std::string, Json, std::less<>>;
    using ArrayType = std::vector<Json>;
    // The alternatives in the order of Type.
    using ValueType =
        std::variant<std::monostate, ObjectType, ArrayType, bool, std::int64_t, std::uint64_t, double, std::string>;

    Json() noexcept = default;
    Json(std::nullptr_t) noexcept {}
    Json(bool value) noexcept : m_value(value) {}
    // Signed C++ integers are kept as signed 64-bit, unsigned ones as unsigned 64-bit. Note
    // that FromString stores every non-negative integer as unsigned, so 5 built here and "5"
    // read back are different values for operator==.
    template <class T>
    requires(std::is_integral_v<T> && !std::is_same_v<T, bool>) Json(T value)
    noexcept {
        if constexpr (std::is_signed_v<T>) {
            m_value.emplace<std::int64_t>(value);
        } else {
            m_value.emplace<std::uint64_t>(value);
        }
    }
    Json(double value) noexcept : m_value(value) {}
    Json(std::string value) noexcept : m_value(std::move(value)) {}
    Json(std::string_view value) : m_value(std::string(value)) {}
    // A null pointer gives the empty string. (Without this overload a literal would become a bool.)
    Json(const char* value) : Json(std::string_view(value != nullptr ? value : "")) {}
    // Any other pointer would silently become a bool.
    Json(const void*) = delete;
    Json(ObjectType members);
    Json(ArrayType elements);
    // An empty value of the given type: {}, [], false, 0, 0.0 or "".
    explicit Json(Type type);

    Json(const Json& other);
    Json(Json&& other) noexcept;
    ~Json();

    // Replace the value and keep this node's parent. Assigning a node's own descendant is
    // allowed; moving from an ancestor copies it instead (so only that case can throw).
    Json& operator=(const Json& other);
    Json& operator=(Json&& other);

    Type GetType() const noexcept { return static_cast<Type>(m_value.index()); }
    bool IsNull() const noexcept { return GetType() == Type::Null; }
    bool IsObject() const noexcept { return GetType() == Type::Object; }
    bool IsArray() const noexcept { return GetType() == Type::Array; }
    bool IsBool() const noexcept { return GetType() == Type::Bool; }
    bool IsInt64() const noexcept { return GetType() == Type::Int64; }
    bool IsUInt64() const noexcept { return GetType() == Type::UInt64; }
    bool IsDouble() const noexcept { return GetType() == Type::Double; }
    bool IsString() const noexcept { return GetType() == Type::String; }

    const ValueType& GetValue() const noexcept { return m_value; }
    // The value as one alternative of ValueType; another alternative throws std::runtime_error
    // "incompatible type".
    template <class T>
    const T& Get() const {
        if (const T* value = std::get_if<T>(&m_value)) return *value;
        throw std::runtime_error("incompatible type");
    }

    // Null for a root.
    const Json* GetParent() const noexcept { return m_parent; }
    Json* GetParent() noexcept { return m_parent; }

    // The member `key` of an object. Null turns into an empty object first; a missing member
    // is inserted as null. Other types throw std::runtime_error "incompatible type".
    Json& operator[](std::string_view key);
    // The member `key`; a missing member (or a null node) throws std::out_of_range whose
    // message is the key; types other than object and null throw "incompatible type".
    const Json& operator[](std::string_view key) const;
    // Element `index` of an array. Null, and deliberately also an empty object, turn into an
    // empty array first; other types throw "incompatible type". An index equal to the size
    // appends a null element; a larger one throws std::out_of_range "index".
    Json& operator[](unsigned long index);
    // Element `index`; out of range (or a null node) throws std::out_of_range "index"; types
    // other than array and null throw "incompatible type".
    const Json& operator[](unsigned long index) const;

    // The member `key` of an object, or null when this is not an object or has no such member.
    const Json* FindMember(std::string_view key) const noexcept;

    // The node at `path` below this one: "" is this node; otherwise "/" followed by tokens
    // separated by "/", in which "~1" stands for "/" and "~0" for "~". A token selects an
    // object member or an array index (decimal); "-" is the position after the last element.
    // A path not starting with "/", or a step into anything but an object or array (null
    // included), throws std::invalid_argument "path"; an index that is not a number throws
    // what std::stoul throws.
    // This form creates a missing member as null (operator[]) and appends a null element for
    // "-" or for the index equal to the size; what it created before a failure stays.
    Json& Find(std::string_view path);
    Json& Find(std::wstring_view path);
    // This form throws instead: std::out_of_range with the missing key or "index".
    const Json& Find(std::string_view path) const;
    const Json& Find(std::wstring_view path) const;

    // The member name of this node in its parent object, or its position in its parent array;
    // std::runtime_error "position not found" when it has no such parent.
    std::string GetName() const;
    std::size_t GetIndex() const;
    // The path from the root to this node, in the form Find takes; empty for a root, and
    // empty when some ancestor's parent holds neither an object nor an array.
    std::string GetPath() const;

    // Reads the member `key` as text: false for a null node, a missing member, or a member
    // that does not convert (see operator std::string); throws "incompatible type" for a node
    // that is neither null nor an object. Only std::string is provided.
    template <class T>
    bool TryGetMember(std::string_view key, T& out) const;

    // Equal values (same alternative, equal content, recursively); parents are not compared.
    bool operator==(const Json& other) const;

    // A string node's text, or the text spelled by an array of character codes (see operator
    // char); anything else throws std::runtime_error "incompatible type".
    operator std::string() const;
    // An integer node as one character: an unsigned value below 128, or a signed value from
    // -128 to 127 (wchar_t: any value wchar_t can hold); anything else throws "incompatible type".
    explicit operator char() const;
    explicit operator wchar_t() const;
    // False unless this is an array; otherwise the elements converted one by one as above
    // (whose exceptions pass through) and true.
    bool TryStringAFromArray(std::string& out) const;
    bool TryStringWFromArray(std::wstring& out) const;

    // Always true, whatever the node holds: a fixed answer that callers rely on.
    bool Validate() const noexcept { return true; }

    // Points the direct children back at this node; needed after this node moved in memory.
    void FixChildParents() noexcept;

private:
    struct EmptyCopyTag {};
    // A copy of `other` holding no children: containers come out empty.
    Json(EmptyCopyTag, const Json& other);
    void CopyChildrenFrom(const Json& other);
    bool HasChildren() const noexcept;
    void DestroyChildren() noexcept;

    Json* m_parent = nullptr;
    ValueType m_value;
};

template <>
bool Json::TryGetMember<std::string>(std::string_view key, std::string& out) const;

// A root holding an empty object or array.
Json Object();
Json Array();

// Adds the member `key` holding `value` (Type::Object or Type::Array as value: an empty
// container) to `parent` and returns it. A null parent becomes an empty object first.
// Throws std::runtime_error "Json key exists" for an existing key, "incompatible type" when
// `parent` is neither null nor an object, and std::invalid_argument "key" without a key.
template <class T>
Json& CreateObjectChild(Json& parent, std::optional<std::string> key, T&& value);

// Appends `value` to `parent` and returns the new element; a null parent becomes an empty
// array first, other types than array throw "incompatible type".
template <class T>
Json& CreateArrayChild(Json& parent, T&& value);

namespace Detail {
Json& AddObjectChild(Json& parent, std::optional<std::string> key, Json value);
Json& AddArrayChild(Json& parent, Json value);
}  // namespace Detail

template <class T>
Json& CreateObjectChild(Json& parent, std::optional<std::string> key, T&& value) {
    return Detail::AddObjectChild(parent, std::move(key), Json(std::forward<T>(value)));
}

template <class T>
Json& CreateArrayChild(Json& parent, T&& value) {
    return Detail::AddArrayChild(parent, Json(std::forward<T>(value)));
}

// Parses UTF-8 JSON text (no copy of it is made). Any reader error (syntax, anything but
// whitespace after the root value, empty text, nesting deeper than MaxParseDepth) throws
// std::runtime_error "Failed to parse the json"; a duplicate member name throws "Json key
// exists". Non-negative integers become unsigned, negative ones signed, the rest doubles.
Json FromString(std::string_view text);
// The same after converting wide (UTF-32) text to UTF-8, whose std::range_error "bad
// conversion" passes through.
Json FromString(std::wstring_view text);

// Compact and indented (four spaces) JSON text, members in name order. A NaN or infinite
// double is written as null, since JSON cannot spell it. The wide forms write UTF-16 and widen
// it; a string that is not valid UTF-8 makes them throw std::range_error "bad conversion".
std::string ToStringA(const Json& json);
std::string ToIndentedStringA(const Json& json);
std::wstring ToStringW(const Json& json);
std::wstring ToIndentedStringW(const Json& json);

}  // namespace KALVO::EIL::Json
