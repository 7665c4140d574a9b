// The UTF conversions: every scalar value through every form and back, and the malformed
// inputs a strict decoder must refuse.
#include "eil/string/Convert.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "tests/support/Scaled.h"

namespace {

using namespace KALVO::EIL::String;

constexpr char32_t ScalarStep = KALVO::Testing::Scaled<char32_t>(1, 17);  // reduced: a sample of the code points

TEST(Convert, EveryScalarValueRoundTripsThroughEveryForm) {
    // U+0000 included: the decoders must not stop at a zero.
    std::u32string all;
    for (char32_t c = 0; c <= 0x10FFFF; c += ScalarStep) if (c < 0xD800 || c > 0xDFFF) all += c;
    const std::string utf8 = ToUtf8(all);
    EXPECT_EQ(ToUtf32(utf8), all);
    const std::u16string utf16 = ToUtf16(utf8);
    const auto supplementary = std::count_if(all.begin(), all.end(), [](char32_t c) { return c > 0xFFFF; });
    EXPECT_EQ(utf16.size(), all.size() + static_cast<std::size_t>(supplementary));  // one extra unit each
    EXPECT_EQ(ToUtf8(utf16), utf8);
    const std::wstring wide = v1::ToWide(utf8);
    EXPECT_EQ(std::u32string(wide.begin(), wide.end()), all);
    EXPECT_EQ(v1::ToUtf8(wide), utf8);
    EXPECT_EQ(v1::ToWide(utf16), wide);
    EXPECT_EQ(ToUtf8(std::u32string(1, 0x10000)), "\xF0\x90\x80\x80");
}

TEST(Convert, RefusesMalformedUtf8AndLoneSurrogates) {
    const std::string cases[] = {
        "\x80", "a\xBF", "\xC2", "\xE2\x82", "\xF0\x9F\x98", "\xC2\x41",  // stray or truncated forms
        "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF",         // overlong forms
        "\xED\xA0\x80", "\xED\xBF\xBF", "\xF4\x90\x80\x80",                  // surrogates, U+110000
        "\xF8\x88\x80\x80\x80", "\xFE", "\xFF",
    };
    for (const auto& input : cases) {
        EXPECT_THROW(ToUtf16(input), std::range_error) << ::testing::PrintToString(input);
        EXPECT_THROW(ToUtf32(input), std::range_error) << ::testing::PrintToString(input);
        EXPECT_THROW(v1::ToWide(input), std::range_error) << ::testing::PrintToString(input);
    }
    EXPECT_THROW(ToUtf8(std::u16string(u"a\xD800")), std::range_error);
    EXPECT_THROW(ToUtf8(std::u32string(1, 0x110000)), std::range_error);
}

}  // namespace
