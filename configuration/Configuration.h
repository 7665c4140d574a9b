// Configuration: typed, read-only access to the configuration the host holds for this plug-in.
//
// The host hands the configuration out as one JSON text; it is parsed once, at construction,
// into a document owned here, and every query resolves a JSON Pointer (RFC 6901) key against
// it. A change on the host's side is seen only by a new Configuration.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "eil/json/RapidJson.h"
#include "host/IConfiguration.h"
#include "host/IObject.h"

namespace KALVO::Configuration {

using JsonDocument = EIL::RJ::Document;
using JsonNode = EIL::RJ::Value;

// The deepest nesting of arrays and objects accepted (the root container counts as 1). Deeper
// texts are refused as invalid: serialising a tree (GetObject) recurses once per level, and
// the host calls us on threads with 512 KiB of stack.
inline constexpr std::size_t MaxNestingDepth = 512;

// Returns `value` when it is not null; otherwise throws std::runtime_error with
// "The specified key cannot be resolved". The check every getter applies to Data().
const JsonNode* JsonValue(const JsonNode* value);

// Immutable after construction: concurrent const queries need no lock.
//
// Failures are exceptions with fixed texts the callers log as they stand:
//   std::invalid_argument "The IConfiguration pointer may not be nullptr";
//   std::system_error with the host's code (generic category) when the host lacks IConfiguration;
//   std::runtime_error "The requested data could not be determined (<code>)",
//   "The schema of the data is not valid and cannot be used" (not JSON, or nested deeper than
//   MaxNestingDepth), "The specified key cannot be resolved", "The key does not refer to an <type>".
class Configuration {
public:
    // Asks `host` for IConfiguration and parses its text; the interface is released before
    // returning, also when parsing throws. A null host fails as the null IConfiguration does.
    explicit Configuration(Agent::Hosting::IObject* host);
    // Borrows `config` for the call. Its text is given back through ReleaseData before the
    // constructor returns, on every path; nothing of the host is kept.
    explicit Configuration(IConfiguration* config);
    explicit Configuration(std::nullptr_t);

    virtual ~Configuration();

    Configuration(const Configuration&) = delete;  // owns a document; not needed
    Configuration& operator=(const Configuration&) = delete;

    // The value at `key` or null: an unparsable pointer, a missing member, an index out of range
    // or a step through a scalar all yield null. Both the plain ("/a/0") and the URI-fragment
    // ("#/a/0") forms are accepted; the empty key is the root. Never throws for a missing key.
    const JsonNode* Data(const std::string& key) const;
    bool Exists(const std::string& key) const;

    // Type tests; these throw when `key` does not resolve. Integers that fit several widths
    // pass each test they fit (5 is Int32, UInt32, Int64 and UInt64, not Double); Double means
    // written with a fraction or exponent, or beyond the 64-bit integer range.
    bool IsNull(const std::string& key) const;
    bool IsObject(const std::string& key) const;
    bool IsBool(const std::string& key) const;
    bool IsInt32(const std::string& key) const;
    bool IsUInt32(const std::string& key) const;
    bool IsInt64(const std::string& key) const;
    bool IsUInt64(const std::string& key) const;
    bool IsDouble(const std::string& key) const;
    bool IsString(const std::string& key) const;

    // Getters require the matching type test.
    bool GetBool(const std::string& key) const;
    std::int32_t GetInt32(const std::string& key) const;
    std::uint32_t GetUInt32(const std::string& key) const;
    std::int64_t GetInt64(const std::string& key) const;
    std::uint64_t GetUInt64(const std::string& key) const;
    double GetDouble(const std::string& key) const;
    // A copy by length: embedded zero bytes are kept.
    std::string GetString(const std::string& key) const;
    // The object at `key` as compact JSON text ("{}" for an empty object).
    std::string GetObject(const std::string& key) const;
    // The names of the object's members in document order.
    std::vector<std::string> GetMembers(const std::string& key) const;

    // Whether the object at `key` has a value at `key` + "/" + `name`. `name` is appended
    // unescaped, so a name with a slash looks up a nested path; this is relied on. False when
    // `key` holds anything but an object; throws when `key` does not resolve.
    bool HasMember(const std::string& key, const std::string& name) const;

    // The string at "/$revision", or empty on any failure.
    std::string GetRevision() const noexcept;
    // The unsigned 32-bit number at "/$version", or 0 on any failure.
    std::uint32_t GetVersion() const noexcept;

private:
    // Data(key) or the "cannot be resolved" failure.
    const JsonNode& Resolve(const std::string& key) const;
    // Resolve(key), then the type test `test`, or `message` as the failure.
    template <class Test>
    const JsonNode& ResolveAs(const std::string& key, Test test, char const* message) const;

    std::unique_ptr<JsonDocument> m_document;
};

}  // namespace KALVO::Configuration
