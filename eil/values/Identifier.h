// A key of a Values container: a borrowed name and the 64-bit id computed from it.
//
// The id hash is part of the key format the host shares with us, so it is computed the same
// way on every platform (see Hash); ids of literal keys can be computed at compile time.
#pragma once

#include <cstdint>
#include <new>
#include <string>
#include <string_view>
#include <system_error>

#include "eil/object/ObjectImpl.h"
#include "eil/values/StringValue.h"
#include "host/IIdentifier.h"
#include "host/ObjectPtr.h"
#include "host/ResultCode.h"

namespace KALVO::EIL::Values {

class Identifier final : public IIdentifier {
public:
    // `name` is not copied: it must outlive the identifier. A null name has id 0.
    constexpr explicit Identifier(char const* name) noexcept
        : m_name(name), m_id(name ? Hash(std::string_view(name)) : 0) {}

    // For keys whose id is already known (computed ahead of time, or received from the host).
    constexpr Identifier(char const* name, std::uint64_t id) noexcept : m_name(name), m_id(id) {}

    constexpr char const* Name() const override { return m_name; }
    constexpr std::uint64_t Id() const override { return m_id; }

    // FNV-1a with offset basis 0 over the bytes up to the first NUL. Each byte is sign-extended
    // to 64 bits before the XOR, whatever the signedness of char here (unsigned on arm64
    // Linux), because the host hashes that way; basis and extension are part of the format.
    static constexpr std::uint64_t Hash(std::string_view name) noexcept {
        std::uint64_t hash = 0;
        for (const char byte : name) {
            if (byte == '\0') break;
            const auto extended = static_cast<std::int64_t>(static_cast<signed char>(byte));
            hash = (hash ^ static_cast<std::uint64_t>(extended)) * 0x100000001b3ULL;
        }
        return hash;
    }

    // Stores a copy of `text` as a string value under `id` in `values` and returns the
    // container's result code (as a number in std::errc, not a std::errc constant): 22 when
    // `values` is null, 12 when memory runs out. Never throws. Holds a reference to the
    // container for the duration of the call.
    template <class Container>
    static std::errc Set(const Identifier& id, Container* values, const std::string& text) {
        if (!values) return static_cast<std::errc>(Result::InvalidArgument);
        const Agent::Hosting::ObjectPtr<Container> hold(values);
        try {
            const Agent::Hosting::ObjectPtr<IValue> value = Object::ObjectImpl<StringValue<std::string>>::Make(text);
            return static_cast<std::errc>(values->Set(id, value));
        } catch (const std::bad_alloc&) {
            return static_cast<std::errc>(Result::OutOfMemory);
        } catch (...) {
            return static_cast<std::errc>(Result::ProtocolError);
        }
    }

private:
    char const* m_name;
    std::uint64_t m_id;
};

}  // namespace KALVO::EIL::Values
