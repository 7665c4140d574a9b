// The configured process-tree collapse expression (ECMAScript, case-insensitive), matched
// against whole normalised command lines on every process creation.
//
// The expression is an administrator's, but a typo must not take the host down: it is matched
// on host threads against command lines any user chooses. With libstdc++ it is compiled for
// the library's non-recursive (polynomial) executor, which refuses back-references; libc++
// matches without recursion already and throws a complexity error on runaway backtracking.
// Compiling recurses in both, so overlong expressions are refused before the compiler sees
// them, and so are expressions whose counted repetitions ("{n}", "{n,m}") would unroll into
// more states than any command line should be walked with.
//
// An expression without metacharacters (the default one among them) matches exactly the texts
// equal to it ignoring ASCII case; it is compared as text, which is what makes the default
// cheap on the hot path.
#pragma once

#include <cstddef>
#include <regex>
#include <string>
#include <string_view>

namespace KALVO::SecurityMonitor {

// Longer expressions are refused like invalid ones: compiling a regular expression recurses,
// and a 10,000-character one overflows a 512 KiB host thread while being compiled.
inline constexpr std::size_t MaxCollapsePatternLength = 256;

// Refused above this many unrolled atoms: the matcher's cost per character grows with them.
// 512 is twice what the longest expression without counted repetitions can have; with g++ 12
// such an expression already costs about 16 ms on a 1,000-character command line, and
// `(.*.*.*){5000}`, short as it is, would cost seconds.
inline constexpr std::size_t MaxCollapseExpressionAtoms = 512;

class CollapseExpression {
public:
    // Throws std::regex_error for an invalid, unsupported, overlong or over-repeated expression.
    explicit CollapseExpression(std::string const& pattern);

    // True when the whole of `text` matches (std::regex_match, not a search). May throw
    // std::regex_error when the library's matcher gives up on a pathological text.
    bool MatchesWhole(std::string_view text) const;

private:
    bool m_literal = false;  // no metacharacter: m_text is compared instead of m_regex
    std::string m_text;      // the literal, lowered (ASCII)
    std::regex m_regex;
};

// How many atoms `pattern` unrolls into, counting every counted repetition as its upper bound
// (its lower bound when open-ended); saturates just above MaxCollapseExpressionAtoms.
// Linear, non-recursive. Exposed for the tests.
std::size_t CollapseExpressionAtoms(std::string_view pattern);

}  // namespace KALVO::SecurityMonitor
