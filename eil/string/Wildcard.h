// Shell-style wildcard matching ("*" any run, "?" one character, "\" makes the next pattern
// character literal), ignoring ASCII case. Patterns and texts may both come from the host, so
// the matcher is a loop that backtracks only to the most recent star: no recursion, and at
// worst pattern length times text length steps.
#pragma once

#include <string>
#include <string_view>

#include "eil/string/Case.h"

namespace KALVO::EIL::String {

namespace Detail {

template <class Char>
bool WildcardMatchI(std::basic_string_view<Char> pattern, std::basic_string_view<Char> text) noexcept {
    constexpr Char Star = '*';
    constexpr Char Any = '?';
    constexpr Char Escape = '\\';
    constexpr auto None = std::basic_string_view<Char>::npos;
    std::size_t p = 0;               // pattern position
    std::size_t t = 0;               // text position
    std::size_t starPattern = None;  // pattern position just after the most recent star
    std::size_t starText = 0;        // text position that star's match currently ends at
    while (t < text.size()) {
        if (p < pattern.size()) {
            const Char c = pattern[p];
            if (c == Star) {
                starPattern = ++p;
                starText = t;
                continue;
            }
            if (c == Any) {
                ++p;
                ++t;
                continue;
            }
            // An escape with nothing after it matches no character (it is ignored only at the end).
            const bool escaped = c == Escape;
            if (!escaped || p + 1 < pattern.size()) {
                const Char literal = escaped ? pattern[p + 1] : c;
                if (AsciiLower(literal) == AsciiLower(text[t])) {
                    p += escaped ? 2 : 1;
                    ++t;
                    continue;
                }
            }
        }
        if (starPattern == None) return false;
        p = starPattern;
        t = ++starText;
    }
    while (p < pattern.size() && pattern[p] == Star) ++p;
    // A single backslash left at the end is a dangling escape and deliberately ignored.
    return p == pattern.size() || (p + 1 == pattern.size() && pattern[p] == Escape);
}

template <class Char>
std::basic_string<Char> WildcardEscape(std::basic_string_view<Char> s) {
    std::basic_string<Char> out;
    out.reserve(s.size());
    for (const Char c : s) {
        if (c == Char('*') || c == Char('?') || c == Char('\\')) out += Char('\\');
        out += c;
    }
    return out;
}

}  // namespace Detail

// Whether `pattern` matches the whole of `text`, ASCII letters compared without case.
inline bool WildcardMatchI(std::string_view pattern, std::string_view text) noexcept {
    return Detail::WildcardMatchI(pattern, text);
}
inline bool WildcardMatchI(std::wstring_view pattern, std::wstring_view text) noexcept {
    return Detail::WildcardMatchI(pattern, text);
}

// `s` with a backslash before every "*", "?" and backslash, so that it matches only itself.
inline std::string WildcardEscape(std::string_view s) { return Detail::WildcardEscape(s); }
inline std::wstring WildcardEscape(std::wstring_view s) { return Detail::WildcardEscape(s); }

}  // namespace KALVO::EIL::String
