// The two normalisations written as the regular expressions they stand for: the reference the
// hand-written scanners are checked (tests) and measured (benchmarks) against. The
// library engines recurse per matched character, so only texts of a few kilobytes are safe.
#pragma once

#include <regex>
#include <string>

namespace KALVO::Testing {

class RegexNormalizer {
public:
    // Compiled once per process.
    static const RegexNormalizer& Instance() {
        static const RegexNormalizer normalizer;
        return normalizer;
    }

    // The four command-line replacements, each on the result of the one before.
    void CommandLine(std::string& text) const {
        if (text.empty()) return;
        text = std::regex_replace(text, m_sha256, "<sha256>");
        text = std::regex_replace(text, m_md5, "<md5>");
        text = std::regex_replace(text, m_number, "<number>");
        text = std::regex_replace(text, m_tmp, "<tmp>");
    }

    void ProcessPath(std::string& text) const { text = std::regex_replace(text, m_container, "container:"); }

private:
    RegexNormalizer() = default;

    std::regex m_sha256{R"(\b[a-fA-F0-9]{64}\b)"};
    std::regex m_md5{R"(\b[a-fA-F0-9]{32}\b)"};
    std::regex m_number{R"(\d{4,})"};
    std::regex m_tmp{R"(\/tmp\/[^\s<]+)"};
    std::regex m_container{R"(^/proc/\d+/root)"};
};

}  // namespace KALVO::Testing
