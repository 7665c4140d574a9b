// ObjectImpl<T, Deleter>: the final class of every object the plug-in makes. It adds the
// atomic reference count and generates AddRef and Release; nobody writes them by hand.
//
// A new object starts with one reference, owned by its maker: Make() hands it to an ObjectPtr.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include "eil/object/LookupInterfaceImpl.h"
#include "host/ObjectPtr.h"

namespace KALVO::EIL::Object {

template <class T, template <class> class Deleter = std::default_delete>
class ObjectImpl final : public LookupInterfaceImpl<T> {
public:
    template <class... Args>
    explicit ObjectImpl(Args&&... args) : LookupInterfaceImpl<T>(std::forward<Args>(args)...) {}

    ObjectImpl(const ObjectImpl&) = delete;  // objects are shared by reference, never copied
    ObjectImpl& operator=(const ObjectImpl&) = delete;

    // acq_rel on both: a reference handed to another thread must see the object fully built,
    // and the thread that frees it must see every other holder's last writes.
    std::uint64_t AddRef() override { return m_refCount.fetch_add(1, std::memory_order_acq_rel) + 1; }

    std::uint64_t Release() override {
        const std::uint64_t count = m_refCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (count == 0) Deleter<ObjectImpl>{}(this);
        return count;
    }

    // Makes an object whose first reference belongs to the returned pointer; throws
    // std::bad_alloc when memory runs out.
    template <class... Args>
    static Agent::Hosting::ObjectPtr<ObjectImpl> Make(Args&&... args) {
        return Agent::Hosting::ObjectPtr<ObjectImpl>::Adopt(new ObjectImpl(std::forward<Args>(args)...));
    }

    // The same, but an empty pointer when memory runs out (the constructor itself must not throw).
    template <class... Args>
    static Agent::Hosting::ObjectPtr<ObjectImpl> TryMake(Args&&... args) noexcept {
        return Agent::Hosting::ObjectPtr<ObjectImpl>::Adopt(new (std::nothrow) ObjectImpl(std::forward<Args>(args)...));
    }

private:
    std::atomic<std::uint64_t> m_refCount{1};
};

}  // namespace KALVO::EIL::Object
