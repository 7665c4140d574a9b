#include "configuration/Configuration.h"

#include <cstring>
#include <stdexcept>

#include "eil/object/ThrowIfFailed.h"
#include "host/ObjectPtr.h"
#include "host/ResultCode.h"

namespace KALVO::Configuration {

namespace RJ = EIL::RJ;
using Agent::Hosting::ObjectPtr;

namespace {

constexpr char const* NullConfiguration = "The IConfiguration pointer may not be nullptr";
constexpr char const* InvalidSchema = "The schema of the data is not valid and cannot be used";
constexpr char const* Unresolved = "The specified key cannot be resolved";

// RapidJSON's default flags plus the iterative parser, which keeps the parser's own stack
// depth constant; everything observable stays as with the defaults.
constexpr unsigned ParseFlags = RJ::kParseDefaultFlags | RJ::kParseIterativeFlag;

// Forwards the reader's events to the document being built and stops the parse as soon as
// containers nest deeper than MaxNestingDepth, before such a tree exists.
class NestingLimitedHandler {
public:
    explicit NestingLimitedHandler(JsonDocument& target) noexcept : m_target(target) {}

    bool Null() { return m_target.Null(); }
    bool Bool(bool b) { return m_target.Bool(b); }
    bool Int(int i) { return m_target.Int(i); }
    bool Uint(unsigned u) { return m_target.Uint(u); }
    bool Int64(std::int64_t i) { return m_target.Int64(i); }
    bool Uint64(std::uint64_t u) { return m_target.Uint64(u); }
    bool Double(double d) { return m_target.Double(d); }
    bool RawNumber(const char* text, RJ::SizeType length, bool copy) { return m_target.RawNumber(text, length, copy); }
    bool String(const char* text, RJ::SizeType length, bool copy) { return m_target.String(text, length, copy); }
    bool Key(const char* text, RJ::SizeType length, bool copy) { return m_target.Key(text, length, copy); }
    bool StartObject() { return Enter() && m_target.StartObject(); }
    bool EndObject(RJ::SizeType members) { return Leave() && m_target.EndObject(members); }
    bool StartArray() { return Enter() && m_target.StartArray(); }
    bool EndArray(RJ::SizeType elements) { return Leave() && m_target.EndArray(elements); }

private:
    bool Enter() noexcept { return ++m_depth <= MaxNestingDepth; }
    bool Leave() noexcept {
        --m_depth;
        return true;
    }

    JsonDocument& m_target;
    std::size_t m_depth = 0;
};

// Parses `length` bytes of UTF-8 at `text`, a leading byte-order mark skipped; null when the
// text is not JSON or nests too deeply.
std::unique_ptr<JsonDocument> Parse(char const* text, std::size_t length) {
    static constexpr char ByteOrderMark[] = "\xEF\xBB\xBF";
    if (length >= 3 && std::memcmp(text, ByteOrderMark, 3) == 0) {
        text += 3;
        length -= 3;
    }
    auto document = std::make_unique<JsonDocument>();
    RJ::MemoryStream stream(text, length);
    RJ::Reader reader;
    bool parsed = false;
    auto generate = [&](JsonDocument& target) {
        NestingLimitedHandler handler(target);
        parsed = !reader.Parse<ParseFlags>(stream, handler).IsError();
        return parsed;
    };
    document->Populate(generate);
    if (!parsed) return nullptr;
    return document;
}

ObjectPtr<IConfiguration> LookupConfiguration(Agent::Hosting::IObject* host) {
    ObjectPtr<IConfiguration> config;
    if (!host) return config;
    EIL::Object::ThrowIfFailed(Agent::Hosting::QueryInterface(host, config));
    return config;
}

}  // namespace

const JsonNode* JsonValue(const JsonNode* value) {
    if (!value) throw std::runtime_error(Unresolved);
    return value;
}

// The temporary holding the interface lives until the delegated constructor has finished
// or thrown, so the reference is released on both paths.
Configuration::Configuration(Agent::Hosting::IObject* host) : Configuration(LookupConfiguration(host).Get()) {}

Configuration::Configuration(std::nullptr_t) { throw std::invalid_argument(NullConfiguration); }

Configuration::Configuration(IConfiguration* config) {
    if (!config) throw std::invalid_argument(NullConfiguration);

    char const* text = nullptr;
    std::uint64_t length = 0;
    const Result::Code code = config->GetData(text, length);
    // Whatever text the host handed out goes back to it when this leaves scope, however that
    // happens; shared_ptr calls the deleter even when its own allocation fails.
    std::shared_ptr<const char> held;
    if (text) held = std::shared_ptr<const char>(text, [config](char const* data) { config->ReleaseData(data); });
    if (code != Result::Success || !text) {
        throw std::runtime_error("The requested data could not be determined (" + std::to_string(code) + ")");
    }

    m_document = Parse(held.get(), static_cast<std::size_t>(length));
    if (!m_document) throw std::runtime_error(InvalidSchema);
}

Configuration::~Configuration() = default;

const JsonNode* Configuration::Data(const std::string& key) const {
    const RJ::Pointer pointer(key.data(), key.size());
    if (!pointer.IsValid()) return nullptr;
    return pointer.Get(*m_document);
}

bool Configuration::Exists(const std::string& key) const { return Data(key) != nullptr; }

const JsonNode& Configuration::Resolve(const std::string& key) const { return *JsonValue(Data(key)); }

template <class Test>
const JsonNode& Configuration::ResolveAs(const std::string& key, Test test, char const* message) const {
    const JsonNode& value = Resolve(key);
    if (!(value.*test)()) throw std::runtime_error(message);
    return value;
}

bool Configuration::IsNull(const std::string& key) const { return Resolve(key).IsNull(); }
bool Configuration::IsObject(const std::string& key) const { return Resolve(key).IsObject(); }
bool Configuration::IsBool(const std::string& key) const { return Resolve(key).IsBool(); }
bool Configuration::IsInt32(const std::string& key) const { return Resolve(key).IsInt(); }
bool Configuration::IsUInt32(const std::string& key) const { return Resolve(key).IsUint(); }
bool Configuration::IsInt64(const std::string& key) const { return Resolve(key).IsInt64(); }
bool Configuration::IsUInt64(const std::string& key) const { return Resolve(key).IsUint64(); }
bool Configuration::IsDouble(const std::string& key) const { return Resolve(key).IsDouble(); }
bool Configuration::IsString(const std::string& key) const { return Resolve(key).IsString(); }

// The article "an" before every type name is what callers have always seen; kept as it is.
bool Configuration::GetBool(const std::string& key) const {
    return ResolveAs(key, &JsonNode::IsBool, "The key does not refer to an bool").GetBool();
}

std::int32_t Configuration::GetInt32(const std::string& key) const {
    return ResolveAs(key, &JsonNode::IsInt, "The key does not refer to an int32_t").GetInt();
}

std::uint32_t Configuration::GetUInt32(const std::string& key) const {
    return ResolveAs(key, &JsonNode::IsUint, "The key does not refer to an uint32_t").GetUint();
}

std::int64_t Configuration::GetInt64(const std::string& key) const {
    return ResolveAs(key, &JsonNode::IsInt64, "The key does not refer to an int64_t").GetInt64();
}

std::uint64_t Configuration::GetUInt64(const std::string& key) const {
    return ResolveAs(key, &JsonNode::IsUint64, "The key does not refer to an uint64_t").GetUint64();
}

double Configuration::GetDouble(const std::string& key) const {
    return ResolveAs(key, &JsonNode::IsDouble, "The key does not refer to an double").GetDouble();
}

std::string Configuration::GetString(const std::string& key) const {
    const JsonNode& value = ResolveAs(key, &JsonNode::IsString, "The key does not refer to an string");
    return std::string(value.GetString(), value.GetStringLength());
}

std::string Configuration::GetObject(const std::string& key) const {
    const JsonNode& value = ResolveAs(key, &JsonNode::IsObject, "The key does not refer to an object");
    RJ::StringBuffer buffer;
    RJ::Writer<RJ::StringBuffer> writer(buffer);
    value.Accept(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

std::vector<std::string> Configuration::GetMembers(const std::string& key) const {
    const JsonNode& value = ResolveAs(key, &JsonNode::IsObject, "The key does not refer to an object");
    std::vector<std::string> names;
    names.reserve(value.MemberCount());
    for (auto member = value.MemberBegin(); member != value.MemberEnd(); ++member) {
        names.emplace_back(member->name.GetString(), member->name.GetStringLength());
    }
    return names;
}

bool Configuration::HasMember(const std::string& key, const std::string& name) const {
    if (!Resolve(key).IsObject()) return false;
    return Data(key + "/" + name) != nullptr;
}

std::string Configuration::GetRevision() const noexcept {
    try {
        return GetString("/$revision");
    } catch (...) {
        return {};
    }
}

std::uint32_t Configuration::GetVersion() const noexcept {
    try {
        return GetUInt32("/$version");
    } catch (...) {
        return 0;
    }
}

}  // namespace KALVO::Configuration
