// A key of an IValues container: a name and a 64-bit id computed from it.
#pragma once

#include <cstdint>

namespace KALVO::EIL::Values {

// A plain interface: no reference count, no lookup; passed by reference for one call.
class IIdentifier {
public:
    // Slot 0. The key's name; may be null.
    virtual char const* Name() const = 0;
    // Slot 1. The key's id; containers order and find entries by it alone.
    virtual std::uint64_t Id() const = 0;

protected:
    ~IIdentifier() = default;
};

}  // namespace KALVO::EIL::Values
