// Hex and Base64: the standard vectors (every length modulo three, both ways, every padding) and
// the lenient reading of what is not in the alphabet.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "eil/string/Base64.h"
#include "eil/string/Hex.h"

namespace {

using namespace KALVO::EIL::String;
using namespace std::string_view_literals;
using Bytes = std::vector<std::uint8_t>;

TEST(Hex, ReadsPairsAndNeverRefuses) {
    const struct {
        std::string_view text;
        Bytes bytes;
    } cases[] = {
        {"0aFF", {0x0A, 0xFF}},
        {"", {}},
        {"a", {}},                  // shorter than a pair
        {"abc", {0xAB}},            // odd last character ignored
        {"zz11", {0x00, 0x11}},     // no leading digit: 0
        {"1z", {0x01}},             // only the first is a digit: its value
        {"-1+1 1", {0x00, 0x00, 0x00}},  // no sign, no blank skipping
    };
    for (const auto& test : cases) {
        Bytes out{0x55};
        EXPECT_TRUE(FromHex(test.text, out)) << test.text;
        EXPECT_EQ(out, test.bytes) << test.text;
        EXPECT_EQ(FromHex(test.text), test.bytes) << test.text;
    }
    EXPECT_EQ(FromHex(L"7f\u0100"), (Bytes{0x7F}));
    EXPECT_EQ(ToHexA(Bytes{0x0A, 0xFF}), "0AFF");
    EXPECT_EQ(ToHexW(std::string_view("\x00\x7f", 2)), L"007F");
}

TEST(Base64, MatchesTheStandardVectors) {
    const struct {
        std::string_view bytes, text;
    } cases[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
        {"\xFB\xFF", "+/8="},
        // Every character of the alphabet, in order.
        {"\x00\x10\x83\x10\x51\x87\x20\x92\x8B\x30\xD3\x8F\x41\x14\x93\x51\x55\x97\x61\x96\x9B\x71\xD7\x9F"
         "\x82\x18\xA3\x92\x59\xA7\xA2\x9A\xAB\xB2\xDB\xAF\xC3\x1C\xB3\xD3\x5D\xB7\xE3\x9E\xBB\xF3\xDF\xBF"sv,
         "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(ToBase64A(test.bytes), test.text);
        EXPECT_EQ(FromBase64(test.text), test.bytes) << test.text;
        const std::wstring wide(test.text.begin(), test.text.end());
        EXPECT_EQ(ToBase64W(test.bytes), wide);
        EXPECT_EQ(FromBase64(wide), test.bytes) << test.text;
    }
}

TEST(Base64, StopsSilentlyAtTheFirstCharacterOutsideTheAlphabet) {
    const struct {
        std::string_view text, bytes;
    } cases[] = {
        {"Zm9v Zm9v", "foo"},   // a space ends decoding
        {"Zm9v=Zm9v", "foo"},
        {"Zm9vY", "foo"},       // a single leftover character gives nothing
        {"Zm9vYg", "foob"},     // missing padding is fine
        {"Zm9vYmE", "fooba"},
        {"*Zm9v", ""},
        {"Zm\xC3\xA9", "f"},  // two characters give one byte
    };
    for (const auto& test : cases) {
        std::string out = "stale";
        EXPECT_TRUE(FromBase64(test.text, out)) << test.text;
        EXPECT_EQ(out, test.bytes) << test.text;
        std::vector<std::uint8_t> bytes{1, 2};
        EXPECT_TRUE(FromBase64(test.text, bytes)) << test.text;
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), test.bytes) << test.text;
    }
    // A wide character whose low byte is in the alphabet is still outside it.
    EXPECT_EQ(FromBase64(L"Zm9v\u015aZm9v"), "foo");
}

}  // namespace
