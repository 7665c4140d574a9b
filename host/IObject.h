// The root of every interface exchanged between the host and a plug-in.
//
// Lifetime is an intrusive, atomic reference count; capabilities are found at run time by
// asking an object for an interface by its fixed 64-bit identifier. The slot order below is
// the binary contract between separately built modules and never changes.
#pragma once

#include <cstdint>

#include "host/ResultCode.h"

namespace KALVO::Agent::Hosting {

// A fixed 64-bit constant naming an interface; never derived from names at run time.
using InterfaceId = std::uint64_t;
// A fixed 64-bit constant naming a service, passed to IServiceProvider::GetService.
using ServiceId = std::uint64_t;

class IObject {
public:
    static constexpr InterfaceId Id = 0x74804c16a3638891;  // answered by every object

    // Slot 0. Any thread. Adds one reference; returns the new count.
    virtual std::uint64_t AddRef() = 0;
    // Slot 1. Any thread. Drops one reference and destroys the object when the count reaches 0;
    // returns the new count. The caller must not touch the object after a result of 0.
    virtual std::uint64_t Release() = 0;
    // Slot 2. Any thread. On success stores the requested interface in /*out*/ `out` with one new
    // reference that the caller releases, and returns 0. An unknown id returns 43 and leaves
    // `out` and the count untouched.
    virtual Result::Code GetInterface(InterfaceId id, IObject*& out) = 0;

protected:
    ~IObject() = default;  // lifetime goes through Release, never through delete
};

}  // namespace KALVO::Agent::Hosting
