#include "devhost/ValueReading.h"

#include <cstring>

#include "eil/object/ObjectImpl.h"
#include "eil/values/Identifier.h"
#include "eil/values/MakeValue.h"

namespace KALVO::DevHost {

namespace {

using Agent::Hosting::ObjectPtr;
using EIL::Values::IValue;
using EIL::Values::IValues;
using EIL::Values::ValuesObject;
using EIL::Values::ValueType;

// A copy of a value of any type but object: its type code and its bytes, answered with the
// same GetData codes as the program's strings.
class BytesValue : public EIL::Values::StringValue<std::string> {
public:
    BytesValue(std::uint32_t type, std::string bytes) : StringValue(std::move(bytes)), m_type(type) {}

    std::uint32_t Type() const override { return m_type; }

protected:
    ~BytesValue() = default;

private:
    const std::uint32_t m_type;
};

ObjectPtr<ValuesObject> Copy(IValues& values, std::size_t depth) {
    ObjectPtr<ValuesObject> copy = EIL::Values::MakeValues();
    for (const Entry& entry : ReadEntries(values)) {
        ObjectPtr<IValue> copied;
        if (entry.value && entry.value->Type() == static_cast<std::uint32_t>(ValueType::Object)) {
            const ObjectPtr<IValues> inner = OpenContainer(*entry.value);
            copied = EIL::Values::MakeObjectValue(!inner                         ? nullptr
                                                  : depth + 1 < MaxValuesDepth ? Copy(*inner, depth + 1)
                                                                               : EIL::Values::MakeValues());
        } else if (entry.value) {
            std::optional<std::string> bytes = ReadBytes(*entry.value);
            if (!bytes) continue;
            copied = EIL::Object::ObjectImpl<BytesValue>::Make(entry.value->Type(), std::move(*bytes));
        }
        const Result::Code code = entry.name ? copy->Set(EIL::Values::Identifier(entry.name->c_str()), copied)
                                             : copy->Set(EIL::Values::Identifier("", entry.id), copied);
        if (code == Result::OutOfMemory) throw std::bad_alloc();
    }
    return copy;
}

}  // namespace

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

ObjectPtr<IValues> OpenContainer(IValue& value) {
    ObjectPtr<IValues> container;
    if (value.Type() == static_cast<std::uint32_t>(ValueType::Object)) Agent::Hosting::QueryInterface(&value, container);
    return container;
}

std::vector<Entry> ReadEntries(IValues& values) {
    std::vector<Entry> entries;
    const std::uint64_t count = values.Count();
    for (std::uint64_t index = 0; index < count; ++index) {
        ObjectPtr<IValue> value;
        ObjectPtr<IValue> key;
        if (values.GetByIndex(static_cast<unsigned long>(index), value, &key) != Result::Success) break;
        if (!key) continue;
        if (key->Type() == static_cast<std::uint32_t>(ValueType::String)) {
            if (std::optional<std::string> name = ReadBytes(*key)) entries.push_back(Entry{std::move(name), 0, std::move(value)});
        } else if (const std::optional<std::uint64_t> id = ReadNumber(*key)) {
            entries.push_back(Entry{std::nullopt, *id, std::move(value)});
        }
    }
    return entries;
}

ObjectPtr<ValuesObject> SnapshotValues(IValues& values) { return Copy(values, 0); }

}  // namespace KALVO::DevHost
