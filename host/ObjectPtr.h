// ObjectPtr<T>: the owning smart pointer of the object model.
//
// It holds exactly one raw T* and owns one reference to it, so it has the size and the
// calling convention of a pointer wherever it crosses the boundary by reference (the ESP
// callbacks receive ObjectPtr<IProcessInfo>&). Copying adds a reference, moving transfers it.
#pragma once

#include <cstddef>
#include <utility>

#include "host/IObject.h"

namespace KALVO::Agent::Hosting {

template <class T>
class ObjectPtr {
public:
    ObjectPtr() noexcept = default;
    ObjectPtr(std::nullptr_t) noexcept {}

    // Shares `object`: adds a reference of its own.
    explicit ObjectPtr(T* object) noexcept : m_object(object) {
        if (m_object) m_object->AddRef();
    }

    // Takes over a reference the caller already owns (a maker's first reference, an out
    // parameter of GetInterface or GetService).
    static ObjectPtr Adopt(T* object) noexcept {
        ObjectPtr result;
        result.m_object = object;
        return result;
    }

    ObjectPtr(const ObjectPtr& other) noexcept : ObjectPtr(other.m_object) {}
    ObjectPtr(ObjectPtr&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}

    template <class U>
    ObjectPtr(const ObjectPtr<U>& other) noexcept : ObjectPtr(other.Get()) {}
    template <class U>
    ObjectPtr(ObjectPtr<U>&& other) noexcept : m_object(other.Detach()) {}

    ObjectPtr& operator=(ObjectPtr other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }

    ~ObjectPtr() { Reset(); }

    // Drops the held reference, if any.
    void Reset() noexcept {
        if (T* object = std::exchange(m_object, nullptr)) object->Release();
    }

    // Gives up ownership without releasing; the caller now owns the reference.
    [[nodiscard]] T* Detach() noexcept { return std::exchange(m_object, nullptr); }

    T* Get() const noexcept { return m_object; }
    T* operator->() const noexcept { return m_object; }
    T& operator*() const noexcept { return *m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }

    friend bool operator==(const ObjectPtr& a, const ObjectPtr& b) noexcept { return a.m_object == b.m_object; }
    friend bool operator==(const ObjectPtr& a, std::nullptr_t) noexcept { return a.m_object == nullptr; }

private:
    T* m_object = nullptr;
};

// Asks `object` for interface I. On success `out` owns the new reference; on failure `out`
// is left as it was and the host's code is returned. A host that answers success without an
// object has failed too (100): nothing after a successful lookup tests for null.
template <class I, class From>
Result::Code QueryInterface(From* object, ObjectPtr<I>& out) noexcept {
    IObject* raw = nullptr;
    const Result::Code code = object->GetInterface(I::Id, raw);
    if (code != Result::Success) return code;
    if (raw == nullptr) return Result::ProtocolError;
    out = ObjectPtr<I>::Adopt(static_cast<I*>(raw));
    return code;
}

}  // namespace KALVO::Agent::Hosting
