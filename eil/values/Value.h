// A number value: an integer and the type code it is reported under (the program only uses
// 12, an unsigned 64-bit number). Immutable once made, so shared across threads without a lock.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "eil/object/LookupInterfaceImpl.h"
#include "host/IValue.h"
#include "host/ResultCode.h"

namespace KALVO::EIL::Values {

template <class N>
class Value : public IValue {
    static_assert(std::is_trivially_copyable_v<N>, "the number is copied out as raw bytes");

public:
    using Interfaces = Object::InterfaceList<IValue>;

    constexpr Value(N number, std::uint32_t type) noexcept : m_number(number), m_type(type) {}
    constexpr Value(N number, ValueType type) noexcept : Value(number, static_cast<std::uint32_t>(type)) {}

    std::uint32_t Type() const override { return m_type; }

    std::uint64_t GetSize() const override { return sizeof(N); }

    // Same codes as a string value: 55 for a larger buffer, 0 for an exact or short one.
    // The bytes are copied in the machine's byte order.
    Result::Code GetData(void* buffer, unsigned long long bufferSize, unsigned long long* written) const override {
        const std::uint64_t count = std::min<std::uint64_t>(sizeof(N), bufferSize);
        if (count != 0) std::memcpy(buffer, &m_number, count);
        if (written) *written = count;
        return sizeof(N) < bufferSize ? Result::NoBufferSpace : Result::Success;
    }

    N Number() const noexcept { return m_number; }

protected:
    ~Value() = default;

private:
    const N m_number;
    const std::uint32_t m_type;
};

}  // namespace KALVO::EIL::Values
