// Splitting a text at a separator and joining parts with one, narrow and wide alike.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace KALVO::EIL::String {

namespace Detail {

template <class Char>
std::vector<std::basic_string<Char>> Split(std::basic_string_view<Char> s, std::basic_string_view<Char> separator,
                                           bool keepEmpty) {
    std::vector<std::basic_string<Char>> parts;
    if (s.empty()) {
        if (keepEmpty) parts.emplace_back();
        return parts;
    }
    if (separator.empty()) {
        parts.emplace_back(s);
        return parts;
    }
    std::size_t start = 0;
    while (true) {
        const auto at = s.find(separator, start);
        const auto piece = s.substr(start, at == s.npos ? s.npos : at - start);
        if (keepEmpty || !piece.empty()) parts.emplace_back(piece);
        if (at == s.npos) return parts;
        start = at + separator.size();
    }
}

template <class Char>
std::basic_string<Char> Join(const std::vector<std::basic_string<Char>>& parts,
                             std::basic_string_view<Char> separator) {
    std::basic_string<Char> out;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i != 0) out.append(separator);
        out.append(parts[i]);
    }
    return out;
}

}  // namespace Detail

// The pieces of `s` between non-overlapping occurrences of `separator`, left to right. Empty
// pieces (adjacent separators, a separator at either end) are dropped unless `keepEmpty`; an
// empty `s` gives no piece (one empty piece with `keepEmpty`); an empty separator gives `s`.
inline std::vector<std::string> StrSplit(std::string_view s, std::string_view separator, bool keepEmpty) {
    return Detail::Split(s, separator, keepEmpty);
}
inline std::vector<std::wstring> StrSplit(std::wstring_view s, std::wstring_view separator, bool keepEmpty) {
    return Detail::Split(s, separator, keepEmpty);
}

// `parts` with `separator` between neighbours.
inline std::string StrJoin(const std::vector<std::string>& parts, std::string_view separator) {
    return Detail::Join(parts, separator);
}
inline std::wstring StrJoin(const std::vector<std::wstring>& parts, std::wstring_view separator) {
    return Detail::Join(parts, separator);
}

}  // namespace KALVO::EIL::String
