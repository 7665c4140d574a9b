#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "logging/Log.h"
#include "monitor/CharBlock.h"
#include "monitor/Normalize.h"

namespace KALVO::SecurityMonitor {

using Logging::Severity;

namespace {

// The classes the scanners test one character at a time, as the ECMAScript engine sees them
// in the classic locale: \w is ASCII alnum plus "_", \s is " \t\n\v\f\r"; NUL and bytes >= 0x80
// belong to neither. Runs of word characters are scanned eight at a time (CharBlock).
enum CharClass : std::uint8_t {
    Word = 1,
    EndsTmpPath = 2,  // \s or "<"
};

constexpr std::array<std::uint8_t, 256> MakeClassTable() {
    std::array<std::uint8_t, 256> table{};
    for (int c = '0'; c <= '9'; ++c) table[c] = Word;
    for (int c = 'a'; c <= 'z'; ++c) table[c] = Word;
    for (int c = 'A'; c <= 'Z'; ++c) table[c] = Word;
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
// Most text holds nothing to replace, so a fast path classifies it eight characters at a time
// and hands only the blocks where a rule may match, from the start of the word they begin in,
// to the exact path. Every character is examined a bounded number of times, so the pass is
// linear; nothing recurses. Output is built only from the first replacement on.
class CommandLineScanner {
public:
    explicit CommandLineScanner(std::string_view text) noexcept : m_text(text) {}

    // True when something was replaced; the new text then replaces what follows the first
    // `keep` characters of `result`, which may be the string the text is part of (the text is
    // no longer read then).
    bool Run(std::string& result, std::size_t keep) {
        std::size_t at = 0;
        while (at < m_text.size()) {
            const Event event = NextEvent(at);
            if (event.from == None) break;
            std::size_t from = event.from;
            while (from > at && Is(m_text[from - 1], Word)) --from;
            at = Normalize(from, event.limit);
        }
        if (!m_changed) return false;
        Append(m_text.substr(m_copied));
        if (m_spilled && keep == 0) {
            result = std::move(m_heap);
        } else {
            // replace, not resize and append: on failure it leaves the text as it was.
            result.replace(keep, std::string::npos,
                           m_spilled ? std::string_view(m_heap) : std::string_view(m_stack, m_length));
        }
        return true;
    }

private:
    struct WordScan {
        std::size_t end;                   // one past the word's last character
        std::string_view hashPlaceholder;  // empty unless the whole word is a hash
        std::size_t firstNumber;           // start of its first run of 4+ digits, or None
    };

    struct Event {
        std::size_t from;   // where the exact path must start looking back for a word start, or None
        std::size_t limit;  // the end of the block where a rule may match
    };

    // Lengths carried from block to block by the fast path, counted from where it started.
    struct Runs {
        std::size_t hex = 0;          // hex digits at the end of the blocks so far
        std::size_t digits = 0;       // decimal digits there
        std::uint64_t lastSlash = 0;  // the top bit set when the last character was "/"

        // Whether a rule may match in `block`: a run of four digits ends in it, a run of
        // exactly 32 or 64 hex digits ends in it, or a "/" before or in it is followed by "t".
        // Otherwise carries the runs over it.
        bool MayMatch(const CharBlock& block) noexcept {
            const std::uint64_t nonHex = CharBlock::Not(block.HexDigits());
            const std::uint64_t digitMask = block.Digits();
            const std::uint64_t nonDigits = CharBlock::Not(digitMask);
            const std::uint64_t slashes = block.Equal('/');
            const std::uint64_t ts = block.Equal('t');
            const std::size_t hexRunEnd = hex + CharBlock::First(nonHex);
            const bool hash = nonHex != 0 && (hexRunEnd == 32 || hexRunEnd == 64);
            const bool number = digits + CharBlock::First(nonDigits) >= MinimumNumberDigits ||
                                CharBlock::RunStarts(digitMask, MinimumNumberDigits) != 0;
            const bool tmp = ((slashes & (ts >> 8)) | (lastSlash & ts)) != 0;
            if (hash | number | tmp) return true;
            hex = (nonHex == 0 ? hex : 0) + CharBlock::AfterLast(nonHex);
            digits = (nonDigits == 0 ? digits : 0) + CharBlock::AfterLast(nonDigits);
            lastSlash = slashes >> 56;
            return false;
        }

        // The event in the block at `at` for which MayMatch was true: the exact path goes back
        // over the hex digits before it, or to the "/" just before it.
        Event At(std::size_t at) const noexcept { return {at - hex - (lastSlash != 0 ? 1 : 0), at + CharBlock::Size}; }
    };

    // The fast path over text where nothing is replaced: from `at`, a word boundary, eight
    // characters per step and no branch per character, it finds the first block where a rule
    // may match. The block at the text's end, read as NUL, ends the runs there.
    Event NextEvent(std::size_t at) const noexcept {
        Runs runs;
        for (; m_text.size() - at >= CharBlock::Size; at += CharBlock::Size) {
            if (runs.MayMatch(CharBlock(m_text.data() + at))) return runs.At(at);
        }
        for (; at <= m_text.size(); at += CharBlock::Size) {
            if (runs.MayMatch(CharBlock(m_text, at))) return runs.At(at);
        }
        return {None, None};
    }

    // The exact path: applies the rules from `at`, a word boundary, to at least `limit` and on
    // to the next word boundary; returns where it stopped.
    std::size_t Normalize(std::size_t at, std::size_t limit) {
        while (at < m_text.size() && (at < limit || Is(m_text[at], Word))) {
            const char c = m_text[at];
            if (Is(c, Word)) {
                at = IsWordStart(at) ? NormalizeWord(at) : NormalizeDigitRuns(at, WordEnd(at));
            } else if (const std::size_t end = c == '/' ? TmpPathEnd(at) : None; end != None) {
                Replace(at, end, TmpPlaceholder);
                at = end;
            } else {
                ++at;
            }
        }
        return at;
    }

    bool IsWordStart(std::size_t at) const noexcept { return at == 0 || !Is(m_text[at - 1], Word); }

    std::size_t WordEnd(std::size_t at) const noexcept {
        // The text's end reads as NUL, no word character, so the loop stops there.
        for (;; at += CharBlock::Size) {
            const std::uint64_t nonWord = CharBlock::Not(CharBlock(m_text, at).WordChars());
            if (nonWord != 0) return at + CharBlock::First(nonWord);
        }
    }

    // Eight characters per step: the word's end is its first non-word character, it is hex
    // when no character before that is other than a hex digit, and its first number starts
    // where a run of four digits does, within the block or continuing the digits at the end
    // of the blocks before.
    WordScan ScanWord(std::size_t begin) const noexcept {
        std::uint64_t nonHex = 0;
        std::size_t digitRun = 0;  // digits of the word just before `at`
        std::size_t firstNumber = None;
        std::size_t at = begin;
        for (;; at += CharBlock::Size) {
            const CharBlock block(m_text, at);
            const std::uint64_t nonWord = CharBlock::Not(block.WordChars());
            const std::uint64_t inWord = CharBlock::Before(nonWord);
            nonHex |= CharBlock::Not(block.HexDigits()) & inWord;
            const std::uint64_t digits = block.Digits() & inWord;
            const std::uint64_t nonDigits = CharBlock::Not(digits);
            if (firstNumber == None) {
                const std::uint64_t runs = CharBlock::RunStarts(digits, MinimumNumberDigits);
                if (digitRun + CharBlock::First(nonDigits) >= MinimumNumberDigits) {
                    firstNumber = at - digitRun;
                } else if (runs != 0) {
                    firstNumber = at + CharBlock::First(runs);
                }
            }
            digitRun = (nonDigits == 0 ? digitRun : 0) + CharBlock::AfterLast(nonDigits);
            if (nonWord != 0) {
                at += CharBlock::First(nonWord);
                break;
            }
        }
        std::string_view hashPlaceholder;
        if (nonHex == 0 && at - begin == 64) hashPlaceholder = Sha256Placeholder;
        if (nonHex == 0 && at - begin == 32) hashPlaceholder = Md5Placeholder;
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
            const std::size_t runStart = FirstNumber(at, end);
            if (runStart == None) break;
            at = DigitRunEnd(runStart + MinimumNumberDigits);
            Replace(runStart, at, NumberPlaceholder);
        }
        return end;
    }

    // The start of the first run of 4+ digits counted from `at` that starts before `end`, a
    // word's end, or None.
    std::size_t FirstNumber(std::size_t at, std::size_t end) const noexcept {
        std::size_t digitRun = 0;
        for (; at < end; at += CharBlock::Size) {
            const std::uint64_t digits = CharBlock(m_text, at).Digits();
            const std::uint64_t nonDigits = CharBlock::Not(digits);
            if (digitRun + CharBlock::First(nonDigits) >= MinimumNumberDigits) return at - digitRun;
            const std::uint64_t runs = CharBlock::RunStarts(digits, MinimumNumberDigits);
            if (runs != 0) return at + CharBlock::First(runs) < end ? at + CharBlock::First(runs) : None;
            digitRun = (nonDigits == 0 ? digitRun : 0) + CharBlock::AfterLast(nonDigits);
        }
        return None;
    }

    std::size_t DigitRunEnd(std::size_t at) const noexcept {
        for (;; at += CharBlock::Size) {
            const std::uint64_t nonDigits = CharBlock::Not(CharBlock(m_text, at).Digits());
            if (nonDigits != 0) return at + CharBlock::First(nonDigits);
        }
    }

    // The end of the temporary path matched at `slash`, or None when none starts there.
    std::size_t TmpPathEnd(std::size_t slash) const noexcept {
        if (m_text.size() - slash <= TmpPrefix.size() || m_text[slash + 1] != 't' || m_text[slash + 2] != 'm' ||
            m_text[slash + 3] != 'p' || m_text[slash + 4] != '/') {
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
        m_changed = true;
        Append(m_text.substr(m_copied, begin - m_copied));
        Append(placeholder);
        m_copied = end;
    }

    void Append(std::string_view text) {
        if (!m_spilled && text.size() <= sizeof m_stack - m_length) {
            std::memcpy(m_stack + m_length, text.data(), text.size());
            m_length += text.size();
            return;
        }
        if (!m_spilled) {
            m_heap.reserve(m_text.size() + m_text.size() / 8);
            m_heap.assign(m_stack, m_length);
            m_spilled = true;
        }
        m_heap.append(text);
    }

    std::string_view m_text;
    std::size_t m_copied = 0;  // m_text before this offset is already in the output
    bool m_changed = false;
    // The output is built on the stack while it fits, so that rewriting an ordinary command line
    // allocates nothing when its string has room for the result; a longer one moves to the heap.
    bool m_spilled = false;
    std::size_t m_length = 0;
    char m_stack[2048];
    std::string m_heap;
};

}  // namespace

void NormalizeCommandline(std::string& commandLine) noexcept { NormalizeCommandline(commandLine, 0); }

void NormalizeCommandline(std::string& text, std::size_t from) noexcept {
    if (from >= text.size()) return;
    try {
        CommandLineScanner(std::string_view(text).substr(from)).Run(text, from);
    } catch (...) {
        Logging::Log::CurrentException(Severity::Error, "unable to normalize command line");
    }
}

}  // namespace KALVO::SecurityMonitor
