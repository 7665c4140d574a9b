// The eight-at-a-time classifier against the C library's one-character tests: every byte value
// in every place of a block, next to every other byte value, and the mask operations against
// loops over the eight places.
#include <gtest/gtest.h>

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <string>

#include "monitor/CharBlock.h"

namespace KALVO::SecurityMonitor {
namespace {

struct Classes {
    std::uint64_t digits = 0, hexDigits = 0, wordChars = 0, slashes = 0, ts = 0;
};

// One character at a time, in the "C" locale the test runs in: bytes >= 0x80 and NUL are in no class.
Classes Expected(const std::string& text, std::size_t at) {
    Classes classes;
    for (std::size_t i = 0; i < CharBlock::Size; ++i) {
        const int c = at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0;
        const std::uint64_t flag = std::uint64_t{0x80} << (8 * i);
        if (std::isdigit(c)) classes.digits |= flag;
        if (std::isxdigit(c)) classes.hexDigits |= flag;
        if (std::isalnum(c) || c == '_') classes.wordChars |= flag;
        if (c == '/') classes.slashes |= flag;
        if (c == 't') classes.ts |= flag;
    }
    return classes;
}

::testing::AssertionResult SameClasses(const std::string& text, std::size_t at) {
    const CharBlock block(text, at);
    const Classes expected = Expected(text, at);
    if (block.Digits() == expected.digits && block.HexDigits() == expected.hexDigits &&
        block.WordChars() == expected.wordChars && block.Equal('/') == expected.slashes && block.Equal('t') == expected.ts) {
        return ::testing::AssertionSuccess();
    }
    std::string bytes;
    for (std::size_t i = at; i < text.size() && i < at + CharBlock::Size; ++i) {
        bytes += std::to_string(static_cast<unsigned char>(text[i])) + " ";
    }
    return ::testing::AssertionFailure() << "bytes " << bytes << "from " << at << " of " << text.size();
}

TEST(CharBlock, ClassifiesEveryByteInEveryPlaceNextToEveryByte) {
    for (std::size_t place = 0; place < CharBlock::Size; ++place) {
        for (int byte = 0; byte < 256; ++byte) {
            for (int neighbour = 0; neighbour < 256; ++neighbour) {
                std::string text(CharBlock::Size, static_cast<char>(neighbour));
                text[place] = static_cast<char>(byte);
                ASSERT_TRUE(SameClasses(text, 0)) << " place " << place;
            }
        }
    }
}

TEST(CharBlock, ReadsPastTheTextsEndAsNul) {
    const std::string text = "a1_/t/0Zq9";
    for (std::size_t at = 0; at <= text.size() + CharBlock::Size; ++at) {
        EXPECT_TRUE(SameClasses(text, at));
        EXPECT_TRUE(SameClasses(text.substr(0, at), 0));
    }
}

TEST(CharBlock, MaskOperationsAgreeWithAScanOfTheEightPlaces) {
    for (unsigned pattern = 0; pattern < 256; ++pattern) {
        std::uint64_t mask = 0;
        bool flagged[CharBlock::Size];
        for (std::size_t i = 0; i < CharBlock::Size; ++i) {
            flagged[i] = (pattern >> i) & 1;
            if (flagged[i]) mask |= std::uint64_t{0x80} << (8 * i);
        }
        std::size_t first = CharBlock::Size, afterLast = CharBlock::Size;
        std::uint64_t before = 0;
        for (std::size_t i = 0; i < CharBlock::Size; ++i) {
            if (flagged[i]) {
                if (first == CharBlock::Size) first = i;
                afterLast = CharBlock::Size - 1 - i;
            }
            if (first == CharBlock::Size) before |= std::uint64_t{0x80} << (8 * i);
        }
        EXPECT_EQ(CharBlock::First(mask), first) << " pattern " << pattern;
        EXPECT_EQ(CharBlock::AfterLast(mask), afterLast) << " pattern " << pattern;
        EXPECT_EQ(CharBlock::Before(mask), before) << " pattern " << pattern;
        EXPECT_EQ(CharBlock::Not(mask) | mask, CharBlock::High) << " pattern " << pattern;
        for (std::size_t length = 1; length <= CharBlock::Size; ++length) {
            std::uint64_t starts = 0;
            for (std::size_t i = 0; i + length <= CharBlock::Size; ++i) {
                bool run = true;
                for (std::size_t j = i; j < i + length; ++j) run = run && flagged[j];
                if (run) starts |= std::uint64_t{0x80} << (8 * i);
            }
            EXPECT_EQ(CharBlock::RunStarts(mask, length), starts) << " pattern " << pattern << " length " << length;
        }
    }
}

}  // namespace
}  // namespace KALVO::SecurityMonitor
