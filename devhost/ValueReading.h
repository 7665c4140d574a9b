// Reading values received across the boundary, only through IValue/IValues and defensively:
// a value's size and answers are whatever its maker says. The renderer reads them to show a
// report; SnapshotValues copies them into host-made containers when an event is reported, so
// recorded events never depend on objects of a plug-in that may be unloaded later.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "eil/values/Identifier.h"
#include "eil/values/MakeValue.h"

namespace KALVO::DevHost {

// Values larger than this are treated as unreadable rather than allocated.
inline constexpr std::uint64_t MaxValueBytes = 64ull << 20;

// Nesting deeper than this is cut off, so a container that contains itself cannot make the
// host recurse without bound.
inline constexpr std::size_t MaxValuesDepth = 32;

// The value's bytes (GetSize, then GetData answering 0 or 55), or nothing when it cannot be read.
inline std::optional<std::string> ReadBytes(const EIL::Values::IValue& value) {
    const std::uint64_t size = value.GetSize();
    if (size > MaxValueBytes) return std::nullopt;
    std::string bytes(static_cast<std::size_t>(size), '\0');
    unsigned long long written = 0;
    const Result::Code code = value.GetData(bytes.data(), bytes.size(), &written);
    if ((code != Result::Success && code != Result::NoBufferSpace) || written > bytes.size()) return std::nullopt;
    bytes.resize(static_cast<std::size_t>(written));
    return bytes;
}

// A type-12 value's number (8 bytes in the machine's byte order), or nothing.
inline std::optional<std::uint64_t> ReadNumber(const EIL::Values::IValue& value) {
    if (value.Type() != static_cast<std::uint32_t>(EIL::Values::ValueType::UInt64)) return std::nullopt;
    const std::optional<std::string> bytes = ReadBytes(value);
    if (!bytes || bytes->size() != sizeof(std::uint64_t)) return std::nullopt;
    std::uint64_t number = 0;
    std::memcpy(&number, bytes->data(), sizeof number);
    return number;
}

// The container an object value (type 1) stands for, or null.
inline Agent::Hosting::ObjectPtr<EIL::Values::IValues> OpenContainer(EIL::Values::IValue& value) {
    Agent::Hosting::ObjectPtr<EIL::Values::IValues> container;
    if (value.Type() == static_cast<std::uint32_t>(EIL::Values::ValueType::Object)) Agent::Hosting::QueryInterface(&value, container);
    return container;
}

// The entries of a container in index order, up to the first that cannot be fetched; those
// whose key (a name for a string key, an id for a number key) cannot be read are left out.
// The value may be null.
struct Entry {
    std::optional<std::string> name;
    std::uint64_t id = 0;
    Agent::Hosting::ObjectPtr<EIL::Values::IValue> value;
};
inline std::vector<Entry> ReadEntries(EIL::Values::IValues& values) {
    std::vector<Entry> entries;
    const std::uint64_t count = values.Count();
    for (std::uint64_t index = 0; index < count; ++index) {
        Agent::Hosting::ObjectPtr<EIL::Values::IValue> value;
        Agent::Hosting::ObjectPtr<EIL::Values::IValue> key;
        if (values.GetByIndex(static_cast<unsigned long>(index), value, &key) != Result::Success) break;
        if (!key) continue;
        if (key->Type() == static_cast<std::uint32_t>(EIL::Values::ValueType::String)) {
            if (std::optional<std::string> name = ReadBytes(*key)) entries.push_back(Entry{std::move(name), 0, std::move(value)});
        } else if (const std::optional<std::uint64_t> id = ReadNumber(*key)) {
            entries.push_back(Entry{std::nullopt, *id, std::move(value)});
        }
    }
    return entries;
}

// A copy of a value of any type but object: its type code and its bytes, answered with the
// same GetData codes as the program's strings.
class BytesValue : public EIL::Values::StringValue<std::string> {
public:
    BytesValue(std::uint32_t type, std::string bytes) : StringValue(std::move(bytes)), m_type(type) {}

    std::uint32_t Type() const override { return m_type; }

protected:
    ~BytesValue() = default;

private:
    const std::uint32_t m_type;
};

// A deep copy of `values`: the same keys (names, or ids for unnamed keys) and values; values
// keep their type codes and bytes, nested containers are copied in turn (past MaxValuesDepth
// as empty ones), entries that cannot be read are left out. `depth` is how deep `values`
// itself lies. Throws std::bad_alloc.
inline Agent::Hosting::ObjectPtr<EIL::Values::ValuesObject> SnapshotValues(EIL::Values::IValues& values, std::size_t depth = 0) {
    using namespace EIL::Values;
    Agent::Hosting::ObjectPtr<ValuesObject> copy = MakeValues();
    for (const Entry& entry : ReadEntries(values)) {
        Agent::Hosting::ObjectPtr<IValue> copied;
        if (entry.value && entry.value->Type() == static_cast<std::uint32_t>(ValueType::Object)) {
            const Agent::Hosting::ObjectPtr<IValues> inner = OpenContainer(*entry.value);
            copied = MakeObjectValue(!inner                         ? nullptr
                                     : depth + 1 < MaxValuesDepth ? SnapshotValues(*inner, depth + 1)
                                                                  : MakeValues());
        } else if (entry.value) {
            std::optional<std::string> bytes = ReadBytes(*entry.value);
            if (!bytes) continue;
            copied = EIL::Object::ObjectImpl<BytesValue>::Make(entry.value->Type(), std::move(*bytes));
        }
        const Result::Code code = entry.name ? copy->Set(Identifier(entry.name->c_str()), copied) : copy->Set(Identifier("", entry.id), copied);
        if (code == Result::OutOfMemory) throw std::bad_alloc();
    }
    return copy;
}

}  // namespace KALVO::DevHost
