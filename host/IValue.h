// One typed value of an IValues container. Immutable once made.
#pragma once

#include <cstdint>

#include "host/IObject.h"

namespace KALVO::EIL::Values {

// Type codes answered by IValue::Type.
enum class ValueType : std::uint32_t {
    Object = 1,   // a nested IValues container; ask the value for IValues to walk into it
    String = 2,   // UTF-8 bytes, no terminator
    UInt64 = 12,  // an unsigned 64-bit number in the machine's byte order
};

class IValue : public Agent::Hosting::IObject {
public:
    static constexpr Agent::Hosting::InterfaceId Id = 0xb76fca7ea41306d2;  // answered by every value

    // Slot 3. A ValueType number.
    virtual std::uint32_t Type() const = 0;
    // Slot 4. The size of the data in bytes (0 for an object value).
    virtual std::uint64_t GetSize() const = 0;
    // Slot 5. Copies min(size, bufferSize) bytes into `buffer` and stores the count in
    // /*out*/ `written` (when not null). Returns 55 when the buffer is larger than the data and
    // 0 when it is exactly as large or smaller (the copy is then truncated): kept so on purpose.
    // An object value copies nothing and returns 43 (78 when it holds no container).
    virtual Result::Code GetData(void* buffer, unsigned long long bufferSize, unsigned long long* written) const = 0;

protected:
    ~IValue() = default;
};

}  // namespace KALVO::EIL::Values
