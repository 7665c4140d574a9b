// WildcardMatchI against a dynamic-programming reference of the same language ("*" any run,
// "?" one character, "\" escapes the next, a lone "\" at the end matches nothing, ASCII case
// ignored), and WildcardEscape(s) must match s alone. Input: pattern, NUL, text (each at most
// 256 bytes, so the quadratic reference stays fast).
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "eil/string/Wildcard.h"
#include "fuzz/FuzzCheck.h"

using KALVO::EIL::String::WildcardEscape;
using KALVO::EIL::String::WildcardMatchI;

namespace {

enum class Kind { Star, Any, Literal, Nothing };
struct Token {
    Kind kind;
    char c = 0;
};

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::vector<Token> Tokenize(std::string_view pattern) {
    std::vector<Token> tokens;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '*') {
            tokens.push_back({Kind::Star});
        } else if (pattern[i] == '?') {
            tokens.push_back({Kind::Any});
        } else if (pattern[i] == '\\') {
            if (i + 1 < pattern.size()) {
                tokens.push_back({Kind::Literal, pattern[++i]});
            } else {
                tokens.push_back({Kind::Nothing});
            }
        } else {
            tokens.push_back({Kind::Literal, pattern[i]});
        }
    }
    return tokens;
}

// matches[i][j]: tokens from i on match text from j on.
bool ReferenceMatch(std::string_view pattern, std::string_view text) {
    const std::vector<Token> tokens = Tokenize(pattern);
    const std::size_t n = tokens.size(), m = text.size();
    std::vector<std::vector<char>> matches(n + 1, std::vector<char>(m + 1, 0));
    matches[n][m] = 1;
    for (std::size_t i = n; i-- > 0;) {
        for (std::size_t j = m + 1; j-- > 0;) {
            const Token& token = tokens[i];
            bool match = false;
            switch (token.kind) {
            case Kind::Star: match = matches[i + 1][j] || (j < m && matches[i][j + 1]); break;
            case Kind::Any: match = j < m && matches[i + 1][j + 1]; break;
            case Kind::Literal: match = j < m && Lower(token.c) == Lower(text[j]) && matches[i + 1][j + 1]; break;
            case Kind::Nothing: match = matches[i + 1][j]; break;
            }
            matches[i][j] = match;
        }
    }
    return matches[0][0];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t split = input.find('\0');
    const std::string_view pattern = input.substr(0, split);
    const std::string_view text = split == std::string_view::npos ? std::string_view() : input.substr(split + 1);
    if (pattern.size() > 256 || text.size() > 256) return 0;

    KALVO_FUZZ_CHECK(WildcardMatchI(pattern, text) == ReferenceMatch(pattern, text), "WildcardMatchI equals the reference");
    KALVO_FUZZ_CHECK(WildcardMatchI(WildcardEscape(text), text), "an escaped text matches itself");
    KALVO_FUZZ_CHECK(WildcardMatchI(WildcardEscape(pattern), pattern), "an escaped text matches itself");
    return 0;
}
