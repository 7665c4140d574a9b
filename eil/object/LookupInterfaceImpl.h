// LookupInterfaceImpl<T>: generates GetInterface for the interfaces a class declares.
//
// T lists its interfaces as `using Interfaces = InterfaceList<IFoo, IBar>;` (IObject is always
// answered). A class whose answers are not "itself as that interface" (an object value hands
// out the container it wraps) defines instead a member
// `Result::Code LookupInterface(InterfaceId, IObject*&)`, and that is used.
#pragma once

#include <utility>

#include "host/IObject.h"
#include "host/ResultCode.h"

namespace KALVO::EIL::Object {

template <class... I>
struct InterfaceList {};

namespace Detail {

template <class T>
concept HasCustomLookup = requires(T& t, Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
    { t.LookupInterface(id, out) } -> std::same_as<Result::Code>;
};

template <class I, class Self>
bool Match(Self* self, Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& found) {
    if (id != I::Id) return false;
    found = static_cast<I*>(self);
    return true;
}

template <class Self, class First, class... Rest>
Result::Code Lookup(Self* self, Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out,
                    InterfaceList<First, Rest...>) {
    Agent::Hosting::IObject* found = nullptr;
    // IObject is answered through the first interface's base, so the answer is unambiguous
    // for classes that implement several IObject-derived interfaces.
    if (id == Agent::Hosting::IObject::Id) {
        found = static_cast<First*>(self);
    } else {
        (void)(Match<First>(self, id, found) || ... || Match<Rest>(self, id, found));
    }
    if (!found) return Result::ProtocolNotSupported;
    found->AddRef();
    out = found;
    return Result::Success;
}

}  // namespace Detail

template <class T>
class LookupInterfaceImpl : public T {
public:
    using T::T;

    Result::Code GetInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) override {
        if constexpr (Detail::HasCustomLookup<T>) {
            return T::LookupInterface(id, out);
        } else {
            return Detail::Lookup(static_cast<T*>(this), id, out, typename T::Interfaces{});
        }
    }
};

}  // namespace KALVO::EIL::Object
