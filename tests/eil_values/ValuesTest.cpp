// The identifiers of value keys (the host's key format) and the value containers the sensor
// builds its observables in: the codes of GetData the host relies on, and random edits against a
// plain map. Each container is built on one thread and then handed to the host.
#include "eil/values/Values.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "eil/values/Identifier.h"
#include "eil/values/MakeValue.h"

namespace KALVO::EIL::Values {
namespace {

using Agent::Hosting::ObjectPtr;

// Ids of literal keys are computed at compile time.
static_assert(Identifier("caf\xc3\xa9").Id() == 0xba42cb72da7008e6ULL);

TEST(Identifier, IdsMatchTheHostsKeyFormat) {
    const struct {
        std::string name;
        std::uint64_t id;
    } cases[] = {
        {"type", 0xf6fa41c87768a7e8ULL},
        {"", 0},
        {std::string("ab\0cd", 5), 0x014984000117d8c3ULL},  // stops at the first NUL
        // Bytes 0x80-0xFF are sign-extended: these differ from a zero-extending hash.
        {"caf\xc3\xa9", 0xba42cb72da7008e6ULL},
        {"\xff", 0xfffffefffffffe4dULL},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Identifier::Hash(c.name), c.id) << "name: " << c.name;
        EXPECT_EQ(Identifier(c.name.c_str()).Id(), c.id) << "name: " << c.name;
    }
    EXPECT_EQ(Identifier(nullptr).Id(), 0U);
}

std::string ReadString(const IValue& value) {
    std::string text(value.GetSize(), '\0');
    value.GetData(text.data(), text.size(), nullptr);
    return text;
}

// What GetByIndex delivers, as text: "name=value" for a named key, "#id=value" for a numbered one.
std::string EntryAt(const IValues& values, unsigned long index) {
    ObjectPtr<IValue> value;
    ObjectPtr<IValue> key;
    const Result::Code code = values.GetByIndex(index, value, &key);
    if (code != Result::Success) return std::string("code ").append(std::to_string(code));
    std::string shown = ReadString(*key);
    if (key->Type() == static_cast<std::uint32_t>(ValueType::UInt64)) {
        std::uint64_t id = 0;
        std::memcpy(&id, shown.data(), sizeof id);
        shown = std::string("#").append(std::to_string(id));
    }
    return shown + "=" + (value ? ReadString(*value) : "null");
}

// The host relies on these exact codes: a larger buffer answers 55, an exact or short one 0
// with the copy truncated; no terminator is written.
TEST(ValueContainers, GetDataCopiesAtMostTheBufferAndFlagsLargerBuffers) {
    const std::uint64_t number = 0x0102030405060708ULL;
    const auto text = MakeStringValue("abc");
    const auto numeric = MakeNumberValue(number);
    const struct {
        const IValue* value;
        unsigned long long bufferSize, written;
        Result::Code code;
    } cases[] = {
        {text.Get(), 10, 3, 55},   {text.Get(), 3, 3, 0},    {text.Get(), 1, 1, 0},    {text.Get(), 0, 0, 0},
        {numeric.Get(), 9, 8, 55}, {numeric.Get(), 8, 8, 0}, {numeric.Get(), 3, 3, 0},
    };
    for (const auto& c : cases) {
        unsigned char buffer[16];
        std::memset(buffer, 0xee, sizeof buffer);
        unsigned long long written = 99;
        SCOPED_TRACE("type " + std::to_string(c.value->Type()) +
                     std::string(", buffer ").append(std::to_string(c.bufferSize)));
        EXPECT_EQ(c.value->GetData(buffer, c.bufferSize, &written), c.code);
        EXPECT_EQ(written, c.written);
        EXPECT_EQ(std::memcmp(buffer, c.value == text.Get() ? static_cast<const void*>("abc") : &number, c.written), 0);
        EXPECT_EQ(buffer[c.written], 0xee) << "wrote past the copied bytes";
    }
}

// Random Set (through Identifier::Set too), PushBack, Remove and Clear interleaved with indexed
// reads at random positions and full walks both ways, against a plain map: covers ordering,
// first names, numbered keys, PushBack onto an existing id, and the remembered walk position.
TEST(ValueContainers, BehavesLikeAPlainMapThroughRandomEdits) {
    const auto values = MakeValues();
    std::map<std::uint64_t, std::pair<std::string, std::string>> reference;  // id -> (shown key, value)
    std::vector<std::string> names;
    for (int id = 0; id <= 60; ++id) names.push_back(id % 3 == 0 ? "" : std::string("k").append(std::to_string(id)));
    const auto shownKey = [&](std::uint64_t id, const std::string& name) {
        return name.empty() ? std::string("#").append(std::to_string(id)) : name;
    };
    const auto expectedAt = [&](std::size_t index) {
        const auto& entry = std::next(reference.begin(), static_cast<std::ptrdiff_t>(index))->second;
        return entry.first + "=" + entry.second;
    };
    std::mt19937 random(7);
    for (int step = 0; step < 20000; ++step) {
        const int op = static_cast<int>(random() % 100);
        const std::uint64_t id = random() % names.size();
        const std::string text = std::to_string(step);
        if (op < 30) {
            if (op % 2) {
                ASSERT_EQ(values->Set(Identifier(names[id].c_str(), id), MakeStringValue(text)), Result::Success);
            } else {
                ASSERT_EQ(static_cast<int>(Identifier::Set(Identifier(names[id].c_str(), id), values.Get(), text)), 0);
            }
            reference.try_emplace(id, shownKey(id, names[id]), "").first->second.second = text;
        } else if (op < 40) {
            const std::uint64_t next = reference.size();
            values->PushBack(MakeStringValue(text));
            reference.try_emplace(next, shownKey(next, ""), "").first->second.second = text;
        } else if (op < 55) {
            const Result::Code expected = reference.erase(id) ? Result::Success : Result::NoSuchEntry;
            ASSERT_EQ(values->Remove(Identifier("ignored", id)), expected) << "step " << step;
        } else if (op < 56) {
            ASSERT_EQ(values->Clear(), Result::Success);
            reference.clear();
        } else if (op < 96) {
            const std::size_t index = random() % (reference.size() + 1);
            ASSERT_EQ(EntryAt(*values, index), index < reference.size() ? expectedAt(index) : "code 34")
                << "step " << step << " index " << index;
        } else {
            ASSERT_EQ(values->Count(), reference.size());
            for (std::size_t i = 0; i < reference.size(); ++i) ASSERT_EQ(EntryAt(*values, i), expectedAt(i)) << step;
            for (std::size_t i = reference.size(); i-- > 0;) ASSERT_EQ(EntryAt(*values, i), expectedAt(i)) << step;
        }
    }
}

}  // namespace
}  // namespace KALVO::EIL::Values
