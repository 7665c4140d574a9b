#include "devhost/ObjectLedger.h"

#include <map>
#include <string_view>

namespace KALVO::DevHost {

namespace {

std::uint64_t Foreign(const ObjectTracking& object) noexcept {
    const std::uint64_t all = object.references.load(std::memory_order_acquire);
    const std::uint64_t host = object.hostReferences.load(std::memory_order_relaxed);
    return all > host ? all - host : 0;
}

}  // namespace

void ObjectLedger::Register(ObjectTracking* object) {
    std::lock_guard lock(m_mutex);
    m_objects.insert(object);
}

void ObjectLedger::Unregister(ObjectTracking* object) noexcept {
    std::lock_guard lock(m_mutex);
    m_objects.erase(object);
}

std::uint64_t ObjectLedger::Outstanding() const {
    std::lock_guard lock(m_mutex);
    std::uint64_t total = 0;
    for (const ObjectTracking* object : m_objects) total += Foreign(*object);
    return total;
}

std::string ObjectLedger::DescribeOutstanding() const {
    std::map<std::string_view, std::uint64_t> byKind;
    {
        std::lock_guard lock(m_mutex);
        for (const ObjectTracking* object : m_objects) {
            if (const std::uint64_t count = Foreign(*object)) byKind[object->kind] += count;
        }
    }
    std::string text;
    for (const auto& [kind, count] : byKind) {
        if (!text.empty()) text += ", ";
        text.append(kind).append(" x").append(std::to_string(count));
    }
    return text;
}

}  // namespace KALVO::DevHost
