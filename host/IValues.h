// A keyed container of IValue items: how structured data (event sources, tags, observables,
// process records) crosses the host boundary. Entries are ordered by key id.
#pragma once

#include <cstdint>

#include "host/IIdentifier.h"
#include "host/IObject.h"
#include "host/IValue.h"
#include "host/ObjectPtr.h"

namespace KALVO::EIL::Values {

class IValues : public Agent::Hosting::IObject {
public:
    static constexpr Agent::Hosting::InterfaceId Id = 0xc5fbb630cc544393;  // containers; host process records

    // Slot 3. Finds the entry with key.Id(): 0 and /*out*/ `out` referenced, or 2 with `out` untouched.
    virtual Result::Code Get(IIdentifier const& key, Agent::Hosting::ObjectPtr<IValue>& out) const = 0;
    // Slot 4. Inserts, or replaces the value of the entry with that id (its first name is kept).
    // 0; 12 when memory runs out; 100 on any other failure.
    virtual Result::Code Set(IIdentifier const& key, Agent::Hosting::ObjectPtr<IValue> const& value) = 0;
    // Slot 5. Erases the entry with key.Id(): 0, or 2 when absent.
    virtual Result::Code Remove(IIdentifier const& key) = 0;
    // Slot 6. Erases every entry; 0.
    virtual Result::Code Clear() = 0;
    // Slot 7. The number of entries.
    virtual std::uint64_t Count() const = 0;
    // Slot 8. The index-th entry in id order: 0, or 34 past the end. When `key` is not null it
    // receives the entry's name as a string value, or its id as a number (type 12) when the
    // name is empty.
    virtual Result::Code GetByIndex(unsigned long index, Agent::Hosting::ObjectPtr<IValue>& value,
                                    Agent::Hosting::ObjectPtr<IValue>* key) const = 0;

protected:
    ~IValues() = default;
};

// Answered only by object values: another request for the container they wrap.
inline constexpr Agent::Hosting::InterfaceId WrappedValuesId = 0x0b079c6174f0ef9f;

}  // namespace KALVO::EIL::Values
