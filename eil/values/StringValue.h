// A string value (type 2): the bytes of a text, without a terminator. Immutable once made, so
// it is shared across threads without a lock.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#include "eil/object/LookupInterfaceImpl.h"
#include "host/IValue.h"
#include "host/ResultCode.h"

namespace KALVO::EIL::Values {

// S is a contiguous string type (std::string in this program); its code units are copied out
// as raw bytes in the machine's byte order.
template <class S>
class StringValue : public IValue {
public:
    using Interfaces = Object::InterfaceList<IValue>;

    explicit StringValue(S text) noexcept(std::is_nothrow_move_constructible_v<S>) : m_text(std::move(text)) {}

    std::uint32_t Type() const override { return static_cast<std::uint32_t>(ValueType::String); }

    std::uint64_t GetSize() const override { return m_text.size() * sizeof(typename S::value_type); }

    // A buffer larger than the data answers 55 and an exact or short one 0 (the copy is then
    // truncated): the host relies on exactly these codes.
    Result::Code GetData(void* buffer, unsigned long long bufferSize, unsigned long long* written) const override {
        const std::uint64_t size = GetSize();
        const std::uint64_t count = std::min<std::uint64_t>(size, bufferSize);
        if (count != 0) std::memcpy(buffer, m_text.data(), count);
        if (written) *written = count;
        return size < bufferSize ? Result::NoBufferSpace : Result::Success;
    }

    const S& Text() const noexcept { return m_text; }

protected:
    ~StringValue() = default;

private:
    const S m_text;
};

}  // namespace KALVO::EIL::Values
