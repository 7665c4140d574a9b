#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "eil/values/MakeValue.h"
#include "host/IValues.h"
#include "tests/eil_values/ValuesTesting.h"

namespace KALVO::EIL::Values {
namespace {

using Agent::Hosting::IObject;
using Agent::Hosting::ObjectPtr;

using ValueData = Testing::BalancedReferences;

// The host relies on these exact codes: a larger buffer answers 55, an exact or short one 0
// with the copy truncated; no terminator is ever written.
TEST_F(ValueData, CopiesAtMostTheBufferAndFlagsLargerBuffers) {
    const std::uint64_t number = 0x0102030405060708ULL;
    const auto text = MakeStringValue("abc");
    const auto numeric = MakeNumberValue(number);
    const struct {
        const IValue* value;
        unsigned long long bufferSize;
        unsigned long long written;
        Result::Code code;
    } cases[] = {
        {text.Get(), 10, 3, Result::NoBufferSpace},
        {text.Get(), 4, 3, Result::NoBufferSpace},
        {text.Get(), 3, 3, Result::Success},
        {text.Get(), 2, 2, Result::Success},
        {text.Get(), 0, 0, Result::Success},
        {numeric.Get(), 16, 8, Result::NoBufferSpace},
        {numeric.Get(), 8, 8, Result::Success},
        {numeric.Get(), 3, 3, Result::Success},
    };
    for (const auto& c : cases) {
        unsigned char buffer[16];
        std::memset(buffer, 0xee, sizeof buffer);
        unsigned long long written = 99;
        EXPECT_EQ(c.value->GetData(buffer, c.bufferSize, &written), c.code) << "buffer size " << c.bufferSize;
        EXPECT_EQ(written, c.written) << "buffer size " << c.bufferSize;
        const void* expected = c.value == text.Get() ? static_cast<const void*>("abc") : &number;
        EXPECT_EQ(std::memcmp(buffer, expected, c.written), 0) << "buffer size " << c.bufferSize;
        EXPECT_EQ(buffer[c.written], 0xee) << "wrote past the copied bytes, buffer size " << c.bufferSize;
        EXPECT_EQ(c.value->GetData(buffer, c.bufferSize, nullptr), c.code) << "without a count";
    }
}

TEST_F(ValueData, ReportsTypesAndSizes) {
    EXPECT_EQ(MakeStringValue("")->GetSize(), 0U);
    EXPECT_EQ(MakeStringValue(std::string("a\0b", 3))->GetSize(), 3U);
    const auto number = MakeNumberValue(5);
    EXPECT_EQ(number->Type(), 12U);
    EXPECT_EQ(number->GetSize(), 8U);
    const auto object = MakeObjectValue(MakeValues());
    EXPECT_EQ(object->Type(), 1U);
    EXPECT_EQ(object->GetSize(), 0U);
}

TEST_F(ValueData, ObjectValueHasNoBytes) {
    unsigned long long written = 7;
    char buffer[4];
    EXPECT_EQ(MakeObjectValue(MakeValues())->GetData(buffer, sizeof buffer, &written), Result::ProtocolNotSupported);
    EXPECT_EQ(MakeObjectValue(nullptr)->GetData(buffer, sizeof buffer, &written), Result::NotImplemented);
    EXPECT_EQ(written, 7U);
}

using ValueInterfaces = Testing::BalancedReferences;

// The count of an object, read without changing it.
std::uint64_t References(IObject* object) {
    object->AddRef();
    return object->Release();
}

TEST_F(ValueInterfaces, ObjectValueHandsOutTheContainerItWraps) {
    const auto container = MakeValues();
    const auto value = MakeObjectValue(container);
    IObject* const containerObject = static_cast<IValues*>(container.Get());
    const std::uint64_t containerReferences = References(containerObject);
    const std::uint64_t valueReferences = References(value.Get());

    for (const Agent::Hosting::InterfaceId id : {IObject::Id, IValues::Id, WrappedValuesId}) {
        IObject* out = nullptr;
        ASSERT_EQ(value->GetInterface(id, out), Result::Success) << std::hex << id;
        EXPECT_EQ(out, containerObject) << std::hex << id;
        EXPECT_EQ(References(containerObject), containerReferences + 1) << std::hex << id;
        EXPECT_EQ(References(value.Get()), valueReferences) << std::hex << id;
        out->Release();
    }

    IObject* out = nullptr;
    ASSERT_EQ(value->GetInterface(IValue::Id, out), Result::Success);
    EXPECT_EQ(out, static_cast<IObject*>(value.Get()));
    EXPECT_EQ(References(value.Get()), valueReferences + 1);
    out->Release();
}

TEST_F(ValueInterfaces, UnknownIdsLeaveOutAndCountsAlone) {
    const auto container = MakeValues();
    const ObjectPtr<IValue> values[] = {MakeStringValue("x"), MakeNumberValue(1), MakeObjectValue(container),
                                        MakeObjectValue(nullptr)};
    int marker = 0;
    IObject* const sentinel = reinterpret_cast<IObject*>(&marker);
    for (const auto& value : values) {
        const std::uint64_t references = References(value.Get());
        IObject* out = sentinel;
        EXPECT_EQ(value->GetInterface(0x1234, out), Result::ProtocolNotSupported) << "type " << value->Type();
        EXPECT_EQ(out, sentinel);
        EXPECT_EQ(References(value.Get()), references);
    }
    // An empty object value has no container to hand out.
    for (const Agent::Hosting::InterfaceId id : {IObject::Id, IValues::Id, WrappedValuesId}) {
        IObject* out = sentinel;
        EXPECT_EQ(values[3]->GetInterface(id, out), Result::ProtocolNotSupported) << std::hex << id;
        EXPECT_EQ(out, sentinel);
    }
    // Plain values answer only for themselves.
    for (const auto& value : {values[0], values[1]}) {
        IObject* out = sentinel;
        EXPECT_EQ(value->GetInterface(IValues::Id, out), Result::ProtocolNotSupported);
        ASSERT_EQ(value->GetInterface(IObject::Id, out), Result::Success);
        EXPECT_EQ(out, static_cast<IObject*>(value.Get()));
        out->Release();
    }
}

TEST_F(ValueInterfaces, NestedContainersAreReleasedWithTheOutermost) {
    auto outer = MakeValues();
    auto inner = MakeValues();
    inner->PushBack(MakeStringValue("leaf"));
    outer->PushBack(MakeObjectValue(inner));
    inner.Reset();

    ObjectPtr<IValue> nested;
    ASSERT_EQ(outer->GetByIndex(0, nested, nullptr), Result::Success);
    ObjectPtr<IValues> walked;
    ASSERT_EQ(Agent::Hosting::QueryInterface(nested.Get(), walked), Result::Success);
    ObjectPtr<IValue> leaf;
    ASSERT_EQ(walked->GetByIndex(0, leaf, nullptr), Result::Success);
    EXPECT_EQ(Testing::ReadString(*leaf), "leaf");
    // The fixture checks that releasing `outer` last frees all five objects.
}

}  // namespace
}  // namespace KALVO::EIL::Values
