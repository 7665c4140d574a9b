// Megabyte-long hostile texts normalised on a thread with a host thread's 512 KiB stack: the
// inputs that make a backtracking regex engine recurse per character must neither crash nor
// take quadratic time.
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <string>

#include "monitor/Normalize.h"
#include "tests/support/SmallStack.h"

namespace KALVO::SecurityMonitor {
namespace {

constexpr std::size_t OneMiB = 1024 * 1024;

std::string Times(const std::string& piece, std::size_t count) {
    std::string text;
    text.reserve(piece.size() * count);
    for (std::size_t i = 0; i < count; ++i) text += piece;
    return text;
}

// `piece` repeated to a megabyte or more, and the normalised piece repeated as often.
struct RepeatedCase {
    std::string piece;
    std::string normalizedPiece;
};

std::string NormalizedCommandlineOnSmallStack(std::string text) {
    Testing::RunOnSmallStack([&] { NormalizeCommandline(text); });
    return text;
}

std::string NormalizedPathOnSmallStack(std::string text) {
    Testing::RunOnSmallStack([&] { NormalizeProcessPath(text); });
    return text;
}

TEST(NormalizeCommandline, SurvivesMegabyteInputsOnAHostThreadStack) {
    const std::string hexWord64(64, 'e');
    const std::string hexWord32 = "0123456789abcdefABCDEF0123456789";
    const std::string noise = "\xc0\xaf\xed\xa0\x80\xff\xfe\x80 ";  // invalid UTF-8

    EXPECT_EQ(NormalizedCommandlineOnSmallStack(std::string(OneMiB, '7')), "<number>");
    EXPECT_EQ(NormalizedCommandlineOnSmallStack("/tmp/" + std::string(OneMiB, 'q')), "<tmp>");
    EXPECT_EQ(NormalizedCommandlineOnSmallStack("rm -rf /tmp/" + std::string(OneMiB, '\x80') + " x"), "rm -rf <tmp> x");
    EXPECT_EQ(NormalizedCommandlineOnSmallStack(Times("/tmp/", OneMiB / 5)), "<tmp>");

    const RepeatedCase repeated[] = {
        {hexWord64 + " ", "<sha256> "},
        {hexWord32 + "\v", "<md5>\v"},
        {"/tmp/1234", "/tmp/<number>"},  // each path stops before the number: no match
        {"a12345", "a<number>"},         // one megabyte word
        {"/tmp/a b", "<tmp> b"},
    };
    for (const RepeatedCase& c : repeated) {
        const std::size_t count = OneMiB / c.piece.size() + 1;
        EXPECT_EQ(NormalizedCommandlineOnSmallStack(Times(c.piece, count)), Times(c.normalizedPiece, count)) << " piece: " << c.piece;
    }

    // A megabyte word of hex digits is no hash; its one digit run is a number.
    EXPECT_EQ(NormalizedCommandlineOnSmallStack(std::string(OneMiB, 'a') + std::string(OneMiB, '1')), std::string(OneMiB, 'a') + "<number>");

    const std::string nul(OneMiB, '\0');
    EXPECT_EQ(NormalizedCommandlineOnSmallStack(nul), nul);
    const std::string invalidUtf8 = Times(noise, OneMiB / noise.size() + 1);
    EXPECT_EQ(NormalizedCommandlineOnSmallStack(invalidUtf8), invalidUtf8);
}

TEST(NormalizeProcessPath, SurvivesMegabyteInputsOnAHostThreadStack) {
    const std::string digits(OneMiB, '4');
    EXPECT_EQ(NormalizedPathOnSmallStack("/proc/" + digits + "/root/bin/sh"), "container:/bin/sh");
    EXPECT_EQ(NormalizedPathOnSmallStack("/proc/" + digits + "/roo"), "/proc/" + digits + "/roo");
    EXPECT_EQ(NormalizedPathOnSmallStack("/proc/1/root" + digits), "container:" + digits);
}

}  // namespace
}  // namespace KALVO::SecurityMonitor
