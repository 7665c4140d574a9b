// An object value (type 1): a value standing for a nested container, so containers can hold
// containers. Asking it for IObject, IValues or WrappedValuesId hands out the wrapped container
// itself (with a new reference on the container), so a host that receives an object value can
// walk straight into it; only IValue answers the object value.
#pragma once

#include <cstdint>
#include <utility>

#include "host/IValue.h"
#include "host/IValues.h"
#include "host/ObjectPtr.h"
#include "host/ResultCode.h"

namespace KALVO::EIL::Values {

// C is the container's object type (ObjectImpl<Values> in this program); it must answer
// IObject and IValues itself.
template <class C>
class ObjectValue : public IValue {
public:
    explicit ObjectValue(Agent::Hosting::ObjectPtr<C> container) noexcept : m_container(std::move(container)) {}

    std::uint32_t Type() const override { return static_cast<std::uint32_t>(ValueType::Object); }

    std::uint64_t GetSize() const override { return 0; }

    // There are no bytes to copy: 43 (ask for IValues instead), or 78 when no container is held.
    // `written` is left alone.
    Result::Code GetData(void*, unsigned long long, unsigned long long*) const override {
        return m_container ? Result::ProtocolNotSupported : Result::NotImplemented;
    }

    // Used by LookupInterfaceImpl in place of the generated lookup. An empty object value has
    // nothing to hand out for the container's ids and answers 43.
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
        if (id == IValue::Id) {
            IValue* self = this;
            self->AddRef();
            out = self;
            return Result::Success;
        }
        if (!m_container) return Result::ProtocolNotSupported;
        if (id == IValues::Id) return m_container->GetInterface(IValues::Id, out);
        if (id == Agent::Hosting::IObject::Id || id == WrappedValuesId) {
            return m_container->GetInterface(Agent::Hosting::IObject::Id, out);
        }
        return Result::ProtocolNotSupported;
    }

    const Agent::Hosting::ObjectPtr<C>& Container() const noexcept { return m_container; }

protected:
    ~ObjectValue() = default;

private:
    const Agent::Hosting::ObjectPtr<C> m_container;
};

}  // namespace KALVO::EIL::Values
