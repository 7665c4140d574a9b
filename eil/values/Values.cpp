#include "eil/values/Values.h"

#include <iterator>
#include <new>
#include <utility>

#include "eil/values/MakeValue.h"

namespace KALVO::EIL::Values {

using Agent::Hosting::ObjectPtr;

namespace {

// The container's operations answer the host with codes only: running out of memory is 12,
// any other failure 100.
template <class Operation>
Result::Code ReturnCodeOf(Operation&& operation) noexcept {
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        return Result::OutOfMemory;
    } catch (...) {
        return Result::ProtocolError;
    }
}

}  // namespace

// Values replaced or erased are released only after the lock is dropped (the locals holding
// them are declared before the lock): a value may be a host object whose Release calls back
// into this container, or a nested container whose teardown should not run under our lock.

Result::Code Values::Get(IIdentifier const& key, ObjectPtr<IValue>& out) const {
    const std::uint64_t id = key.Id();
    ObjectPtr<IValue> found;
    {
        std::shared_lock lock(m_mutex);
        const auto entry = m_entries.find(id);
        if (entry == m_entries.end()) return Result::NoSuchEntry;
        found = entry->second;
    }
    out = std::move(found);
    return Result::Success;
}

Result::Code Values::Set(IIdentifier const& key, ObjectPtr<IValue> const& value) {
    return ReturnCodeOf([&] {
        const std::uint64_t id = key.Id();
        char const* const name = key.Name();
        ObjectPtr<IValue> replaced;
        std::unique_lock lock(m_mutex);
        const auto entry = m_entries.find(id);
        if (entry != m_entries.end()) {
            replaced = std::exchange(entry->second, value);  // the first name stays
        } else {
            m_entries.emplace(Key{id, name ? name : ""}, value);
            ForgetCursor();
        }
        return Result::Success;
    });
}

Result::Code Values::Remove(IIdentifier const& key) {
    const std::uint64_t id = key.Id();
    Map::node_type removed;
    std::unique_lock lock(m_mutex);
    const auto entry = m_entries.find(id);
    if (entry == m_entries.end()) return Result::NoSuchEntry;
    removed = m_entries.extract(entry);
    ForgetCursor();
    return Result::Success;
}

Result::Code Values::Clear() {
    Map removed;
    std::unique_lock lock(m_mutex);
    removed.swap(m_entries);
    ForgetCursor();
    return Result::Success;
}

std::uint64_t Values::Count() const {
    std::shared_lock lock(m_mutex);
    return m_entries.size();
}

Result::Code Values::GetByIndex(unsigned long index, ObjectPtr<IValue>& value, ObjectPtr<IValue>* key) const {
    return ReturnCodeOf([&] {
        ObjectPtr<IValue> foundValue;
        ObjectPtr<IValue> foundKey;
        {
            std::shared_lock lock(m_mutex);
            if (index >= m_entries.size()) return Result::OutOfRange;
            const auto entry = Seek(index);
            foundValue = entry->second;
            if (key) {
                // Keys without a name (PushBack lists, ids set by number) are handed out as numbers.
                if (!entry->first.name.empty()) {
                    foundKey = StringValueObject::Make(entry->first.name);
                } else {
                    foundKey = NumberValueObject::Make(entry->first.id, ValueType::UInt64);
                }
            }
        }
        // Delivered only once nothing can fail any more.
        value = std::move(foundValue);
        if (key) *key = std::move(foundKey);
        return Result::Success;
    });
}

void Values::PushBack(ObjectPtr<IValue>&& value) {
    ObjectPtr<IValue> replaced;
    std::unique_lock lock(m_mutex);
    const std::uint64_t id = m_entries.size();
    const auto entry = m_entries.find(id);
    if (entry != m_entries.end()) {
        replaced = std::exchange(entry->second, std::move(value));
    } else {
        // The node is allocated before `value` is moved into it, so a bad_alloc leaves `value` alone.
        m_entries.emplace(Key{id, std::string()}, std::move(value));
        ForgetCursor();
    }
}

Values::Map::const_iterator Values::Seek(std::size_t index) const {
    const std::size_t size = m_entries.size();
    std::lock_guard cursorLock(m_cursorMutex);

    auto start = m_entries.cbegin();
    std::size_t startIndex = 0;
    std::size_t distance = index;
    if (size - index < distance) {
        start = m_entries.cend();
        startIndex = size;
        distance = size - index;
    }
    if (m_cursorValid) {
        const std::size_t fromCursor = index > m_cursorIndex ? index - m_cursorIndex : m_cursorIndex - index;
        if (fromCursor < distance) {
            start = m_cursor;
            startIndex = m_cursorIndex;
        }
    }
    std::advance(start, static_cast<std::ptrdiff_t>(index) - static_cast<std::ptrdiff_t>(startIndex));

    m_cursor = start;
    m_cursorIndex = index;
    m_cursorValid = true;
    return start;
}

}  // namespace KALVO::EIL::Values
