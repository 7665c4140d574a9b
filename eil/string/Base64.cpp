#include "eil/string/Base64.h"

#include <array>
#include <new>
#include <type_traits>

namespace KALVO::EIL::String {

namespace {

constexpr int NotInAlphabet = -1;

constexpr std::array<int, 256> MakeDecodeTable() {
    std::array<int, 256> table{};
    table.fill(NotInAlphabet);
    for (std::size_t i = 0; i < Base64Chars.size(); ++i)
        table[static_cast<unsigned char>(Base64Chars[i])] = static_cast<int>(i);
    return table;
}

constexpr auto DecodeTable = MakeDecodeTable();

template <class Char>
int SextetOf(Char c) noexcept {
    // Wide characters beyond one byte are outside the alphabet, exactly as their UTF-8 bytes would be.
    const auto code = static_cast<std::make_unsigned_t<Char>>(c);
    return code < DecodeTable.size() ? DecodeTable[code] : NotInAlphabet;
}

template <class Out>
Out Encode(const std::uint8_t* data, std::size_t size) {
    using Char = typename Out::value_type;
    const auto put = [](Out& out, std::uint32_t sextet) { out += static_cast<Char>(Base64Chars[sextet & 0x3F]); };
    Out out;
    out.reserve((size + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 3 <= size; i += 3) {
        const std::uint32_t group = (std::uint32_t{data[i]} << 16) | (std::uint32_t{data[i + 1]} << 8) | data[i + 2];
        put(out, group >> 18);
        put(out, group >> 12);
        put(out, group >> 6);
        put(out, group);
    }
    if (const std::size_t rest = size - i; rest != 0) {
        const std::uint32_t group = (std::uint32_t{data[i]} << 16) | (rest == 2 ? std::uint32_t{data[i + 1]} << 8 : 0);
        put(out, group >> 18);
        put(out, group >> 12);
        if (rest == 2) {
            put(out, group >> 6);
        } else {
            out += Char('=');
        }
        out += Char('=');
    }
    return out;
}

template <class Char, class Out>
bool Decode(std::basic_string_view<Char> text, Out& out) noexcept {
    out.clear();
    std::size_t length = 0;
    while (length < text.size() && SextetOf(text[length]) != NotInAlphabet) ++length;
    try {
        out.reserve(length / 4 * 3 + 2);
    } catch (const std::bad_alloc&) {
        return false;
    }
    using Byte = typename Out::value_type;
    std::uint32_t group = 0;
    std::size_t filled = 0;
    for (std::size_t i = 0; i < length; ++i) {
        group = (group << 6) | static_cast<std::uint32_t>(SextetOf(text[i]));
        if (++filled == 4) {
            out.push_back(static_cast<Byte>(group >> 16));
            out.push_back(static_cast<Byte>(group >> 8));
            out.push_back(static_cast<Byte>(group));
            group = 0;
            filled = 0;
        }
    }
    // Within the reserved capacity: none of the push_backs can throw.
    if (filled == 2) {
        out.push_back(static_cast<Byte>(group >> 4));
    } else if (filled == 3) {
        out.push_back(static_cast<Byte>(group >> 10));
        out.push_back(static_cast<Byte>(group >> 2));
    }
    return true;
}

template <class Char>
std::string DecodeOrThrow(std::basic_string_view<Char> text) {
    std::string out;
    if (!Decode(text, out)) throw std::bad_alloc();
    return out;
}

const std::uint8_t* Bytes(std::string_view bytes) noexcept {
    return reinterpret_cast<const std::uint8_t*>(bytes.data());
}

}  // namespace

std::string ToBase64A(std::span<const std::uint8_t> bytes) { return Encode<std::string>(bytes.data(), bytes.size()); }
std::string ToBase64A(std::string_view bytes) { return Encode<std::string>(Bytes(bytes), bytes.size()); }
std::wstring ToBase64W(std::span<const std::uint8_t> bytes) { return Encode<std::wstring>(bytes.data(), bytes.size()); }
std::wstring ToBase64W(std::string_view bytes) { return Encode<std::wstring>(Bytes(bytes), bytes.size()); }

bool FromBase64(std::string_view text, std::string& out) noexcept { return Decode(text, out); }
bool FromBase64(std::string_view text, std::vector<std::uint8_t>& out) noexcept { return Decode(text, out); }
bool FromBase64(std::wstring_view text, std::string& out) noexcept { return Decode(text, out); }
bool FromBase64(std::wstring_view text, std::vector<std::uint8_t>& out) noexcept { return Decode(text, out); }
std::string FromBase64(std::string_view text) { return DecodeOrThrow(text); }
std::string FromBase64(std::wstring_view text) { return DecodeOrThrow(text); }

}  // namespace KALVO::EIL::String
