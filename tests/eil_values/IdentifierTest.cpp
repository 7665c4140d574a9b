#include "eil/values/Identifier.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace KALVO::EIL::Values {
namespace {

// Ids of literal keys are computed at compile time.
static_assert(Identifier::Hash("type") == 0xf6fa41c87768a7e8ULL);
static_assert(Identifier("caf\xc3\xa9").Id() == 0xba42cb72da7008e6ULL);

TEST(Identifier, IdsMatchTheHostsKeyFormat) {
    const struct {
        std::string name;
        std::uint64_t id;
    } cases[] = {
        {"type", 0xf6fa41c87768a7e8ULL}, {"source_type", 0xc4726eb78b4037ceULL}, {"version", 0x4e2e0a51732dd82cULL},
        {"info", 0x28ee82696673adfcULL}, {"type_id", 0x7b660c6fca703c50ULL}, {"command", 0x2e3f465733317c69ULL}, {"", 0},
        {std::string("ab\0cd", 5), 0x014984000117d8c3ULL},  // stops at the first NUL
        // Bytes 0x80-0xFF are sign-extended: these differ from a zero-extending hash.
        {"caf\xc3\xa9", 0xba42cb72da7008e6ULL}, {"\xd0\x9f\xd1\x80\xd0\xb8\xd0\xb2\xd0\xb5\xd1\x82", 0x7ea39b5432b98976ULL},
        {"\x80", 0xffff7fffffff2680ULL}, {"\xff", 0xfffffefffffffe4dULL},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Identifier::Hash(c.name), c.id) << "name: " << c.name;
        EXPECT_EQ(Identifier(c.name.c_str()).Id(), c.id) << "name: " << c.name;
    }
    EXPECT_EQ(Identifier(nullptr).Id(), 0U);
}

}  // namespace
}  // namespace KALVO::EIL::Values
