// HostRef<T>: a reference the stand-in host itself holds. Works like ObjectPtr, and when the
// object is one of the host's own it tells the ledger so, so that Outstanding() counts only
// what others hold. Objects of anyone else (a plug-in's value containers) are held as they are.
#pragma once

#include <atomic>
#include <utility>

#include "devhost/TrackedObject.h"
#include "host/ObjectPtr.h"

namespace KALVO::DevHost {

template <class T>
class HostRef {
public:
    HostRef() noexcept = default;

    // Takes over the reference `object` owns.
    explicit HostRef(Agent::Hosting::ObjectPtr<T> object) noexcept : m_object(std::move(object)) {
        if constexpr (requires(T* object) { object->Tracking(); }) {
            if (m_object) m_tracking = &m_object->Tracking();  // known to be the host's own
        } else if (IHostObject* host = AsHostObject(m_object.Get())) {
            m_tracking = &host->Tracking();
        }
        if (m_tracking) m_tracking->hostReferences.fetch_add(1, std::memory_order_relaxed);
    }

    // Shares `object`: adds a reference of its own.
    static HostRef Share(T* object) noexcept { return HostRef(Agent::Hosting::ObjectPtr<T>(object)); }

    HostRef(HostRef&& other) noexcept
        : m_object(std::move(other.m_object)), m_tracking(std::exchange(other.m_tracking, nullptr)) {}
    // Move assignment: not needed; safe to add.
    HostRef& operator=(HostRef&&) = delete;
    HostRef(const HostRef&) = delete;  // use Share(ref.Get()) to take a second reference
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
    ObjectTracking* m_tracking = nullptr;
};

}  // namespace KALVO::DevHost
