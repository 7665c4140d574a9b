// ObjectLedger: the stand-in host's register of its own live objects and of who holds them.
//
// Every object the host makes is counted here, and so is every reference the host itself holds
// on one (HostRef). What is left over is held by someone else, normally the plug-in, so a test
// can assert that the plug-in gave back everything it took: Outstanding() == 0.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_set>

namespace KALVO::DevHost {

// The counts of one host object. `references` is the object's reference count itself;
// `hostReferences` how many of them the host holds through HostRef.
struct ObjectTracking {
    char const* kind = "";
    // acq_rel on the count for the same reasons as any reference count (see ObjectImpl);
    // hostReferences is only ever read for accounting, so relaxed.
    std::atomic<std::uint64_t> references{1};
    std::atomic<std::uint64_t> hostReferences{0};
};

class ObjectLedger {
public:
    ObjectLedger() = default;
    ObjectLedger(const ObjectLedger&) = delete;  // shared by every object of one host
    ObjectLedger& operator=(const ObjectLedger&) = delete;

    void Register(ObjectTracking* object);
    void Unregister(ObjectTracking* object) noexcept;

    // References to live host objects held by anyone but the host. Exact when no other thread
    // is taking or dropping references at the time.
    std::uint64_t Outstanding() const;
    // The same per kind of object, e.g. "ReportingService x1, ProcessInfo x2"; empty when none.
    std::string DescribeOutstanding() const;

private:
    std::map<std::string_view, std::uint64_t> OutstandingByKind() const;

    mutable std::mutex m_mutex;
    std::unordered_set<ObjectTracking*> m_objects;
};

}  // namespace KALVO::DevHost
