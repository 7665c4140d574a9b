// The host's service directory, asked of the host object.
#pragma once

#include "host/IObject.h"

namespace KALVO::Agent::Hosting {

class IServiceProvider : public IObject {
public:
    static constexpr InterfaceId Id = 0x19f93da5da7c7b5b;  // asked of the host object

    virtual void Reserved3() = 0;  // slot 3: not part of this contract
    virtual void Reserved4() = 0;  // slot 4: not part of this contract
    // Slot 5. Any thread. Stores the service in /*out*/ `out` with one new reference that the
    // caller releases; the same conventions as GetInterface.
    virtual Result::Code GetService(ServiceId id, IObject*& out) = 0;

protected:
    ~IServiceProvider() = default;
};

// Asks `provider` for service I (I::ServiceId). On success `out` owns the new reference; a
// success without an object is answered 100, as by QueryInterface.
template <class I, class Ptr>
Result::Code QueryService(IServiceProvider* provider, Ptr& out) noexcept {
    IObject* raw = nullptr;
    const Result::Code code = provider->GetService(I::ServiceId, raw);
    if (code != Result::Success) return code;
    if (raw == nullptr) return Result::ProtocolError;
    out = Ptr::Adopt(static_cast<I*>(raw));
    return code;
}

}  // namespace KALVO::Agent::Hosting
