// The stand-in host's reference accounting. Every object the host makes is a TrackedObject,
// entered in the host's ObjectLedger; every reference the host itself holds on one is a HostRef.
// What is left over is held by someone else, normally the plug-in, so a test can assert that
// the plug-in gave back everything it took (Host::OutstandingReferences() == 0).
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

#include "eil/object/LookupInterfaceImpl.h"
#include "host/ObjectPtr.h"

namespace KALVO::DevHost {

// The counts of one host object, and the base by which the host recognises its own objects
// among those a plug-in hands back (by dynamic_cast: a plug-in's objects are of its own
// classes). `references` is the object's reference count itself; `hostReferences` how many of
// them the host holds through HostRef.
struct HostObject {
    char const* kind = "";
    // acq_rel on the count for the same reasons as any reference count (see ObjectImpl);
    // hostReferences is only ever read for accounting, so relaxed.
    std::atomic<std::uint64_t> references{1};
    std::atomic<std::uint64_t> hostReferences{0};
    // The object's neighbours in its ledger, guarded by the ledger's mutex.
    HostObject* previous = nullptr;
    HostObject* next = nullptr;
};

// The register of one host's live objects. Shared by every object of the host: an object the
// plug-in leaks may outlive its host. A list through the objects themselves, so that making an
// object (a process for each event) allocates nothing more.
class ObjectLedger {
public:
    ObjectLedger() = default;
    ObjectLedger(const ObjectLedger&) = delete;
    ObjectLedger& operator=(const ObjectLedger&) = delete;

    void Enter(HostObject& object) {
        std::lock_guard lock(m_mutex);
        object.previous = &m_head;
        object.next = m_head.next;
        if (m_head.next) m_head.next->previous = &object;
        m_head.next = &object;
    }

    void Leave(HostObject& object) {
        std::lock_guard lock(m_mutex);
        object.previous->next = object.next;
        if (object.next) object.next->previous = object.previous;
    }

    // Calls `visit` with each live object, under the ledger's lock (so `visit` must not make or
    // free host objects).
    template <class Visit>
    void ForEach(Visit visit) const {
        std::lock_guard lock(m_mutex);
        for (const HostObject* object = m_head.next; object; object = object->next) visit(*object);
    }

private:
    mutable std::mutex m_mutex;  // guards the list
    HostObject m_head;           // not an object: the list starts at its next
};

// TrackedObject<T>: the final class of every object the stand-in host makes. Like the
// plug-in's ObjectImpl it generates AddRef, Release and GetInterface, and it enters the object
// in the host's ledger. T derives from the interfaces it answers, names them with
// `using Interfaces = EIL::Object::InterfaceList<...>` or defines a LookupInterface (ObjectOnly),
// and names its kind with `static constexpr char const* Kind` (used in reports). T needs no
// protected destructor: it is abstract (AddRef and Release come from here), so it is never
// made or deleted on its own, and the interfaces' own destructors are protected. Objects are
// shared by reference, never copied (HostObject's atomics forbid it).
template <class T>
class TrackedObject final : public EIL::Object::LookupInterfaceImpl<T>, public HostObject {
public:
    template <class... Args>
    explicit TrackedObject(std::shared_ptr<ObjectLedger> ledger, Args&&... args)
        : EIL::Object::LookupInterfaceImpl<T>(std::forward<Args>(args)...), m_ledger(std::move(ledger)) {
        kind = T::Kind;
        m_ledger->Enter(*this);
    }

    ~TrackedObject() { m_ledger->Leave(*this); }

    // acq_rel on both: a reference handed to another thread must see the object fully built,
    // and the thread that frees it must see every other holder's last writes.
    std::uint64_t AddRef() override { return references.fetch_add(1, std::memory_order_acq_rel) + 1; }

    std::uint64_t Release() override {
        const std::uint64_t count = references.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (count == 0) delete this;
        return count;
    }

    // Makes an object whose first reference belongs to the returned pointer. Throws what T's
    // constructor throws, or std::bad_alloc.
    template <class... Args>
    static Agent::Hosting::ObjectPtr<TrackedObject> Make(std::shared_ptr<ObjectLedger> ledger, Args&&... args) {
        return Agent::Hosting::ObjectPtr<TrackedObject>::Adopt(
            new TrackedObject(std::move(ledger), std::forward<Args>(args)...));
    }

private:
    std::shared_ptr<ObjectLedger> m_ledger;
};

// The base of an implementation whose interface I has no identifier of its own (it is found as
// a service, or handed over as an argument): it answers IObject only.
template <class I>
class ObjectOnly : public I {
public:
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
        if (id != Agent::Hosting::IObject::Id) return Result::ProtocolNotSupported;
        Agent::Hosting::IObject* object = this;
        object->AddRef();
        out = object;
        return Result::Success;
    }
};

// HostRef<T>: a reference the stand-in host itself holds. Works like ObjectPtr, and when the
// object is one of the host's own it counts itself as the host's, so that the ledger counts
// only what others hold. Objects of anyone else (a plug-in's value containers) are held as they are.
template <class T>
class HostRef {
public:
    HostRef() noexcept = default;

    // Takes over the reference `object` owns.
    explicit HostRef(Agent::Hosting::ObjectPtr<T> object) noexcept
        : m_object(std::move(object)), m_tracking(dynamic_cast<HostObject*>(m_object.Get())) {
        if (m_tracking) m_tracking->hostReferences.fetch_add(1, std::memory_order_relaxed);
    }

    // Shares `object`: adds a reference of its own.
    static HostRef Share(T* object) noexcept { return HostRef(Agent::Hosting::ObjectPtr<T>(object)); }

    // A copy counts where the original does, without asking the object again (a failed
    // cross-cast walks the plug-in's whole class hierarchy).
    HostRef(const HostRef& other) noexcept : m_object(other.m_object), m_tracking(other.m_tracking) {
        if (m_tracking) m_tracking->hostReferences.fetch_add(1, std::memory_order_relaxed);
    }
    HostRef(HostRef&& other) noexcept
        : m_object(std::move(other.m_object)), m_tracking(std::exchange(other.m_tracking, nullptr)) {}
    // Assignment: not needed; safe to add.
    HostRef& operator=(const HostRef&) = delete;

    ~HostRef() {
        if (m_tracking) m_tracking->hostReferences.fetch_sub(1, std::memory_order_relaxed);
    }

    T* Get() const noexcept { return m_object.Get(); }
    T* operator->() const noexcept { return m_object.Get(); }
    T& operator*() const noexcept { return *m_object; }
    explicit operator bool() const noexcept { return static_cast<bool>(m_object); }

private:
    Agent::Hosting::ObjectPtr<T> m_object;
    HostObject* m_tracking = nullptr;
};

}  // namespace KALVO::DevHost
