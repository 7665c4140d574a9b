// Makers of the program's values and containers, each returned with its first reference.
//
// The value makers never throw: a value is a few bytes, and they run where an exception would
// have nowhere to go, so running out of memory there ends the process. MakeValues throws
// std::bad_alloc like any other allocation.
#pragma once

#include <cstdint>
#include <string>

#include "eil/values/ObjectValue.h"
#include "eil/values/StringValue.h"
#include "eil/values/Value.h"
#include "eil/values/Values.h"
#include "host/IValue.h"
#include "host/ObjectPtr.h"

namespace KALVO::EIL::Values {

using StringValueObject = Object::ObjectImpl<StringValue<std::string>>;
using NumberValueObject = Object::ObjectImpl<Value<unsigned long long>>;
using ObjectValueObject = Object::ObjectImpl<ObjectValue<ValuesObject>>;

// A string value holding `text`.
Agent::Hosting::ObjectPtr<IValue> MakeStringValue(std::string text) noexcept;

// A number value holding `number`, reported under `type`.
Agent::Hosting::ObjectPtr<IValue> MakeNumberValue(std::uint64_t number, ValueType type = ValueType::UInt64) noexcept;

// An object value wrapping `container` (which may be empty: the value then answers 78).
Agent::Hosting::ObjectPtr<IValue> MakeObjectValue(Agent::Hosting::ObjectPtr<ValuesObject> container) noexcept;

// A new empty container.
Agent::Hosting::ObjectPtr<ValuesObject> MakeValues();

}  // namespace KALVO::EIL::Values
