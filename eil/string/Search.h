// Finding and replacing parts of a text, narrow and wide alike.
#pragma once

#include <string>
#include <string_view>

namespace KALVO::EIL::String {

namespace Detail {

template <class Char>
std::basic_string<Char> Replace(std::basic_string_view<Char> text, std::basic_string_view<Char> from,
                                std::basic_string_view<Char> to, bool all) {
    std::basic_string<Char> out;
    if (from.empty()) return out.assign(text);
    std::size_t done = 0;
    for (auto at = text.find(from); at != text.npos; at = text.find(from, done)) {
        out.append(text, done, at - done).append(to);
        done = at + from.size();
        if (!all) break;
    }
    return out.append(text, done);
}

}  // namespace Detail

// Whether `part` occurs in `s`. An empty part is deliberately never contained, not even in a
// non-empty text: callers use it as "has this non-empty marker".
constexpr bool StrContains(std::string_view s, std::string_view part) noexcept {
    return !part.empty() && s.find(part) != s.npos;
}
constexpr bool StrContains(std::wstring_view s, std::wstring_view part) noexcept {
    return !part.empty() && s.find(part) != s.npos;
}

// A copy of `text` with its first occurrence of `from` replaced by `to`.
inline std::string StrReplace(std::string_view text, std::string_view from, std::string_view to) {
    return Detail::Replace(text, from, to, false);
}
inline std::wstring StrReplace(std::wstring_view text, std::wstring_view from, std::wstring_view to) {
    return Detail::Replace(text, from, to, false);
}

// A copy of `text` with every occurrence of `from` replaced by `to`, left to right; the scan
// resumes after each replacement, so replacements are never rescanned. An empty `from`
// leaves the text as it is.
inline std::string StrReplaceAll(std::string_view text, std::string_view from, std::string_view to) {
    return Detail::Replace(text, from, to, true);
}
inline std::wstring StrReplaceAll(std::wstring_view text, std::wstring_view from, std::wstring_view to) {
    return Detail::Replace(text, from, to, true);
}

}  // namespace KALVO::EIL::String
