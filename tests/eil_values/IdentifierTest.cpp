#include "eil/values/Identifier.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

#include "eil/values/MakeValue.h"
#include "tests/eil_values/ValuesTesting.h"

namespace KALVO::EIL::Values {
namespace {

// Key ids are computed at compile time for literal keys.
static_assert(Identifier::Hash("type") == 0xf6fa41c87768a7e8ULL);
static_assert(Identifier("command").Id() == 0x2e3f465733317c69ULL);
static_assert(Identifier::Hash("caf\xc3\xa9") == 0xba42cb72da7008e6ULL);

// Independent of the production code: widens a byte by setting the high bits with a mask rather
// than by converting through signed char.
std::uint64_t ReferenceHash(const std::string& bytes) {
    std::uint64_t hash = 0;
    for (const unsigned char byte : bytes) {
        if (byte == 0) break;
        std::uint64_t widened = byte;
        if (byte & 0x80U) widened |= ~std::uint64_t{0xff};
        hash ^= widened;
        hash *= 1099511628211ULL;
    }
    return hash;
}

TEST(Identifier, IdsMatchTheHostsKeyFormat) {
    const struct {
        const char* name;
        std::uint64_t id;
    } cases[] = {
        {"type", 0xf6fa41c87768a7e8ULL},
        {"source_type", 0xc4726eb78b4037ceULL},
        {"version", 0x4e2e0a51732dd82cULL},
        {"info", 0x28ee82696673adfcULL},
        {"type_id", 0x7b660c6fca703c50ULL},
        {"command", 0x2e3f465733317c69ULL},
        {"", 0},
        // Bytes 0x80-0xFF are sign-extended: these differ from a zero-extending hash.
        {"caf\xc3\xa9", 0xba42cb72da7008e6ULL},
        {"\xd0\x9f\xd1\x80\xd0\xb8\xd0\xb2\xd0\xb5\xd1\x82", 0x7ea39b5432b98976ULL},
        {"\x80", 0xffff7fffffff2680ULL},
        {"\xff", 0xfffffefffffffe4dULL},
        {"\x7f", 0x00007f000000d7cdULL},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Identifier(c.name).Id(), c.id) << "name: " << c.name;
        EXPECT_EQ(ReferenceHash(c.name), c.id) << "reference disagrees on: " << c.name;
    }
    EXPECT_EQ(Identifier(nullptr).Id(), 0U);
}

TEST(Identifier, HashSignExtendsEveryByteLikeTheReference) {
    for (int first = 1; first < 256; ++first) {
        for (int second = 1; second < 256; second += 7) {
            const std::string name{static_cast<char>(first), static_cast<char>(second)};
            ASSERT_EQ(Identifier::Hash(name), ReferenceHash(name)) << "bytes: " << first << ' ' << second;
        }
    }
    std::mt19937_64 random(20261122);
    std::uniform_int_distribution<int> byte(1, 255);
    std::uniform_int_distribution<int> length(0, 40);
    for (int i = 0; i < 2000; ++i) {
        std::string name(static_cast<std::size_t>(length(random)), '\0');
        for (char& c : name) c = static_cast<char>(byte(random));
        ASSERT_EQ(Identifier::Hash(name), ReferenceHash(name)) << "case " << i;
        ASSERT_EQ(Identifier(name.c_str()).Id(), ReferenceHash(name)) << "case " << i;
    }
}

TEST(Identifier, HashStopsAtTheFirstNul) {
    EXPECT_EQ(Identifier::Hash(std::string_view("ab\0cd", 5)), Identifier::Hash("ab"));
    EXPECT_EQ(Identifier::Hash(std::string_view("\0x", 2)), 0U);
}

using IdentifierSet = Testing::BalancedReferences;

TEST_F(IdentifierSet, StoresACopyOfTheTextUnderTheKey) {
    const auto values = MakeValues();
    std::string text = "bash";
    EXPECT_EQ(Identifier::Set(Identifier("type"), values.Get(), text), std::errc{});
    text = "changed";

    Agent::Hosting::ObjectPtr<IValue> stored;
    ASSERT_EQ(values->Get(Identifier("type"), stored), Result::Success);
    EXPECT_EQ(stored->Type(), static_cast<std::uint32_t>(ValueType::String));
    EXPECT_EQ(Testing::ReadString(*stored), "bash");
}

TEST_F(IdentifierSet, ReportsANullContainerAsInvalidArgument) {
    EXPECT_EQ(static_cast<int>(Identifier::Set(Identifier("type"), static_cast<ValuesObject*>(nullptr), "x")), 22);
}

}  // namespace
}  // namespace KALVO::EIL::Values
