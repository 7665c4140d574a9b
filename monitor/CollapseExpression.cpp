#include "monitor/CollapseExpression.h"

#include <algorithm>
#include <vector>

namespace KALVO::SecurityMonitor {

namespace {

constexpr std::size_t Saturated = MaxCollapseExpressionAtoms + 1;

std::size_t SaturatingAdd(std::size_t a, std::size_t b) { return std::min(a + b, Saturated); }

std::size_t SaturatingMultiply(std::size_t a, std::size_t b) {
    if (a == 0 || b == 0) return 0;
    return a > Saturated / b ? Saturated : std::min(a * b, Saturated);
}

constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }

constexpr char AsciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Printable ASCII that ECMAScript gives no meaning outside a class: such a pattern is a literal.
// Control characters and bytes above 0x7F go to the regular expression, whose case folding
// depends on the locale.
bool IsLiteral(std::string const& pattern) {
    static constexpr std::string_view Meta = "^$\\.*+?()[]{}|";
    return std::all_of(pattern.begin(), pattern.end(),
                       [](char c) { return c >= 0x20 && c <= 0x7E && Meta.find(c) == std::string_view::npos; });
}

// Reads "{n}", "{n,}" or "{n,m}" at `pos` (which is at "{"); on success returns the count an
// unrolled repetition needs and moves `pos` onto the closing brace. Numbers saturate.
bool ReadCountedRepetition(std::string_view pattern, std::size_t& pos, std::size_t& count) {
    std::size_t at = pos + 1;
    auto readNumber = [&](std::size_t& number) {
        const std::size_t start = at;
        number = 0;
        for (; at < pattern.size() && IsDigit(pattern[at]); ++at)
            number = SaturatingAdd(SaturatingMultiply(number, 10), static_cast<std::size_t>(pattern[at] - '0'));
        return at > start;
    };
    std::size_t lower = 0;
    std::size_t upper = 0;
    if (!readNumber(lower)) return false;
    bool openEnded = false;
    if (at < pattern.size() && pattern[at] == ',') {
        ++at;
        openEnded = !readNumber(upper);
    } else {
        upper = lower;
    }
    if (at >= pattern.size() || pattern[at] != '}') return false;
    pos = at;
    // An open-ended repetition unrolls into its minimum and one starred copy.
    count = std::max<std::size_t>(1, openEnded ? SaturatingAdd(lower, 1) : std::max(lower, upper));
    return true;
}

}  // namespace

std::size_t CollapseExpressionAtoms(std::string_view pattern) {
    struct Group {
        std::size_t total = 0;  // atoms of everything in the group so far
        std::size_t last = 0;   // atoms of the item a following quantifier repeats
    };
    std::vector<Group> groups(1);
    auto addItem = [&](std::size_t atoms) {
        groups.back().total = SaturatingAdd(groups.back().total, atoms);
        groups.back().last = atoms;
    };

    for (std::size_t pos = 0; pos < pattern.size(); ++pos) {
        switch (pattern[pos]) {
        case '\\':
            ++pos;  // the escaped character is part of one atom
            addItem(1);
            break;
        case '[': {
            // A class is one atom; it ends at the first unescaped ']' after its first character.
            ++pos;
            if (pos < pattern.size() && pattern[pos] == '^') ++pos;
            for (; pos < pattern.size() && pattern[pos] != ']'; ++pos)
                if (pattern[pos] == '\\') ++pos;
            addItem(1);
            break;
        }
        case '(':
            if (pos + 1 < pattern.size() && pattern[pos + 1] == '?') pos += 2;  // (?: (?= (?!
            groups.emplace_back();
            break;
        case ')':
            if (groups.size() > 1) {
                const std::size_t atoms = SaturatingAdd(groups.back().total, 1);
                groups.pop_back();
                addItem(atoms);
            } else {
                addItem(1);
            }
            break;
        case '|': groups.back().last = 0; break;
        case '{': {
            std::size_t count = 0;
            if (ReadCountedRepetition(pattern, pos, count)) {
                Group& group = groups.back();
                const std::size_t copies = SaturatingMultiply(group.last, count - 1);
                group.total = SaturatingAdd(group.total, copies);
                group.last = SaturatingAdd(group.last, copies);
            } else {
                addItem(1);
            }
            break;
        }
        case '*':
        case '+':
        case '?': groups.back().total = SaturatingAdd(groups.back().total, 1); break;
        default: addItem(1); break;
        }
    }
    // Unclosed groups (the compiler refuses them anyway) count with their contents.
    while (groups.size() > 1) {
        const std::size_t atoms = groups.back().total;
        groups.pop_back();
        addItem(atoms);
    }
    return groups.back().total;
}

CollapseExpression::CollapseExpression(std::string const& pattern) {
    if (pattern.size() > MaxCollapsePatternLength) throw std::regex_error(std::regex_constants::error_complexity);
    if (IsLiteral(pattern)) {
        m_literal = true;
        m_text.resize(pattern.size());
        std::transform(pattern.begin(), pattern.end(), m_text.begin(), AsciiLower);
        return;
    }
    if (CollapseExpressionAtoms(pattern) > MaxCollapseExpressionAtoms)
        throw std::regex_error(std::regex_constants::error_complexity);
    auto flags = std::regex_constants::ECMAScript | std::regex_constants::icase;
#if defined(__GLIBCXX__)
    flags |= std::regex_constants::__polynomial;
#endif
    m_regex = std::regex(pattern, flags);
}

bool CollapseExpression::MatchesWhole(std::string_view text) const {
    if (m_literal) {
        return text.size() == m_text.size() &&
               std::equal(text.begin(), text.end(), m_text.begin(),
                          [](char c, char lowered) { return AsciiLower(c) == lowered; });
    }
    return std::regex_match(text.begin(), text.end(), m_regex);
}

}  // namespace KALVO::SecurityMonitor
