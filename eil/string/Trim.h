// Looking at and cutting the ends of a text: trims, prefix and suffix tests and cuts. All take
// and return views, so nothing is copied; a returned view points into the argument and must
// not outlive it (beware passing a temporary std::string).
//
// Whitespace for the trims without a set is space, tab, line feed, carriage return and, on
// purpose, the zero character: texts from fixed-size buffers often carry zero padding.
#pragma once

#include <string_view>

namespace KALVO::EIL::String {

namespace Detail {

template <class Char>
constexpr std::basic_string_view<Char> Whitespace() noexcept {
    // Built from the two spellings so that the embedded zero is part of the view.
    if constexpr (sizeof(Char) == 1) {
        return {" \t\n\r\0", 5};
    } else {
        return {L" \t\n\r\0", 5};
    }
}

template <class Char>
constexpr std::basic_string_view<Char> LTrim(std::basic_string_view<Char> s,
                                             std::basic_string_view<Char> set) noexcept {
    if (set.empty()) return s;
    const auto first = s.find_first_not_of(set);
    return first == s.npos ? s.substr(s.size()) : s.substr(first);
}

template <class Char>
constexpr std::basic_string_view<Char> RTrim(std::basic_string_view<Char> s,
                                             std::basic_string_view<Char> set) noexcept {
    if (set.empty()) return s;
    const auto last = s.find_last_not_of(set);
    return last == s.npos ? s.substr(0, 0) : s.substr(0, last + 1);
}

}  // namespace Detail

constexpr bool StrIsOneOf(char c, std::string_view set) noexcept { return set.find(c) != set.npos; }
constexpr bool StrIsOneOf(wchar_t c, std::wstring_view set) noexcept { return set.find(c) != set.npos; }

// Without the characters of `set` at the start, the end or both; an empty set changes nothing.
constexpr std::string_view StrLTrim(std::string_view s, std::string_view set) noexcept { return Detail::LTrim(s, set); }
constexpr std::wstring_view StrLTrim(std::wstring_view s, std::wstring_view set) noexcept {
    return Detail::LTrim(s, set);
}
constexpr std::string_view StrRTrim(std::string_view s, std::string_view set) noexcept { return Detail::RTrim(s, set); }
constexpr std::wstring_view StrRTrim(std::wstring_view s, std::wstring_view set) noexcept {
    return Detail::RTrim(s, set);
}
constexpr std::string_view StrLRTrim(std::string_view s, std::string_view set) noexcept {
    return Detail::RTrim(Detail::LTrim(s, set), set);
}
constexpr std::wstring_view StrLRTrim(std::wstring_view s, std::wstring_view set) noexcept {
    return Detail::RTrim(Detail::LTrim(s, set), set);
}

// The same with whitespace (see above).
constexpr std::string_view StrLTrim(std::string_view s) noexcept { return StrLTrim(s, Detail::Whitespace<char>()); }
constexpr std::wstring_view StrLTrim(std::wstring_view s) noexcept {
    return StrLTrim(s, Detail::Whitespace<wchar_t>());
}
constexpr std::string_view StrRTrim(std::string_view s) noexcept { return StrRTrim(s, Detail::Whitespace<char>()); }
constexpr std::wstring_view StrRTrim(std::wstring_view s) noexcept {
    return StrRTrim(s, Detail::Whitespace<wchar_t>());
}
constexpr std::string_view StrLRTrim(std::string_view s) noexcept { return StrLRTrim(s, Detail::Whitespace<char>()); }
constexpr std::wstring_view StrLRTrim(std::wstring_view s) noexcept {
    return StrLRTrim(s, Detail::Whitespace<wchar_t>());
}

// Byte (character) comparison; an empty prefix or suffix is always there.
constexpr bool StrBeginsWith(std::string_view s, std::string_view prefix) noexcept { return s.starts_with(prefix); }
constexpr bool StrBeginsWith(std::wstring_view s, std::wstring_view prefix) noexcept { return s.starts_with(prefix); }
constexpr bool StrEndsWith(std::string_view s, std::string_view suffix) noexcept { return s.ends_with(suffix); }
constexpr bool StrEndsWith(std::wstring_view s, std::wstring_view suffix) noexcept { return s.ends_with(suffix); }

// `s` without `prefix` (`suffix`) when it has it, else `s`.
constexpr std::string_view StrLCut(std::string_view s, std::string_view prefix) noexcept {
    return s.starts_with(prefix) ? s.substr(prefix.size()) : s;
}
constexpr std::wstring_view StrLCut(std::wstring_view s, std::wstring_view prefix) noexcept {
    return s.starts_with(prefix) ? s.substr(prefix.size()) : s;
}
constexpr std::string_view StrRCut(std::string_view s, std::string_view suffix) noexcept {
    return s.ends_with(suffix) ? s.substr(0, s.size() - suffix.size()) : s;
}
constexpr std::wstring_view StrRCut(std::wstring_view s, std::wstring_view suffix) noexcept {
    return s.ends_with(suffix) ? s.substr(0, s.size() - suffix.size()) : s;
}

}  // namespace KALVO::EIL::String
