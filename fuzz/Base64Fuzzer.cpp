// FromBase64 against a plain reference decoder of the same lenient rules (decode the longest
// prefix of alphabet characters; a final group of two or three gives one or two bytes, a lone
// character nothing), and ToBase64A followed by FromBase64 gives the bytes back.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "eil/string/Base64.h"
#include "fuzz/FuzzCheck.h"

namespace {

int Value(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

std::string Reference(std::string_view text) {
    std::string out;
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : text) {
        const int value = Value(c);
        if (value < 0) break;
        bits = (bits << 6) | static_cast<std::uint32_t>(value);
        if (++count == 4) {
            out += static_cast<char>((bits >> 16) & 0xFF);
            out += static_cast<char>((bits >> 8) & 0xFF);
            out += static_cast<char>(bits & 0xFF);
            bits = 0;
            count = 0;
        }
    }
    if (count == 2) out += static_cast<char>((bits >> 4) & 0xFF);
    if (count == 3) {
        out += static_cast<char>((bits >> 10) & 0xFF);
        out += static_cast<char>((bits >> 2) & 0xFF);
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::string decoded;
    KALVO_FUZZ_CHECK(KALVO::EIL::String::FromBase64(text, decoded), "decoding never refuses a text");
    KALVO_FUZZ_CHECK(decoded == Reference(text), "FromBase64 equals the reference decoder");
    KALVO_FUZZ_CHECK(KALVO::EIL::String::FromBase64(text) == decoded, "both forms decode alike");

    const std::string encoded = KALVO::EIL::String::ToBase64A(text);
    KALVO_FUZZ_CHECK(encoded.size() % 4 == 0, "encoding pads to groups of four");
    KALVO_FUZZ_CHECK(KALVO::EIL::String::FromBase64(encoded) == text, "decoding an encoding gives the bytes back");
    return 0;
}
