#include <array>
#include <cstdint>
#include <string_view>

#include "logging/Log.h"
#include "monitor/Normalize.h"

namespace KALVO::SecurityMonitor {

using Logging::Severity;

namespace {

// Character classes as the ECMAScript engine sees them in the classic locale: \w is ASCII
// alnum plus "_", \s is " \t\n\v\f\r", \d is 0-9; NUL and bytes >= 0x80 belong to none.
enum CharClass : std::uint8_t {
    Word = 1,
    Hex = 2,
    Digit = 4,
    EndsTmpPath = 8,  // \s or "<"
};

constexpr std::array<std::uint8_t, 256> MakeClassTable() {
    std::array<std::uint8_t, 256> table{};
    for (int c = '0'; c <= '9'; ++c) table[c] = Word | Hex | Digit;
    for (int c = 'a'; c <= 'z'; ++c) table[c] = Word | (c <= 'f' ? Hex : 0);
    for (int c = 'A'; c <= 'Z'; ++c) table[c] = Word | (c <= 'F' ? Hex : 0);
    table['_'] = Word;
    for (char c : {' ', '\t', '\n', '\v', '\f', '\r', '<'}) table[static_cast<unsigned char>(c)] = EndsTmpPath;
    return table;
}

constexpr std::array<std::uint8_t, 256> ClassTable = MakeClassTable();

inline bool Is(char c, CharClass charClass) noexcept {
    return (ClassTable[static_cast<unsigned char>(c)] & charClass) != 0;
}

constexpr std::string_view Sha256Placeholder = "<sha256>";
constexpr std::string_view Md5Placeholder = "<md5>";
constexpr std::string_view NumberPlaceholder = "<number>";
constexpr std::string_view TmpPlaceholder = "<tmp>";
constexpr std::string_view TmpPrefix = "/tmp/";
constexpr std::size_t MinimumNumberDigits = 4;
constexpr std::size_t None = std::string_view::npos;

// One left-to-right pass that yields the result of all four rules at once. It rests on these
// facts about the rules applied one after another:
// - A hash match is exactly a whole word (maximal run of word characters) made of 64 or 32 hex
//   digits: the run is hex, so \b on both sides means non-word neighbours. Placeholders are
//   framed by "<" and ">", so replacing a word never changes the words around it, and the
//   "sha256" inside "<sha256>" is no 32-digit word.
// - Digits are word characters, so the digit runs outside hash words are the original ones
//   and no placeholder adds a run of four ("<sha256>" holds three digits).
// - A placeholder holds no "/", and "t", "m", "p" are neither hex nor digits, so every "/tmp/"
//   the last rule sees is one of the original text. Its match then runs to the first white
//   space, "<", or the first character an earlier rule replaced, whose placeholder starts with
//   "<"; it must keep at least one character.
// Every character is examined a bounded number of times (a word at most twice), so the pass
// is linear; nothing recurses. Output is built only from the first replacement on.
class CommandLineScanner {
public:
    explicit CommandLineScanner(std::string_view text) noexcept : m_text(text) {}

    // True when something was replaced; the new text is then in `result`.
    bool Run(std::string& result) {
        std::size_t at = 0;
        while (at < m_text.size()) {
            if (Is(m_text[at], Word)) {
                at = IsWordStart(at) ? NormalizeWord(at) : NormalizeDigitRuns(at, WordEnd(at));
            } else if (m_text[at] == '/') {
                const std::size_t end = TmpPathEnd(at);
                if (end != None) {
                    Replace(at, end, TmpPlaceholder);
                    at = end;
                } else {
                    ++at;
                }
            } else {
                ++at;
            }
        }
        if (!m_changed) return false;
        m_out.append(m_text.substr(m_copied));
        result = std::move(m_out);
        return true;
    }

private:
    struct WordScan {
        std::size_t end;                    // one past the word's last character
        std::string_view hashPlaceholder;   // empty unless the whole word is a hash
        std::size_t firstNumber;            // start of its first run of 4+ digits, or None
    };

    bool IsWordStart(std::size_t at) const noexcept { return at == 0 || !Is(m_text[at - 1], Word); }

    std::size_t WordEnd(std::size_t at) const noexcept {
        while (at < m_text.size() && Is(m_text[at], Word)) ++at;
        return at;
    }

    WordScan ScanWord(std::size_t begin) const noexcept {
        bool allHex = true;
        std::size_t digitRun = 0;
        std::size_t firstNumber = None;
        std::size_t at = begin;
        for (; at < m_text.size(); ++at) {
            const std::uint8_t charClass = ClassTable[static_cast<unsigned char>(m_text[at])];
            if (!(charClass & Word)) break;
            allHex = allHex && (charClass & Hex);
            digitRun = (charClass & Digit) ? digitRun + 1 : 0;
            if (digitRun == MinimumNumberDigits && firstNumber == None) firstNumber = at + 1 - MinimumNumberDigits;
        }
        std::string_view hashPlaceholder;
        if (allHex && at - begin == 64) hashPlaceholder = Sha256Placeholder;
        if (allHex && at - begin == 32) hashPlaceholder = Md5Placeholder;
        return {at, hashPlaceholder, firstNumber};
    }

    // Applies the hash and number rules to the word starting at `begin`; returns its end.
    std::size_t NormalizeWord(std::size_t begin) {
        const WordScan word = ScanWord(begin);
        if (!word.hashPlaceholder.empty()) {
            Replace(begin, word.end, word.hashPlaceholder);
        } else if (word.firstNumber != None) {
            NormalizeDigitRuns(word.firstNumber, word.end);
        }
        return word.end;
    }

    // Replaces the runs of 4+ digits in [begin, end), a part of one word; returns `end`.
    std::size_t NormalizeDigitRuns(std::size_t begin, std::size_t end) {
        std::size_t at = begin;
        while (at < end) {
            if (!Is(m_text[at], Digit)) {
                ++at;
                continue;
            }
            const std::size_t runStart = at;
            while (at < end && Is(m_text[at], Digit)) ++at;
            if (at - runStart >= MinimumNumberDigits) Replace(runStart, at, NumberPlaceholder);
        }
        return end;
    }

    // The end of the temporary path matched at `slash`, or None when none starts there.
    std::size_t TmpPathEnd(std::size_t slash) const noexcept {
        if (m_text.size() - slash <= TmpPrefix.size() || m_text.compare(slash, TmpPrefix.size(), TmpPrefix) != 0) {
            return None;
        }
        const std::size_t begin = slash + TmpPrefix.size();
        std::size_t at = begin;
        while (at < m_text.size()) {
            const char c = m_text[at];
            if (Is(c, EndsTmpPath)) break;
            if (!Is(c, Word)) {
                ++at;
                continue;
            }
            // Words are entered at their start here: "/tmp/" ends with a non-word character
            // and the loop steps over whole words.
            const WordScan word = ScanWord(at);
            if (!word.hashPlaceholder.empty()) break;
            if (word.firstNumber != None) {
                at = word.firstNumber;
                break;
            }
            at = word.end;
        }
        return at == begin ? None : at;
    }

    void Replace(std::size_t begin, std::size_t end, std::string_view placeholder) {
        if (!m_changed) {
            m_out.reserve(m_text.size());
            m_changed = true;
        }
        m_out.append(m_text.substr(m_copied, begin - m_copied));
        m_out.append(placeholder);
        m_copied = end;
    }

    std::string_view m_text;
    std::string m_out;
    std::size_t m_copied = 0;  // m_text before this offset is already in m_out
    bool m_changed = false;
};

}  // namespace

void NormalizeCommandline(std::string& commandLine) noexcept {
    if (commandLine.empty()) return;
    try {
        std::string normalized;
        if (CommandLineScanner(commandLine).Run(normalized)) commandLine = std::move(normalized);
    } catch (...) {
        Logging::Log::CurrentException(Severity::Error, "unable to normalize command line");
    }
}

}  // namespace KALVO::SecurityMonitor
