#include "devhost/ObjectLedger.h"

namespace KALVO::DevHost {

void ObjectLedger::Register(ObjectTracking* object) {
    std::lock_guard lock(m_mutex);
    m_objects.insert(object);
}

void ObjectLedger::Unregister(ObjectTracking* object) noexcept {
    std::lock_guard lock(m_mutex);
    m_objects.erase(object);
}

std::map<std::string_view, std::uint64_t> ObjectLedger::OutstandingByKind() const {
    std::map<std::string_view, std::uint64_t> byKind;
    std::lock_guard lock(m_mutex);
    for (const ObjectTracking* object : m_objects) {
        const std::uint64_t all = object->references.load(std::memory_order_acquire);
        const std::uint64_t host = object->hostReferences.load(std::memory_order_relaxed);
        if (all > host) byKind[object->kind] += all - host;
    }
    return byKind;
}

std::uint64_t ObjectLedger::Outstanding() const {
    std::uint64_t total = 0;
    for (const auto& [kind, count] : OutstandingByKind()) total += count;
    return total;
}

std::string ObjectLedger::DescribeOutstanding() const {
    std::string text;
    for (const auto& [kind, count] : OutstandingByKind()) {
        if (!text.empty()) text += ", ";
        text.append(kind).append(" x").append(std::to_string(count));
    }
    return text;
}

}  // namespace KALVO::DevHost
