#include "eil/string/Hex.h"

#include <new>

namespace KALVO::EIL::String {

namespace {

constexpr std::string_view Digits = "0123456789ABCDEF";

template <class Out>
Out ToHex(const std::uint8_t* data, std::size_t size) {
    Out out;
    out.reserve(size * 2);
    for (std::size_t i = 0; i < size; ++i) {
        out += static_cast<typename Out::value_type>(Digits[data[i] >> 4]);
        out += static_cast<typename Out::value_type>(Digits[data[i] & 0x0F]);
    }
    return out;
}

template <class Char>
int DigitValue(Char c) noexcept {
    if (c >= Char('0') && c <= Char('9')) return static_cast<int>(c - Char('0'));
    if (c >= Char('a') && c <= Char('f')) return static_cast<int>(c - Char('a')) + 10;
    if (c >= Char('A') && c <= Char('F')) return static_cast<int>(c - Char('A')) + 10;
    return -1;
}

template <class Char>
bool Decode(std::basic_string_view<Char> text, std::vector<std::uint8_t>& out) noexcept {
    out.clear();
    try {
        out.reserve(text.size() / 2);
    } catch (const std::bad_alloc&) {
        return false;
    }
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        std::uint8_t byte = 0;
        if (const int high = DigitValue(text[i]); high >= 0) {
            const int low = DigitValue(text[i + 1]);
            byte = static_cast<std::uint8_t>(low >= 0 ? high * 16 + low : high);
        }
        out.push_back(byte);  // within the reserved capacity: cannot throw
    }
    return true;
}

template <class Char>
std::vector<std::uint8_t> DecodeOrThrow(std::basic_string_view<Char> text) {
    std::vector<std::uint8_t> out;
    if (!Decode(text, out)) throw std::bad_alloc();
    return out;
}

const std::uint8_t* Bytes(std::string_view bytes) noexcept {
    return reinterpret_cast<const std::uint8_t*>(bytes.data());
}

}  // namespace

std::string ToHexA(std::span<const std::uint8_t> bytes) { return ToHex<std::string>(bytes.data(), bytes.size()); }
std::string ToHexA(std::string_view bytes) { return ToHex<std::string>(Bytes(bytes), bytes.size()); }
std::wstring ToHexW(std::span<const std::uint8_t> bytes) { return ToHex<std::wstring>(bytes.data(), bytes.size()); }
std::wstring ToHexW(std::string_view bytes) { return ToHex<std::wstring>(Bytes(bytes), bytes.size()); }

bool FromHex(std::string_view text, std::vector<std::uint8_t>& out) noexcept { return Decode(text, out); }
bool FromHex(std::wstring_view text, std::vector<std::uint8_t>& out) noexcept { return Decode(text, out); }
std::vector<std::uint8_t> FromHex(std::string_view text) { return DecodeOrThrow(text); }
std::vector<std::uint8_t> FromHex(std::wstring_view text) { return DecodeOrThrow(text); }

}  // namespace KALVO::EIL::String
