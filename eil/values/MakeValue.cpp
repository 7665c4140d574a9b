#include "eil/values/MakeValue.h"

#include <utility>

namespace KALVO::EIL::Values {

using Agent::Hosting::ObjectPtr;

ObjectPtr<IValue> MakeStringValue(std::string text) noexcept { return StringValueObject::Make(std::move(text)); }

ObjectPtr<IValue> MakeNumberValue(std::uint64_t number, ValueType type) noexcept {
    return NumberValueObject::Make(number, type);
}

ObjectPtr<IValue> MakeObjectValue(ObjectPtr<ValuesObject> container) noexcept {
    return ObjectValueObject::Make(std::move(container));
}

ObjectPtr<ValuesObject> MakeValues() { return ValuesObject::Make(); }

}  // namespace KALVO::EIL::Values
