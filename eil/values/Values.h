// Values: the program's keyed container of values, handed to the host as IValues (event
// sources, tags, observables, nested records). Entries are ordered and found by key id alone;
// the name stored with an entry is the one it was first inserted with.
//
// Thread-safe: one reader/writer lock per container (shared for Get, Count and GetByIndex,
// exclusive for everything that changes it). No operation of IValues throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <string>

#include "eil/object/ObjectImpl.h"
#include "host/IValue.h"
#include "host/IValues.h"
#include "host/ObjectPtr.h"
#include "host/ResultCode.h"

namespace KALVO::EIL::Values {

class Values : public IValues {
public:
    using Interfaces = Object::InterfaceList<IValues>;

    Values() = default;
    Values(const Values&) = delete;  // shared by reference, never copied
    Values& operator=(const Values&) = delete;

    Result::Code Get(IIdentifier const& key, Agent::Hosting::ObjectPtr<IValue>& out) const override;
    Result::Code Set(IIdentifier const& key, Agent::Hosting::ObjectPtr<IValue> const& value) override;
    Result::Code Remove(IIdentifier const& key) override;
    Result::Code Clear() override;
    std::uint64_t Count() const override;
    Result::Code GetByIndex(unsigned long index, Agent::Hosting::ObjectPtr<IValue>& value,
                            Agent::Hosting::ObjectPtr<IValue>* key) const override;

    // Appends `value` under the key (current count, no name), leaving the argument empty. If an
    // entry with that id already exists (an earlier Set used a small number as id) its value is
    // replaced instead: that is the defined behaviour. A list built only with PushBack has ids
    // 0, 1, 2, ... Throws std::bad_alloc when memory runs out (the argument is then unchanged).
    void PushBack(Agent::Hosting::ObjectPtr<IValue>&& value);

protected:
    ~Values() = default;

private:
    struct Key {
        std::uint64_t id;
        std::string name;
    };

    // Orders by id only, so there is at most one entry per id and lookups ignore names.
    struct KeyCompareLess {
        using is_transparent = void;
        bool operator()(const Key& a, const Key& b) const noexcept { return a.id < b.id; }
        bool operator()(const Key& a, std::uint64_t b) const noexcept { return a.id < b; }
        bool operator()(std::uint64_t a, const Key& b) const noexcept { return a < b.id; }
    };

    using Map = std::map<Key, Agent::Hosting::ObjectPtr<IValue>, KeyCompareLess>;

    // Finds the index-th entry (index < size), starting from whichever of the first entry, the
    // last one found or the end is nearest, so a walk by increasing or decreasing index is
    // linear rather than quadratic. Caller holds m_mutex shared.
    Map::const_iterator Seek(std::size_t index) const;

    // Forgets the remembered position; caller holds m_mutex exclusively.
    void ForgetCursor() const noexcept { m_cursorValid = false; }

    mutable std::shared_mutex m_mutex;
    Map m_entries;

    // The last position GetByIndex found. Readers share m_mutex, so they take m_cursorMutex to
    // use it; writers hold m_mutex exclusively and may reset it without that.
    mutable std::mutex m_cursorMutex;
    mutable bool m_cursorValid = false;
    mutable std::size_t m_cursorIndex = 0;
    mutable Map::const_iterator m_cursor;
};

using ValuesObject = Object::ObjectImpl<Values>;

}  // namespace KALVO::EIL::Values
