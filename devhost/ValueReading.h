// Reading values received across the boundary, only through IValue/IValues and defensively:
// a value's size and answers are whatever its maker says. Shared by the snapshot and the
// renderer.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/IValue.h"
#include "host/IValues.h"
#include "host/ObjectPtr.h"

namespace KALVO::DevHost {

// Values larger than this are treated as unreadable rather than allocated.
inline constexpr std::uint64_t MaxValueBytes = 64ull << 20;

// The value's bytes (GetSize, then GetData answering 0 or 55), or nothing when it cannot be read.
std::optional<std::string> ReadBytes(const EIL::Values::IValue& value);

// A type-12 value's number (8 bytes in the machine's byte order), or nothing.
std::optional<std::uint64_t> ReadNumber(const EIL::Values::IValue& value);

// The container an object value (type 1) stands for, or null.
Agent::Hosting::ObjectPtr<EIL::Values::IValues> OpenContainer(EIL::Values::IValue& value);

// An entry's key as GetByIndex hands it out: a name (string key) or an id (number key).
struct EntryKey {
    std::optional<std::string> name;
    std::uint64_t id = 0;
};
std::optional<EntryKey> ReadKey(const EIL::Values::IValue* key);

// The entries of a container in index order, up to the first that cannot be fetched; those whose
// key cannot be read are left out. The value may be null.
struct Entry {
    EntryKey key;
    Agent::Hosting::ObjectPtr<EIL::Values::IValue> value;
};
std::vector<Entry> ReadEntries(EIL::Values::IValues& values);

}  // namespace KALVO::DevHost
