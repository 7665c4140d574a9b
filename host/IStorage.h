// The host's persistent key-value store, asked of the host object. Values are bytes, kept
// across restarts, under a key within a scope.
#pragma once

#include <cstdint>

#include "host/IObject.h"

namespace KALVO::Storage {

class IStorage : public Agent::Hosting::IObject {
public:
    static constexpr Agent::Hosting::InterfaceId Id = 0xdfbec9d42a547f09;  // asked of the host object

    virtual void Reserved3() = 0;  // slots 3 to 5: not part of this contract
    virtual void Reserved4() = 0;
    virtual void Reserved5() = 0;
    // Slot 6. Reads the value of `key` in `scope`. /*in,out*/ `size`: the buffer's capacity in,
    // the value's length out. 0 success; 12 buffer too small; 22 no such key; 89 store failed.
    // A null buffer with size 0 asks for the length only.
    virtual Result::Code GetValue(char const* scope, char const* key, void* buffer, std::uint64_t& size) = 0;
    virtual void Reserved7() = 0;  // slot 7: not part of this contract
    // Slot 8. Writes `size` bytes at `data` as the value of `key` in `scope`; 0 on success.
    virtual Result::Code SetValue(char const* scope, char const* key, void const* data, std::uint64_t size) = 0;

protected:
    ~IStorage() = default;
};

}  // namespace KALVO::Storage
