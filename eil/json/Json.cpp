#include "eil/json/Json.h"

#include <climits>
#include <cmath>
#include <cwchar>
#include <iterator>
#include <limits>

#include "eil/json/IterativeHandler.h"
#include "eil/json/RapidJson.h"
#include "eil/string/Convert.h"
#include "eil/string/Search.h"
#include "eil/string/Trim.h"

namespace KALVO::EIL::Json {

namespace {

[[noreturn]] void IncompatibleType() { throw std::runtime_error("incompatible type"); }
[[noreturn]] void PositionNotFound() { throw std::runtime_error("position not found"); }
[[noreturn]] void BadIndex() { throw std::out_of_range("index"); }
[[noreturn]] void BadPath() { throw std::invalid_argument("path"); }

// Splits the first token off `path` (which starts with "/") and leaves the rest, with its
// leading slash, in `path`.
std::string TakeToken(std::string_view& path) {
    if (!String::StrBeginsWith(path, "/")) BadPath();
    path.remove_prefix(1);
    const auto end = path.find('/');
    const auto token = path.substr(0, end);
    path = end == path.npos ? std::string_view() : path.substr(end);
    return String::StrReplaceAll(String::StrReplaceAll(token, "~1", "/"), "~0", "~");
}

std::string EscapeToken(std::string_view name) {
    return String::StrReplaceAll(String::StrReplaceAll(name, "~", "~0"), "/", "~1");
}

}  // namespace

Json::Json(ObjectType members) : m_value(std::in_place_type<ObjectType>, std::move(members)) { FixChildParents(); }

Json::Json(ArrayType elements) : m_value(std::in_place_type<ArrayType>, std::move(elements)) { FixChildParents(); }

Json::Json(Type type) {
    switch (type) {
    case Type::Null: break;
    case Type::Object: m_value.emplace<ObjectType>(); break;
    case Type::Array: m_value.emplace<ArrayType>(); break;
    case Type::Bool: m_value.emplace<bool>(false); break;
    case Type::Int64: m_value.emplace<std::int64_t>(0); break;
    case Type::UInt64: m_value.emplace<std::uint64_t>(0); break;
    case Type::Double: m_value.emplace<double>(0.0); break;
    case Type::String: m_value.emplace<std::string>(); break;
    default: throw std::invalid_argument("type");
    }
}

Json::Json(EmptyCopyTag, const Json& other) {
    switch (other.GetType()) {
    case Type::Object: m_value.emplace<ObjectType>(); break;
    case Type::Array: m_value.emplace<ArrayType>(); break;
    default: m_value = other.m_value; break;  // a scalar: nothing below it to copy
    }
}

Json::Json(const Json& other) : Json(EmptyCopyTag{}, other) { CopyChildrenFrom(other); }

Json::Json(Json&& other) noexcept : m_value(std::move(other.m_value)) { FixChildParents(); }

Json::~Json() {
    if (HasChildren()) DestroyChildren();
}

bool Json::HasChildren() const noexcept {
    if (const auto* members = std::get_if<ObjectType>(&m_value)) return !members->empty();
    if (const auto* elements = std::get_if<ArrayType>(&m_value)) return !elements->empty();
    return false;
}

// Level by level with an explicit list of the containers still to fill, so the depth of the
// tree never reaches the machine stack. Each target is filled completely before any of its
// children, and arrays are reserved first: the addresses kept in `pending` stay valid.
void Json::CopyChildrenFrom(const Json& other) {
    if (!other.HasChildren()) return;
    std::vector<std::pair<const Json*, Json*>> pending{{&other, this}};
    while (!pending.empty()) {
        const auto [source, target] = pending.back();
        pending.pop_back();
        if (const auto* elements = std::get_if<ArrayType>(&source->m_value)) {
            auto& copies = std::get<ArrayType>(target->m_value);
            copies.reserve(elements->size());
            for (const Json& element : *elements) {
                Json& copy = copies.emplace_back(Json(EmptyCopyTag{}, element));
                copy.m_parent = target;
                if (element.HasChildren()) pending.emplace_back(&element, &copy);
            }
        } else {
            auto& copies = std::get<ObjectType>(target->m_value);
            for (const auto& [name, member] : std::get<ObjectType>(source->m_value)) {
                Json& copy = copies.emplace_hint(copies.end(), name, Json(EmptyCopyTag{}, member))->second;
                copy.m_parent = target;
                if (member.HasChildren()) pending.emplace_back(&member, &copy);
            }
        }
    }
}

// Takes the tree apart from the bottom without recursion and without allocating: go down
// through the last child while it has children of its own, remove childless last children,
// and climb back through the parent links (re-pointed on the way down, so they hold even if
// someone broke them). Every node removed this way has no children left to destroy.
void Json::DestroyChildren() noexcept {
    Json* node = this;
    while (true) {
        if (auto* elements = std::get_if<ArrayType>(&node->m_value); elements != nullptr && !elements->empty()) {
            Json& last = elements->back();
            if (last.HasChildren()) {
                last.m_parent = node;
                node = &last;
            } else {
                elements->pop_back();
            }
            continue;
        }
        if (auto* members = std::get_if<ObjectType>(&node->m_value); members != nullptr && !members->empty()) {
            const auto last = std::prev(members->end());
            if (last->second.HasChildren()) {
                last->second.m_parent = node;
                node = &last->second;
            } else {
                members->erase(last);
            }
            continue;
        }
        if (node == this) return;
        node = node->m_parent;
    }
}

void Json::FixChildParents() noexcept {
    if (auto* members = std::get_if<ObjectType>(&m_value)) {
        for (auto& member : *members) member.second.m_parent = this;
    } else if (auto* elements = std::get_if<ArrayType>(&m_value)) {
        for (auto& element : *elements) element.m_parent = this;
    }
}

Json& Json::operator=(const Json& other) {
    if (this != &other) {
        Json copy(other);  // first, so that `other` may live inside this node's value
        m_value = std::move(copy.m_value);
        FixChildParents();
    }
    return *this;
}

Json& Json::operator=(Json&& other) {
    if (this == &other) return *this;
    // Only a node with children can be an ancestor; the common case of a leaf costs no walk.
    for (const Json* ancestor = other.HasChildren() ? m_parent : nullptr; ancestor != nullptr;
         ancestor = ancestor->m_parent) {
        // Moving an ancestor's value into its own descendant would make the node contain itself.
        if (ancestor == &other) return *this = static_cast<const Json&>(other);
    }
    // Taken out first: `other` may be a descendant, destroyed with the old value.
    ValueType taken = std::move(other.m_value);
    m_value = std::move(taken);
    FixChildParents();
    return *this;
}

Json& Json::operator[](std::string_view key) {
    if (IsNull()) m_value.emplace<ObjectType>();
    auto* members = std::get_if<ObjectType>(&m_value);
    if (members == nullptr) IncompatibleType();
    auto at = members->lower_bound(key);
    if (at == members->end() || at->first != key) {
        at = members->emplace_hint(at, std::string(key), Json());
        at->second.m_parent = this;
    }
    return at->second;
}

const Json& Json::operator[](std::string_view key) const {
    if (const auto* members = std::get_if<ObjectType>(&m_value)) {
        const auto at = members->find(key);
        if (at == members->end()) throw std::out_of_range(std::string(key));
        return at->second;
    }
    if (IsNull()) throw std::out_of_range(std::string(key));
    IncompatibleType();
}

Json& Json::operator[](unsigned long index) {
    const auto* members = std::get_if<ObjectType>(&m_value);
    if (IsNull() || (members != nullptr && members->empty())) {
        if (index != 0) BadIndex();  // checked first so that a failure changes nothing
        m_value.emplace<ArrayType>();
    }
    auto* elements = std::get_if<ArrayType>(&m_value);
    if (elements == nullptr) IncompatibleType();
    if (index < elements->size()) return (*elements)[index];
    if (index > elements->size()) BadIndex();
    const Json* storage = elements->data();
    elements->emplace_back();
    if (elements->data() != storage) {
        FixChildParents();  // the array moved to new storage
    } else {
        elements->back().m_parent = this;
    }
    return elements->back();
}

const Json& Json::operator[](unsigned long index) const {
    if (const auto* elements = std::get_if<ArrayType>(&m_value)) {
        if (index >= elements->size()) BadIndex();
        return (*elements)[index];
    }
    if (IsNull()) BadIndex();
    IncompatibleType();
}

const Json* Json::FindMember(std::string_view key) const noexcept {
    const auto* members = std::get_if<ObjectType>(&m_value);
    if (members == nullptr) return nullptr;
    const auto at = members->find(key);
    return at == members->end() ? nullptr : &at->second;
}

// A loop rather than one call per token: a hostile path may hold any number of them.
Json& Json::Find(std::string_view path) {
    Json* node = this;
    while (!path.empty()) {
        const std::string token = TakeToken(path);
        if (node->IsObject()) {
            node = &(*node)[token];
        } else if (node->IsArray()) {
            node = &(*node)[token == "-" ? node->Get<ArrayType>().size() : std::stoul(token)];
        } else {
            BadPath();
        }
    }
    return *node;
}

const Json& Json::Find(std::string_view path) const {
    const Json* node = this;
    while (!path.empty()) {
        const std::string token = TakeToken(path);
        if (node->IsObject()) {
            node = &(*node)[std::string_view(token)];
        } else if (node->IsArray()) {
            if (token == "-") BadIndex();
            node = &(*node)[std::stoul(token)];
        } else {
            BadPath();
        }
    }
    return *node;
}

Json& Json::Find(std::wstring_view path) { return Find(String::v1::ToUtf8(path)); }

const Json& Json::Find(std::wstring_view path) const { return Find(String::v1::ToUtf8(path)); }

std::string Json::GetName() const {
    if (m_parent != nullptr) {
        if (const auto* members = std::get_if<ObjectType>(&m_parent->m_value)) {
            for (const auto& [name, member] : *members) {
                if (&member == this) return name;
            }
        }
    }
    PositionNotFound();
}

std::size_t Json::GetIndex() const {
    if (m_parent != nullptr) {
        if (const auto* elements = std::get_if<ArrayType>(&m_parent->m_value)) {
            // std::less: a total order even for pointers outside the array.
            const Json* first = elements->data();
            if (!std::less<const Json*>()(this, first) && std::less<const Json*>()(this, first + elements->size()))
                return static_cast<std::size_t>(this - first);
        }
    }
    PositionNotFound();
}

std::string Json::GetPath() const {
    if (m_parent == nullptr) return {};
    std::vector<std::string> components;  // from this node up
    for (const Json* node = this; node->m_parent != nullptr; node = node->m_parent) {
        switch (node->m_parent->GetType()) {
        case Type::Object:
            for (const auto& [name, member] : node->m_parent->Get<ObjectType>()) {
                if (&member == node) {
                    components.push_back(EscapeToken(name));
                    break;
                }
            }
            break;
        case Type::Array: try { components.push_back(std::to_string(node->GetIndex()));
            } catch (const std::runtime_error&) {
                // not found in its parent: no component for this level
            }
            break;
        default: return {};
        }
    }
    std::string path = "/";
    for (auto component = components.rbegin(); component != components.rend(); ++component) {
        if (component != components.rbegin()) path += '/';
        path += *component;
    }
    return path;
}

template <>
bool Json::TryGetMember<std::string>(std::string_view key, std::string& out) const {
    if (IsNull()) return false;
    const auto* members = std::get_if<ObjectType>(&m_value);
    if (members == nullptr) IncompatibleType();
    const auto at = members->find(key);
    if (at == members->end()) return false;
    try {
        std::string text = at->second;
        out = std::move(text);
        return true;
    } catch (...) {
        return false;
    }
}

// With an explicit list of the pairs still to compare, so the depth never reaches the stack.
bool Json::operator==(const Json& other) const {
    std::vector<std::pair<const Json*, const Json*>> pending{{this, &other}};
    while (!pending.empty()) {
        const auto [left, right] = pending.back();
        pending.pop_back();
        if (left->m_value.index() != right->m_value.index()) return false;
        switch (left->GetType()) {
        case Type::Null: break;
        case Type::Object: {
            const auto& a = left->Get<ObjectType>();
            const auto& b = right->Get<ObjectType>();
            if (a.size() != b.size()) return false;
            for (auto i = a.begin(), j = b.begin(); i != a.end(); ++i, ++j) {
                if (i->first != j->first) return false;
                pending.emplace_back(&i->second, &j->second);
            }
            break;
        }
        case Type::Array: {
            const auto& a = left->Get<ArrayType>();
            const auto& b = right->Get<ArrayType>();
            if (a.size() != b.size()) return false;
            for (std::size_t i = 0; i < a.size(); ++i) pending.emplace_back(&a[i], &b[i]);
            break;
        }
        case Type::Bool:
            if (left->Get<bool>() != right->Get<bool>()) return false;
            break;
        case Type::Int64:
            if (left->Get<std::int64_t>() != right->Get<std::int64_t>()) return false;
            break;
        case Type::UInt64:
            if (left->Get<std::uint64_t>() != right->Get<std::uint64_t>()) return false;
            break;
        case Type::Double:
            if (left->Get<double>() != right->Get<double>()) return false;
            break;
        case Type::String:
            if (left->Get<std::string>() != right->Get<std::string>()) return false;
            break;
        }
    }
    return true;
}

Json::operator std::string() const {
    if (const auto* text = std::get_if<std::string>(&m_value)) return *text;
    std::string text;
    if (TryStringAFromArray(text)) return text;
    IncompatibleType();
}

Json::operator char() const {
    if (const auto* value = std::get_if<std::uint64_t>(&m_value); value != nullptr && *value < 128)
        return static_cast<char>(*value);
    if (const auto* value = std::get_if<std::int64_t>(&m_value); value != nullptr && *value >= -128 && *value <= 127)
        return static_cast<char>(*value);
    IncompatibleType();
}

Json::operator wchar_t() const {
    if (const auto* value = std::get_if<std::uint64_t>(&m_value);
        value != nullptr && *value <= static_cast<std::uint64_t>(std::numeric_limits<wchar_t>::max()))
        return static_cast<wchar_t>(*value);
    if (const auto* value = std::get_if<std::int64_t>(&m_value); value != nullptr &&
                                                                 *value >= std::numeric_limits<wchar_t>::min() &&
                                                                 *value <= std::numeric_limits<wchar_t>::max())
        return static_cast<wchar_t>(*value);
    IncompatibleType();
}

bool Json::TryStringAFromArray(std::string& out) const {
    const auto* elements = std::get_if<ArrayType>(&m_value);
    if (elements == nullptr) return false;
    std::string text;
    text.reserve(elements->size());
    for (const Json& element : *elements) text += static_cast<char>(element);
    out = std::move(text);
    return true;
}

bool Json::TryStringWFromArray(std::wstring& out) const {
    const auto* elements = std::get_if<ArrayType>(&m_value);
    if (elements == nullptr) return false;
    std::wstring text;
    text.reserve(elements->size());
    for (const Json& element : *elements) text += static_cast<wchar_t>(element);
    out = std::move(text);
    return true;
}

Json Object() { return Json(Type::Object); }

Json Array() { return Json(Type::Array); }

namespace Detail {

Json& AddObjectChild(Json& parent, std::optional<std::string> key, Json value) {
    if (!key) throw std::invalid_argument("key");
    if (!parent.IsNull() && !parent.IsObject()) IncompatibleType();
    if (parent.FindMember(*key) != nullptr) throw std::runtime_error("Json key exists");
    Json& child = parent[*key];  // turns a null parent into an object
    child = std::move(value);
    return child;
}

Json& AddArrayChild(Json& parent, Json value) {
    if (!parent.IsNull() && !parent.IsArray()) IncompatibleType();
    const std::size_t size = parent.IsNull() ? 0 : parent.Get<Json::ArrayType>().size();
    Json& child = parent[size];  // turns a null parent into an array
    child = std::move(value);
    return child;
}

}  // namespace Detail

namespace {

// Sends the tree to a RapidJSON writer, depth-first with an explicit stack of open containers.
template <class Writer>
void WriteTree(const Json& root, Writer& writer) {
    struct Open {
        const Json* node;
        std::size_t next;                             // arrays: the next element
        Json::ObjectType::const_iterator nextMember;  // objects: the next member
    };
    std::vector<Open> open;
    bool written = true;
    const auto size = [](const std::string& text) {
        if (text.size() > std::numeric_limits<RJ::SizeType>::max())
            throw std::length_error("text too long for the writer");
        return static_cast<RJ::SizeType>(text.size());
    };
    // Writes a scalar, or starts a container and leaves it open.
    const auto start = [&](const Json& node) {
        switch (node.GetType()) {
        case Type::Null: written = writer.Null(); break;
        case Type::Object:
            written = writer.StartObject();
            open.push_back({&node, 0, node.Get<Json::ObjectType>().begin()});
            break;
        case Type::Array:
            written = writer.StartArray();
            open.push_back({&node, 0, {}});
            break;
        case Type::Bool: written = writer.Bool(node.Get<bool>()); break;
        case Type::Int64: written = writer.Int64(node.Get<std::int64_t>()); break;
        case Type::UInt64: written = writer.Uint64(node.Get<std::uint64_t>()); break;
        case Type::Double: {
            const double value = node.Get<double>();
            written = std::isfinite(value) ? writer.Double(value) : writer.Null();
            break;
        }
        case Type::String: {
            const auto& text = node.Get<std::string>();
            written = writer.String(text.data(), size(text));
            break;
        }
        }
    };
    start(root);
    while (written && !open.empty()) {
        Open& top = open.back();
        if (top.node->IsArray()) {
            const auto& elements = top.node->template Get<Json::ArrayType>();
            if (top.next < elements.size()) {
                start(elements[top.next++]);  // may grow `open`: `top` is not used after this
            } else {
                written = writer.EndArray();
                open.pop_back();
            }
        } else {
            if (top.nextMember != top.node->template Get<Json::ObjectType>().end()) {
                const auto member = top.nextMember++;
                written = writer.Key(member->first.data(), size(member->first));
                if (written) start(member->second);
            } else {
                written = writer.EndObject();
                open.pop_back();
            }
        }
    }
    // The narrow writers accept anything; the wide ones fail only on text that is not UTF-8.
    if (!written) throw std::range_error("bad conversion");
}

template <template <class, class, class, class, unsigned> class Writer>
std::string WriteNarrow(const Json& json) {
    RJ::StringBuffer buffer;
    Writer<RJ::StringBuffer, RJ::UTF8<>, RJ::UTF8<>, RJ::CrtAllocator, RJ::kWriteDefaultFlags> writer(buffer);
    WriteTree(json, writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

template <template <class, class, class, class, unsigned> class Writer>
std::wstring WriteWide(const Json& json) {
    using Utf16 = RJ::UTF16<char16_t>;
    using Buffer = RJ::GenericStringBuffer<Utf16>;
    Buffer buffer;
    Writer<Buffer, RJ::UTF8<>, Utf16, RJ::CrtAllocator, RJ::kWriteDefaultFlags> writer(buffer);
    WriteTree(json, writer);
    // wchar_t is 32-bit here: the UTF-16 the writer made is widened to UTF-32.
    return String::v1::ToWide(std::u16string_view(buffer.GetString(), buffer.GetSize() / sizeof(char16_t)));
}

}  // namespace

Json FromString(std::string_view text) {
    Json root;
    IterativeHandler handler(root);
    RJ::Reader reader;
    RJ::MemoryStream stream(text.data(), text.size());
    // Iterative: the reader keeps its own state on the heap, so no text can overflow the stack.
    // Not full precision: RapidJSON 1.1.0's full-precision path reads far outside its tables on
    // some underflowing numbers (1.080000000095e-337), and every text here is a host's.
    const RJ::ParseResult result = reader.Parse<RJ::kParseDefaultFlags | RJ::kParseIterativeFlag>(stream, handler);
    // The reader takes a zero character for the end of the text: anything after one is an error too.
    if (result.IsError() || stream.Tell() != text.size()) throw std::runtime_error("Failed to parse the json");
    return root;
}

Json FromString(std::wstring_view text) { return FromString(String::v1::ToUtf8(text)); }

std::string ToStringA(const Json& json) { return WriteNarrow<RJ::Writer>(json); }

std::string ToIndentedStringA(const Json& json) { return WriteNarrow<RJ::PrettyWriter>(json); }

std::wstring ToStringW(const Json& json) { return WriteWide<RJ::Writer>(json); }

std::wstring ToIndentedStringW(const Json& json) { return WriteWide<RJ::PrettyWriter>(json); }

}  // namespace KALVO::EIL::Json
