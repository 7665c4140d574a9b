#include "eil/string/Convert.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>

namespace {

using namespace KALVO::EIL::String;

#ifdef KALVO_SANITIZED
constexpr int RandomRounds = 10'000;
constexpr char32_t ScalarStep = 17;  // a sample of the code points; the boundaries have their own test
#else
constexpr int RandomRounds = 100'000;
constexpr char32_t ScalarStep = 1;
#endif

std::string Hex(std::string_view bytes) {
    std::string out;
    for (unsigned char c : bytes) out += "0123456789ABCDEF"[c >> 4], out += "0123456789ABCDEF"[c & 15], out += ' ';
    return out;
}

// Every scalar value (a sample under sanitizers), with U+0000 included: the decoders must not
// stop at a zero.
std::u32string AllScalarValues() {
    std::u32string all;
    for (char32_t c = 0; c <= 0x10FFFF; c += ScalarStep) {
        if (c < 0xD800 || c > 0xDFFF) all += c;
    }
    return all;
}

TEST(Convert, EveryScalarValueRoundTripsThroughEveryForm) {
    const std::u32string all = AllScalarValues();
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
}

TEST(Convert, EncodesTheShortestFormAtEachLengthBoundary) {
    const struct {
        char32_t c;
        std::string utf8;
        std::u16string utf16;
    } cases[] = {
        {0x0, std::string(1, '\0'), std::u16string(1, u'\0')},
        {0x7F, "\x7F", u"\x7F"},
        {0x80, "\xC2\x80", u"\x80"},
        {0x7FF, "\xDF\xBF", u"\x7FF"},
        {0x800, "\xE0\xA0\x80", u"\x800"},
        {0xFFFF, "\xEF\xBF\xBF", u"\xFFFF"},
        {0x10000, "\xF0\x90\x80\x80", u"\xD800\xDC00"},
        {0x10FFFF, "\xF4\x8F\xBF\xBF", u"\xDBFF\xDFFF"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(ToUtf8(std::u32string(1, test.c)), test.utf8) << std::hex << static_cast<std::uint32_t>(test.c);
        EXPECT_EQ(ToUtf16(test.utf8), test.utf16) << std::hex << static_cast<std::uint32_t>(test.c);
    }
}

void ExpectBadConversion(const std::function<void()>& convert, const std::string& input) {
    try {
        convert();
        ADD_FAILURE() << "accepted: " << input;
    } catch (const std::range_error& error) {
        EXPECT_STREQ(error.what(), "bad conversion") << input;
    }
}

TEST(Convert, RefusesMalformedUtf8) {
    const std::string cases[] = {
        "\x80",              // continuation byte without lead
        "a\xBF",             //
        "\xC2",              // truncated two-byte form
        "\xE2\x82",          // truncated three-byte form
        "\xF0\x9F\x98",      // truncated four-byte form
        "\xC2\x41",          // lead followed by a non-continuation
        "\xC0\x80",          // overlong U+0000
        "\xC1\xBF",          // overlong U+007F
        "\xE0\x9F\xBF",      // overlong U+07FF
        "\xF0\x8F\xBF\xBF",  // overlong U+FFFF
        "\xED\xA0\x80",      // encoded high surrogate
        "\xED\xBF\xBF",      // encoded low surrogate
        "\xF4\x90\x80\x80",  // U+110000
        "\xF8\x88\x80\x80\x80", "\xFE", "\xFF",
    };
    for (const auto& input : cases) {
        ExpectBadConversion([&] { ToUtf16(input); }, Hex(input));
        ExpectBadConversion([&] { ToUtf32(input); }, Hex(input));
        ExpectBadConversion([&] { v1::ToWide(input); }, Hex(input));
    }
}

TEST(Convert, RefusesLoneSurrogatesAndValuesBeyondUnicode) {
    const std::u16string utf16[] = {u"\xD800", u"a\xD800", u"\xDC00\xD800", u"\xD800x", u"\xD800\xD800"};
    for (const auto& input : utf16) {
        ExpectBadConversion([&] { ToUtf8(input); }, "utf-16 of length " + std::to_string(input.size()));
        ExpectBadConversion([&] { v1::ToWide(input); }, "utf-16 of length " + std::to_string(input.size()));
    }
    const char32_t utf32[] = {0xD800, 0xDFFF, 0x110000, 0xFFFFFFFF};
    for (const char32_t c : utf32) {
        ExpectBadConversion([&] { ToUtf8(std::u32string(1, c)); }, std::to_string(static_cast<std::uint32_t>(c)));
        ExpectBadConversion([&] { v1::ToUtf8(std::wstring(1, static_cast<wchar_t>(c))); }, std::to_string(static_cast<std::uint32_t>(c)));
    }
}

// A strict decoder is the inverse of the encoder: whatever it accepts must encode back to the
// very same bytes, which an overlong or otherwise lenient acceptance would break.
TEST(Convert, AcceptedRandomBytesEncodeBackUnchanged) {
    std::mt19937 random(7);
    // Mostly the bytes that matter: ASCII, continuation bytes and every lead.
    std::uniform_int_distribution<int> byte(0, 255), length(1, 8);
    int accepted = 0;
    for (int round = 0; round < RandomRounds; ++round) {
        std::string input(static_cast<std::size_t>(length(random)), '\0');
        for (auto& c : input) c = static_cast<char>(byte(random));
        try {
            const std::u32string decoded = ToUtf32(input);
            ++accepted;
            ASSERT_EQ(ToUtf8(decoded), input) << Hex(input);
            ASSERT_EQ(ToUtf8(ToUtf16(input)), input) << Hex(input);
        } catch (const std::range_error&) {
        }
    }
    EXPECT_GT(accepted, 0);
}

}  // namespace
