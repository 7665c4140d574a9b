#include "devhost/ValuesSnapshot.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "devhost/ValueReading.h"
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

// A copy of a value of any type other than object and string: its type code and its bytes,
// answered with the same GetData codes as the program's values.
class BytesValue : public IValue {
public:
    using Interfaces = EIL::Object::InterfaceList<IValue>;

    BytesValue(std::uint32_t type, std::string bytes) : m_type(type), m_bytes(std::move(bytes)) {}

    std::uint32_t Type() const override { return m_type; }
    std::uint64_t GetSize() const override { return m_bytes.size(); }
    Result::Code GetData(void* buffer, unsigned long long bufferSize, unsigned long long* written) const override {
        const std::uint64_t count = std::min<std::uint64_t>(m_bytes.size(), bufferSize);
        if (count != 0) std::memcpy(buffer, m_bytes.data(), count);
        if (written) *written = count;
        return m_bytes.size() < bufferSize ? Result::NoBufferSpace : Result::Success;
    }

protected:
    ~BytesValue() = default;

private:
    const std::uint32_t m_type;
    const std::string m_bytes;
};

ObjectPtr<ValuesObject> Copy(IValues& values, std::size_t depth);

// A copy of `value`, or null when it cannot be read.
ObjectPtr<IValue> CopyValue(IValue& value, std::size_t depth) {
    const std::uint32_t type = value.Type();
    if (type == static_cast<std::uint32_t>(ValueType::Object)) {
        const ObjectPtr<IValues> inner = OpenContainer(value);
        if (!inner) return EIL::Values::MakeObjectValue(nullptr);
        return EIL::Values::MakeObjectValue(depth + 1 < MaxValuesDepth ? Copy(*inner, depth + 1) : EIL::Values::MakeValues());
    }
    std::optional<std::string> bytes = ReadBytes(value);
    if (!bytes) return nullptr;
    if (type == static_cast<std::uint32_t>(ValueType::String)) return EIL::Values::MakeStringValue(std::move(*bytes));
    return EIL::Object::ObjectImpl<BytesValue>::Make(type, std::move(*bytes));
}

ObjectPtr<ValuesObject> Copy(IValues& values, std::size_t depth) {
    ObjectPtr<ValuesObject> copy = EIL::Values::MakeValues();
    for (const auto& [key, value] : ReadEntries(values)) {
        ObjectPtr<IValue> copied;
        if (value) {
            copied = CopyValue(*value, depth);
            if (!copied) continue;
        }
        const Result::Code code = key.name ? copy->Set(EIL::Values::Identifier(key.name->c_str()), copied)
                                           : copy->Set(EIL::Values::Identifier("", key.id), copied);
        if (code == Result::OutOfMemory) throw std::bad_alloc();
    }
    return copy;
}

}  // namespace

ObjectPtr<ValuesObject> SnapshotValues(IValues& values) { return Copy(values, 0); }

}  // namespace KALVO::DevHost
