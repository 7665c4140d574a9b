// Reading values received across the boundary, only through IValue/IValues and defensively:
// a value's size and answers are whatever its maker says. The renderer reads them to show a
// report; SnapshotValues copies them into host-made containers when an event is reported, so
// recorded events never depend on objects of a plug-in that may be unloaded later.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "eil/values/Values.h"
#include "host/IValue.h"

namespace KALVO::DevHost {

// Values larger than this are treated as unreadable rather than allocated.
inline constexpr std::uint64_t MaxValueBytes = 64ull << 20;

// Nesting deeper than this is cut off, so a container that contains itself cannot make the
// host recurse without bound.
inline constexpr std::size_t MaxValuesDepth = 32;

// The value's bytes (GetSize, then GetData answering 0 or 55), or nothing when it cannot be read.
std::optional<std::string> ReadBytes(const EIL::Values::IValue& value);

// A type-12 value's number (8 bytes in the machine's byte order), or nothing.
std::optional<std::uint64_t> ReadNumber(const EIL::Values::IValue& value);

// The container an object value (type 1) stands for, or null.
Agent::Hosting::ObjectPtr<EIL::Values::IValues> OpenContainer(EIL::Values::IValue& value);

// The entries of a container in index order, up to the first that cannot be fetched; those
// whose key (a name for a string key, an id for a number key) cannot be read are left out.
// The value may be null.
struct Entry {
    std::optional<std::string> name;
    std::uint64_t id = 0;
    Agent::Hosting::ObjectPtr<EIL::Values::IValue> value;
};
std::vector<Entry> ReadEntries(EIL::Values::IValues& values);

// A deep copy of `values`: the same keys (names, or ids for unnamed keys) and values; values
// keep their type codes and bytes, nested containers are copied in turn (past MaxValuesDepth
// as empty ones), entries that cannot be read are left out. Throws std::bad_alloc.
Agent::Hosting::ObjectPtr<EIL::Values::ValuesObject> SnapshotValues(EIL::Values::IValues& values);

}  // namespace KALVO::DevHost
