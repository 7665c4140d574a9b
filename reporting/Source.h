// Source: who reports an observation (a component's type name, its version and optional
// descriptive pairs), and its conversion into the container the host reads it from.
#pragma once

#include <map>
#include <string>

#include "eil/values/Values.h"
#include "host/ObjectPtr.h"

namespace KALVO::Reporting {

// A plain value: copyable and movable. Each observation receives a copy.
struct Source {
    // Cannot fail but by memory exhaustion, which ends the process.
    Source(std::string&& type, const std::string& componentVersion) noexcept;

    // A new container shaped as the host expects a reporter's description:
    //   "type" = "source_info", "source_type" = sourceType,
    //   "info" = a nested container holding the `info` pairs in key order and then
    //            "version" = version.
    // "version" lives inside "info", not at the top: hosts look for it there. An `info` pair
    // named "version" is therefore replaced by the version. Throws std::bad_alloc when a
    // container cannot be allocated.
    Agent::Hosting::ObjectPtr<EIL::Values::ValuesObject> ToValues() const;

    std::string sourceType;
    std::string version;
    std::map<std::string, std::string> info;
};

}  // namespace KALVO::Reporting
