// Copies a container received across the boundary into host-made containers, walking it only
// through IValues/IValue as a host must. Used when an event is reported, so recorded events
// never depend on objects of a plug-in that may be unloaded later.
#pragma once

#include <cstddef>

#include "eil/values/Values.h"
#include "host/IValues.h"
#include "host/ObjectPtr.h"

namespace KALVO::DevHost {

// Nesting deeper than this is cut off (the deeper container is copied empty), so a container
// that contains itself cannot make the host recurse without bound.
inline constexpr std::size_t MaxValuesDepth = 32;

// A deep copy of `values`: the same keys (names, or ids for unnamed keys) and values; strings
// and numbers keep their type codes and bytes, nested containers are copied in turn, entries
// that cannot be read are left out. Throws std::bad_alloc.
Agent::Hosting::ObjectPtr<EIL::Values::ValuesObject> SnapshotValues(EIL::Values::IValues& values);

}  // namespace KALVO::DevHost
