// TrackedObject<T>: the final class of every object the stand-in host makes. Like the
// plug-in's ObjectImpl it generates AddRef, Release and GetInterface, and it also enters the
// object in the host's ObjectLedger so references can be accounted for.
//
// Every tracked object also answers IHostObject, a private interface by which the host
// recognises its own objects among those a plug-in hands back (HostRef, HostObjectCast).
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "devhost/ObjectLedger.h"
#include "eil/object/LookupInterfaceImpl.h"
#include "host/IObject.h"
#include "host/ObjectPtr.h"
#include "host/ResultCode.h"

namespace KALVO::DevHost {

// Answered only by this host's own objects; never part of the contract with a plug-in.
class IHostObject : public Agent::Hosting::IObject {
public:
    static constexpr Agent::Hosting::InterfaceId Id = 0x5d3c0f7a4b96e21d;  // private to the stand-in host

    // Slot 3. The object's counts.
    virtual ObjectTracking& Tracking() = 0;
    // Slot 4. The implementing object (a T of TrackedObject<T>), for HostObjectCast.
    virtual void* Implementation() = 0;

protected:
    ~IHostObject() = default;
};

// T is the implementation: it derives from the interfaces it answers, names them with
// `using Interfaces = EIL::Object::InterfaceList<...>` or defines a custom LookupInterface, and
// names its kind with `static constexpr char const* Kind` (used in reports and HostObjectCast).
template <class T>
class TrackedObject final : public EIL::Object::LookupInterfaceImpl<T>, public IHostObject {
public:
    template <class... Args>
    explicit TrackedObject(std::shared_ptr<ObjectLedger> ledger, Args&&... args)
        : EIL::Object::LookupInterfaceImpl<T>(std::forward<Args>(args)...), m_ledger(std::move(ledger)) {
        m_tracking.kind = T::Kind;
        m_ledger->Register(&m_tracking);
    }

    ~TrackedObject() { m_ledger->Unregister(&m_tracking); }

    TrackedObject(const TrackedObject&) = delete;  // objects are shared by reference, never copied
    TrackedObject& operator=(const TrackedObject&) = delete;

    // acq_rel on both: a reference handed to another thread must see the object fully built,
    // and the thread that frees it must see every other holder's last writes.
    std::uint64_t AddRef() override { return m_tracking.references.fetch_add(1, std::memory_order_acq_rel) + 1; }

    std::uint64_t Release() override {
        const std::uint64_t count = m_tracking.references.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (count == 0) delete this;
        return count;
    }

    Result::Code GetInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) override {
        if (id == IHostObject::Id) {
            AddRef();
            out = static_cast<IHostObject*>(this);
            return Result::Success;
        }
        return EIL::Object::LookupInterfaceImpl<T>::GetInterface(id, out);
    }

    ObjectTracking& Tracking() override { return m_tracking; }
    void* Implementation() override { return static_cast<T*>(this); }

    // Makes an object whose first reference belongs to the returned pointer. Throws what T's
    // constructor throws, or std::bad_alloc.
    template <class... Args>
    static Agent::Hosting::ObjectPtr<TrackedObject> Make(std::shared_ptr<ObjectLedger> ledger, Args&&... args) {
        return Agent::Hosting::ObjectPtr<TrackedObject>::Adopt(
            new TrackedObject(std::move(ledger), std::forward<Args>(args)...));
    }

private:
    // Shared: an object the plug-in leaks may outlive its host.
    std::shared_ptr<ObjectLedger> m_ledger;
    ObjectTracking m_tracking;
};

// The lookup of an object that answers only IObject besides the private host interface (its
// interface has no identifier of its own), for a T's LookupInterface.
template <class I>
Result::Code AnswerObjectOnly(I* self, Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) noexcept {
    if (id != Agent::Hosting::IObject::Id) return Result::ProtocolNotSupported;
    Agent::Hosting::IObject* object = self;
    object->AddRef();
    out = object;
    return Result::Success;
}

// The IHostObject view of `object` when it is one of the stand-in host's objects, else null.
// Borrowed: valid while the caller holds `object`.
inline IHostObject* AsHostObject(Agent::Hosting::IObject* object) noexcept {
    if (!object) return nullptr;
    Agent::Hosting::IObject* raw = nullptr;
    if (object->GetInterface(IHostObject::Id, raw) != Result::Success || !raw) return nullptr;
    auto* host = static_cast<IHostObject*>(raw);
    host->Release();  // the caller's reference keeps it alive
    return host;
}

// `object` as the host implementation T when it is one (its kind is T::Kind), else null.
// Borrowed: valid while the caller holds `object`.
template <class T>
T* HostObjectCast(Agent::Hosting::IObject* object) noexcept {
    IHostObject* host = AsHostObject(object);
    if (!host || std::string_view(host->Tracking().kind) != std::string_view(T::Kind)) return nullptr;
    return static_cast<T*>(host->Implementation());
}

}  // namespace KALVO::DevHost
