// Raw buffers at the C boundary: whether two byte ranges overlap (before a copy that would
// need memmove), and copying a text into a caller-sized buffer with the usual two-call
// protocol (ask for the size, then fetch).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace KALVO::EIL::String {

// Whether [a, a + aLength) and [b, b + bLength) share at least one byte; an empty range shares none.
inline bool Overlap(const void* a, std::size_t aLength, const void* b, std::size_t bLength) noexcept {
    if (aLength == 0 || bLength == 0) return false;
    // Compared as integers: relational operators on unrelated pointers are unspecified.
    const auto aBegin = reinterpret_cast<std::uintptr_t>(a);
    const auto bBegin = reinterpret_cast<std::uintptr_t>(b);
    return aBegin < bBegin ? bBegin - aBegin < aLength : aBegin - bBegin < bLength;
}

namespace Detail {

template <class Char>
bool SetText(Char* buffer, std::size_t& size, std::basic_string_view<Char> text) noexcept {
    const std::size_t needed = text.size() + 1;
    if (buffer == nullptr || size < needed) {
        size = needed;
        return false;
    }
    text.copy(buffer, text.size());
    buffer[text.size()] = Char(0);
    size = needed;
    return true;
}

}  // namespace Detail

// Copies `text` and a terminating zero into `buffer`, whose capacity in characters `size`
// gives. On return `size` holds the characters written or, when the buffer is missing or too
// small, the characters needed; both count the terminator. Nothing is written when it does
// not fit, and then the result is false.
inline bool SetText(char* buffer, std::size_t& size, std::string_view text) noexcept {
    return Detail::SetText(buffer, size, text);
}
inline bool SetText(wchar_t* buffer, std::size_t& size, std::wstring_view text) noexcept {
    return Detail::SetText(buffer, size, text);
}

}  // namespace KALVO::EIL::String
