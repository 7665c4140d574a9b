// FromHex against a reference of its documented rules (pairs; a pair not starting with a hex
// digit gives 0, one whose second character is not a digit gives the first digit alone; an odd
// last character is ignored), the wide form alike, and ToHexA followed by FromHex gives the
// bytes back.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "eil/string/Hex.h"
#include "fuzz/FuzzCheck.h"

namespace {

int Digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::vector<std::uint8_t> Reference(std::string_view text) {
    std::vector<std::uint8_t> out;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        const int high = Digit(text[i]), low = Digit(text[i + 1]);
        out.push_back(static_cast<std::uint8_t>(high < 0 ? 0 : low < 0 ? high : high * 16 + low));
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::vector<std::uint8_t> decoded;
    KALVO_FUZZ_CHECK(KALVO::EIL::String::FromHex(text, decoded), "decoding never refuses a text");
    KALVO_FUZZ_CHECK(decoded == Reference(text), "FromHex equals the reference");

    std::wstring wide;
    for (const char c : text) wide += static_cast<wchar_t>(static_cast<unsigned char>(c));
    KALVO_FUZZ_CHECK(KALVO::EIL::String::FromHex(std::wstring_view(wide)) == decoded, "the wide form decodes alike");

    const std::string encoded = KALVO::EIL::String::ToHexA(text);
    const std::vector<std::uint8_t> back = KALVO::EIL::String::FromHex(encoded);
    KALVO_FUZZ_CHECK(std::string(back.begin(), back.end()) == text, "decoding an encoding gives the bytes back");
    return 0;
}
