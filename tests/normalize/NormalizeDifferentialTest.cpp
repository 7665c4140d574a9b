// Differential test: the hand-written scanners against std::regex_replace with the very
// expressions they replace, over random inputs biased towards the rules' edges
// (hash lengths around 32 and 64, digit runs around 4, word boundaries, "/tmp/" next to
// white space, "<" and placeholders, NUL and bytes >= 0x80). The regex stays here only, as the
// oracle; inputs are short enough that its recursion fits the main thread's stack.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "monitor/CharBlock.h"
#include "monitor/Normalize.h"
#include "tests/support/RegexNormalizer.h"
#include "tests/support/Scaled.h"

namespace KALVO::SecurityMonitor {
namespace {

// A hundred thousand inputs per pattern in optimised builds: about four seconds each.
constexpr int Iterations = Testing::Scaled(100'000, 12'000);
constexpr std::size_t MaximumLength = 200;

std::string Scanned(std::string text) {
    NormalizeCommandline(text);
    return text;
}

std::string OracleCommandline(std::string text) {
    Testing::RegexNormalizer::Instance().CommandLine(text);
    return text;
}

// Makes inputs from a fixed seed. Draws use `% n` rather than the standard distributions, whose
// results differ between standard libraries, so every build checks the same inputs.
class InputMaker {
public:
    explicit InputMaker(std::uint64_t seed) : m_random(seed) {}

    std::size_t Below(std::size_t n) { return static_cast<std::size_t>(m_random() % n); }
    bool OneIn(std::size_t n) { return Below(n) == 0; }

    // A command line built from tokens that sit on the rules' edges.
    std::string CommandLine() {
        std::string text;
        const std::size_t target = Below(MaximumLength + 1);
        while (text.size() < target) AppendToken(text);
        if (text.size() > MaximumLength) text.resize(MaximumLength);
        return text;
    }

    // A path around "/proc/<digits>/root".
    std::string ProcessPath() {
        static const std::vector<std::string> roots = {"/root", "/root/", "/rootfs", "/roo", "/ROOT", "root", "//root"};
        static const std::vector<std::string> pieces = {
            "/proc/", "/root", "/", "self", "\n", "/PROC/", "container:", "/usr/bin/sh", "x", " ", std::string(1, '\0'),
        };
        std::string path = OneIn(5) ? std::string() : "/proc/";
        if (!OneIn(4)) path += Digits(1 + Below(8));
        if (!OneIn(4)) path += roots[Below(roots.size())];
        const std::size_t count = Below(5);
        for (std::size_t i = 0; i < count; ++i) {
            switch (Below(3)) {
            case 0: path += Digits(1 + Below(6)); break;
            case 1: path += static_cast<char>(Below(256)); break;
            default: path += pieces[Below(pieces.size())];
            }
        }
        return path;
    }

private:
    // `length` characters drawn from `alphabet`.
    std::string Run(std::string_view alphabet, std::size_t length) {
        std::string run;
        for (std::size_t i = 0; i < length; ++i) run += alphabet[Below(alphabet.size())];
        return run;
    }

    std::string Digits(std::size_t length) { return Run("0123456789", length); }

    // A run of hex digits of one style: lower case, upper case, letters only, digits only, mixed.
    std::string Hex(std::size_t length) {
        static constexpr std::string_view styles[] = {"0123456789abcdef", "0123456789ABCDEF", "abcdefABCDEF",
                                                      "0123456789", "0123456789abcdefABCDEF"};
        return Run(styles[Below(std::size(styles))], length);
    }

    void AppendToken(std::string& text) {
        static const std::vector<std::string> pieces = {
            "/tmp/", "/tmp/",  "/tmp/",     "/tmp",  "tmp/",     "/",     "/private/tmp/",
            "<",     ">",      "<number>",  "<md5>", "<sha256>", "<tmp>", "_",
            "-",     "=",      ".",         ":",     "\"",       "--",    "x",
            "id_",   "sleep ", "/usr/bin/",
        };
        static constexpr std::string_view spaces = " \t\n\v\f\r";
        static constexpr std::string_view bytes{"09afAFgGz_/<> \t\n\v\f\r\0\x80\xfftmp-.", 27};
        static constexpr std::size_t hashLengths[] = {31, 32, 33, 63, 64, 65};
        switch (Below(12)) {
        case 0:
        case 1: text += Hex(OneIn(4) ? 1 + Below(70) : hashLengths[Below(6)]); break;
        case 2: text += Digits(OneIn(5) ? 9 + Below(30) : 1 + Below(8)); break;
        case 3:
        case 4: text += pieces[Below(pieces.size())]; break;
        case 5:
        case 6: text += spaces[Below(spaces.size())]; break;
        case 7: text += static_cast<char>(OneIn(3) ? '\0' : 0x80 + Below(128)); break;
        case 8: text += static_cast<char>(Below(256)); break;
        case 9: text += static_cast<char>(0x20 + Below(0x5f)); break;
        case 10: text += static_cast<char>((OneIn(2) ? 'a' : 'A') + Below(26)); break;
        default: text += bytes[Below(bytes.size())];
        }
    }

    std::mt19937_64 m_random;
};

// The scanners ask the block only for runs of four digits; every length is checked here, so the
// remainder step after the doublings is right too.
TEST(CharBlock, RunStartsAgreeWithAScanOfTheEightPlaces) {
    for (unsigned pattern = 0; pattern < 256; ++pattern) {
        std::uint64_t mask = 0;
        for (std::size_t i = 0; i < CharBlock::Size; ++i) mask |= std::uint64_t{(pattern >> i) & 1} << (8 * i + 7);
        for (std::size_t length = 1; length <= CharBlock::Size; ++length) {
            const unsigned run = (1u << length) - 1;
            std::uint64_t starts = 0;
            for (std::size_t i = 0; i + length <= CharBlock::Size; ++i)
                starts |= std::uint64_t{((pattern >> i) & run) == run} << (8 * i + 7);
            EXPECT_EQ(CharBlock::RunStarts(mask, length), starts) << "pattern " << pattern << " length " << length;
        }
    }
}

TEST(NormalizeCommandline, MatchesTheRegexReplacementsOnRandomInputs) {
    InputMaker maker(0x6b616c766f);
    for (int i = 0; i < Iterations; ++i) {
        const std::string input = maker.CommandLine();
        ASSERT_EQ(Scanned(input), OracleCommandline(input))
            << "iteration " << i << " input: " << ::testing::PrintToString(input);
    }
}

// The scanners work on blocks of eight characters and carry run lengths from block to block:
// every piece a rule looks at is placed at every offset within a block, between fillers of each
// kind (word characters hex or not, digits, NUL, bytes >= 0x80, "/", "<", white space), so that
// its boundaries fall on every place of a block and on the blocks' seams.
TEST(NormalizeCommandline, MatchesTheRegexReplacementsWhereverABlockBoundaryFalls) {
    const std::string hex64 = "9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08";
    const std::string letters32 = "abcdefABCDEFabcdefABCDEFabcdefAB";
    const std::string pieces[] = {
        hex64,
        letters32 + letters32,
        hex64.substr(0, 32),
        letters32,
        hex64.substr(1),
        hex64 + "a",
        letters32.substr(1),
        letters32 + "f",
        "1234",
        "123",
        "12345678901234567",
        "/tmp/x",
        "/tmp/12345",
        "/tmp/" + letters32,
        "/tm",
        "a1234b",
    };
    // Fewer fillers where the loops run slowly.
    constexpr std::string_view fillers = Testing::Scaled<std::string_view>({" ag_7\0\x80\xff/<\t", 11}, " g\x80");
    for (const std::string& piece : pieces) {
        for (const char left : fillers) {
            for (const char right : fillers) {
                for (std::size_t leftLength = 0; leftLength <= 2 * CharBlock::Size; ++leftLength) {
                    for (const std::size_t rightLength : {0, 1, 8, 9}) {
                        const std::string input =
                            std::string(leftLength, left) + piece + std::string(rightLength, right);
                        ASSERT_EQ(Scanned(input), OracleCommandline(input))
                            << " input: " << ::testing::PrintToString(input);
                    }
                }
            }
        }
    }
}

// Rules never match across white space, so a text of many lines normalises to its lines
// normalised one by one: long texts whose results outgrow every buffer on the stack, checked
// against the regex line by line.
TEST(NormalizeCommandline, MatchesTheRegexReplacementsLineByLineOnLongTexts) {
    InputMaker maker(0x6c696e6573);
    constexpr int Texts = Testing::Scaled(40, 4);
    for (int i = 0; i < Texts; ++i) {
        std::string input;
        std::string expected;
        const std::size_t lines = 1 + maker.Below(i % 2 == 0 ? 40 : 400);
        for (std::size_t line = 0; line < lines; ++line) {
            const std::string text = maker.CommandLine();
            const char separator = " \n\t"[maker.Below(3)];
            input += text + separator;
            expected += OracleCommandline(text) + separator;
        }
        ASSERT_EQ(Scanned(input), expected) << " text " << i << " of " << input.size() << " bytes";
    }
}

TEST(NormalizeProcessPath, MatchesTheRegexReplacementOnRandomInputs) {
    InputMaker maker(0x70617468);
    for (int i = 0; i < Iterations; ++i) {
        const std::string input = maker.ProcessPath();
        std::string actual = input;
        std::string expected = input;
        NormalizeProcessPath(actual);
        // Only paths that can match go to the regex: it scans every position of a long text.
        if (input.size() >= 12 && input.starts_with("/proc/"))
            Testing::RegexNormalizer::Instance().ProcessPath(expected);
        ASSERT_EQ(actual, expected) << "iteration " << i << " input: " << ::testing::PrintToString(input);
    }
}

}  // namespace
}  // namespace KALVO::SecurityMonitor
