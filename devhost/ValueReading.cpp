#include "devhost/ValueReading.h"

#include <cstring>

namespace KALVO::DevHost {

using EIL::Values::IValue;
using EIL::Values::ValueType;

std::optional<std::string> ReadBytes(const IValue& value) {
    const std::uint64_t size = value.GetSize();
    if (size > MaxValueBytes) return std::nullopt;
    std::string bytes(static_cast<std::size_t>(size), '\0');
    unsigned long long written = 0;
    const Result::Code code = value.GetData(bytes.data(), bytes.size(), &written);
    if ((code != Result::Success && code != Result::NoBufferSpace) || written > bytes.size()) return std::nullopt;
    bytes.resize(static_cast<std::size_t>(written));
    return bytes;
}

std::optional<std::uint64_t> ReadNumber(const IValue& value) {
    if (value.Type() != static_cast<std::uint32_t>(ValueType::UInt64)) return std::nullopt;
    const std::optional<std::string> bytes = ReadBytes(value);
    if (!bytes || bytes->size() != sizeof(std::uint64_t)) return std::nullopt;
    std::uint64_t number = 0;
    std::memcpy(&number, bytes->data(), sizeof number);
    return number;
}

Agent::Hosting::ObjectPtr<EIL::Values::IValues> OpenContainer(IValue& value) {
    Agent::Hosting::ObjectPtr<EIL::Values::IValues> container;
    if (value.Type() == static_cast<std::uint32_t>(ValueType::Object)) {
        Agent::Hosting::QueryInterface(&value, container);
    }
    return container;
}

std::optional<EntryKey> ReadKey(const IValue* key) {
    if (!key) return std::nullopt;
    if (key->Type() == static_cast<std::uint32_t>(ValueType::String)) {
        std::optional<std::string> name = ReadBytes(*key);
        if (!name) return std::nullopt;
        return EntryKey{std::move(name), 0};
    }
    if (const std::optional<std::uint64_t> id = ReadNumber(*key)) return EntryKey{std::nullopt, *id};
    return std::nullopt;
}

std::vector<Entry> ReadEntries(EIL::Values::IValues& values) {
    std::vector<Entry> entries;
    const std::uint64_t count = values.Count();
    for (std::uint64_t index = 0; index < count; ++index) {
        Agent::Hosting::ObjectPtr<IValue> value;
        Agent::Hosting::ObjectPtr<IValue> key;
        if (values.GetByIndex(static_cast<unsigned long>(index), value, &key) != Result::Success) break;
        if (std::optional<EntryKey> entryKey = ReadKey(key.Get())) entries.push_back(Entry{std::move(*entryKey), std::move(value)});
    }
    return entries;
}

}  // namespace KALVO::DevHost
