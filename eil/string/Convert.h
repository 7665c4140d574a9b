// Conversions between UTF-8 (narrow text), UTF-16, UTF-32 and wide text (wchar_t, which is
// 32-bit on our platforms and therefore UTF-32). Texts from the host are hostile, so the
// decoders are strict: malformed or truncated UTF-8, overlong forms, lone surrogates and
// code points beyond U+10FFFF throw std::range_error("bad conversion"); nothing is replaced.
#pragma once

#include <string>
#include <string_view>

namespace KALVO::EIL::String {

std::string ToUtf8(std::u16string_view text);
std::string ToUtf8(std::u32string_view text);

std::u16string ToUtf16(std::string_view text);
std::u32string ToUtf32(std::string_view text);

namespace v1 {

std::string ToUtf8(std::wstring_view text);

std::wstring ToWide(std::string_view text);

// Widens UTF-16 (surrogate pairs joined into one wide character).
std::wstring ToWide(std::u16string_view text);

}  // namespace v1

}  // namespace KALVO::EIL::String
