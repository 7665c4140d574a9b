// Hex and Base64: the standard vectors, the lenient reading of what is not in the alphabet, and
// random bytes through the round trip.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "eil/string/Base64.h"
#include "eil/string/Hex.h"

namespace {

using namespace KALVO::EIL::String;
using Bytes = std::vector<std::uint8_t>;

std::string RandomBytes(std::mt19937& random, std::size_t size) {
    std::uniform_int_distribution<int> byte(0, 255);
    std::string bytes(size, '\0');
    for (auto& c : bytes) c = static_cast<char>(byte(random));
    return bytes;
}

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

TEST(Base64, RoundTripsRandomBytes) {
    std::mt19937 random(5);
    for (std::size_t size = 0; size < 300; ++size) {
        const std::string bytes = RandomBytes(random, size);
        const std::string text = ToBase64A(bytes);
        ASSERT_EQ(text.size() % 4, 0u);
        ASSERT_EQ(FromBase64(text), bytes) << size;
    }
}

}  // namespace
