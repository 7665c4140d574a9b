// A hand-written transcoder instead of the standard codecvt facets, which are deprecated
// (and so break warning-free builds) and differ between standard libraries in what they
// accept. Every decoder yields one code point at a time and throws on anything malformed.
#include "eil/string/Convert.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace KALVO::EIL::String {

namespace {

constexpr char32_t MaxCodePoint = 0x10FFFF;

[[noreturn]] void BadConversion() { throw std::range_error("bad conversion"); }

constexpr bool IsSurrogate(char32_t c) noexcept { return c >= 0xD800 && c <= 0xDFFF; }

void CheckScalar(char32_t c) {
    if (c > MaxCodePoint || IsSurrogate(c)) BadConversion();
}

// Decodes the code point starting at text[i] and advances i past it.
char32_t DecodeUtf8(std::string_view text, std::size_t& i) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char lead = byte(i);
    if (lead < 0x80) {
        ++i;
        return lead;
    }
    std::size_t length = 0;
    char32_t c = 0;
    char32_t minimum = 0;  // smallest code point that needs this length: anything below is overlong
    if ((lead & 0xE0) == 0xC0) {
        length = 2;
        c = lead & 0x1F;
        minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3;
        c = lead & 0x0F;
        minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4;
        c = lead & 0x07;
        minimum = 0x10000;
    } else {
        BadConversion();  // a continuation byte or 0xF8..0xFF as lead
    }
    if (text.size() - i < length) BadConversion();
    for (std::size_t k = 1; k < length; ++k) {
        const unsigned char next = byte(i + k);
        if ((next & 0xC0) != 0x80) BadConversion();
        c = (c << 6) | (next & 0x3F);
    }
    if (c < minimum) BadConversion();
    CheckScalar(c);
    i += length;
    return c;
}

char32_t DecodeUtf16(std::u16string_view text, std::size_t& i) {
    const char32_t first = text[i++];
    if (!IsSurrogate(first)) return first;
    if (first >= 0xDC00 || i == text.size()) BadConversion();  // a low half first, or nothing after
    const char32_t second = text[i];
    if (second < 0xDC00 || second > 0xDFFF) BadConversion();
    ++i;
    return 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00);
}

void AppendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

void AppendUtf16(std::u16string& out, char32_t c) {
    if (c < 0x10000) {
        out += static_cast<char16_t>(c);
    } else {
        c -= 0x10000;
        out += static_cast<char16_t>(0xD800 + (c >> 10));
        out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
    }
}

template <class Out>
Out FromUtf8(std::string_view text) {
    Out out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const char32_t c = DecodeUtf8(text, i);
        if constexpr (sizeof(typename Out::value_type) == 2) {
            AppendUtf16(out, c);
        } else {
            static_assert(sizeof(typename Out::value_type) == 4, "wide text is UTF-32 on every platform we build for");
            out += static_cast<typename Out::value_type>(c);
        }
    }
    return out;
}

template <class Char>
std::string FromUtf32(std::basic_string_view<Char> text) {
    static_assert(sizeof(Char) == 4, "wide text is UTF-32 on every platform we build for");
    std::string out;
    out.reserve(text.size());
    for (const Char unit : text) {
        // Through uint32_t: a negative wchar_t becomes a huge value and is refused.
        const auto c = static_cast<char32_t>(static_cast<std::uint32_t>(unit));
        CheckScalar(c);
        AppendUtf8(out, c);
    }
    return out;
}

}  // namespace

std::string ToUtf8(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) AppendUtf8(out, DecodeUtf16(text, i));
    return out;
}

std::string ToUtf8(std::u32string_view text) { return FromUtf32(text); }

std::u16string ToUtf16(std::string_view text) { return FromUtf8<std::u16string>(text); }

std::u32string ToUtf32(std::string_view text) { return FromUtf8<std::u32string>(text); }

namespace v1 {

std::string ToUtf8(std::wstring_view text) { return FromUtf32(text); }

std::wstring ToWide(std::string_view text) { return FromUtf8<std::wstring>(text); }

std::wstring ToWide(std::u16string_view text) {
    std::wstring out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) out += static_cast<wchar_t>(DecodeUtf16(text, i));
    return out;
}

}  // namespace v1

}  // namespace KALVO::EIL::String
