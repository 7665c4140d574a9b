// Case mapping of the POSIX locale: only the ASCII letters change. Done by hand rather than with
// toupper/towupper so that the result never depends on a locale the host process may have set.
#pragma once

#include <string>
#include <string_view>

namespace KALVO::EIL::String {

namespace Detail {

template <class Char>
constexpr Char AsciiLower(Char c) noexcept {
    return c >= Char('A') && c <= Char('Z') ? static_cast<Char>(c - Char('A') + Char('a')) : c;
}

template <class Char>
constexpr Char AsciiUpper(Char c) noexcept {
    return c >= Char('a') && c <= Char('z') ? static_cast<Char>(c - Char('a') + Char('A')) : c;
}

template <class Char, class Map>
std::basic_string<Char> MapChars(std::basic_string_view<Char> s, Map map) {
    std::basic_string<Char> out(s);
    for (auto& c : out) c = map(c);
    return out;
}

}  // namespace Detail

inline std::string StrUpper(std::string_view s) { return Detail::MapChars(s, Detail::AsciiUpper<char>); }
inline std::wstring StrUpper(std::wstring_view s) { return Detail::MapChars(s, Detail::AsciiUpper<wchar_t>); }
inline std::string StrLower(std::string_view s) { return Detail::MapChars(s, Detail::AsciiLower<char>); }
inline std::wstring StrLower(std::wstring_view s) { return Detail::MapChars(s, Detail::AsciiLower<wchar_t>); }

}  // namespace KALVO::EIL::String
