// Worked examples of both normalisations, including the rule order that makes a placeholder
// inside a temporary path survive.
#include <gtest/gtest.h>

#include <string>

#include "monitor/Normalize.h"

namespace KALVO::SecurityMonitor {
namespace {

struct Case {
    std::string input;
    std::string expected;
};

const std::string Sha256 = "9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08";
const std::string Md5 = "D41D8CD98F00B204E9800998ECF8427E";
// Hex words without decimal digits, so that no number rule muddles the cases where they stay.
const std::string LetterMd5 = "abcdefABCDEFabcdefABCDEFabcdefAB";
const std::string LetterSha256 = LetterMd5 + LetterMd5;

// Normalising the end of a key: this part, which both normalisations would rewrite, stays as it
// is, and the part after it is normalised as a text of its own (it ends in a word character).
const std::string KeyPrefix = "/proc/1/root /tmp/x 12345 " + Md5 + " ab";

TEST(NormalizeProcessPath, RewritesOnlyALeadingProcRoot) {
    const Case cases[] = {
        {"/proc/1/root", "container:"},
        {"/proc/1/roo", "/proc/1/roo"},
        {"/proc/4711/root/usr/bin/curl", "container:/usr/bin/curl"},
        {"/proc/12/rootfs/x", "container:fs/x"},
        {"/proc/self/root/bin/sh", "/proc/self/root/bin/sh"},
        {"/proc//root/bin/sh", "/proc//root/bin/sh"},
        {"/proc/12a/root/bin/sh", "/proc/12a/root/bin/sh"},
        {"/PROC/12/root/x", "/PROC/12/root/x"},
        {"/usr/bin/proc/12/root", "/usr/bin/proc/12/root"},
        {"/proc/1/root/proc/2/root", "container:/proc/2/root"},
        {"/proc/12/ROOT/x", "/proc/12/ROOT/x"},
        {"", ""},
    };
    for (const Case& c : cases) {
        std::string path = c.input;
        NormalizeProcessPath(path);
        EXPECT_EQ(path, c.expected) << " input: " << c.input;
        std::string key = KeyPrefix + c.input;
        NormalizeProcessPath(key, KeyPrefix.size());
        EXPECT_EQ(key, KeyPrefix + c.expected) << " input at the end of a key: " << c.input;
    }
}

TEST(NormalizeCommandline, ReplacesHashesNumbersAndTemporaryPaths) {
    const Case cases[] = {
        {"", ""},
        {"shasum " + Sha256 + " x", "shasum <sha256> x"},
        {"md5 " + Md5 + " x", "md5 <md5> x"},
        {Md5 + "," + Sha256, "<md5>,<sha256>"},
        // A 40-digit SHA-1 is no hash word; only its long digit runs go.
        {"git show da39a3ee5e6b4b0d3255bfef95601890afd80709", "git show da39a3ee5e6b4b0d<number>bfef<number>afd<number>"},
        // Glued to a word character the hash is no whole word.
        {"id_" + LetterMd5, "id_" + LetterMd5},
        {LetterSha256 + "_", LetterSha256 + "_"},
        {LetterMd5 + "a", LetterMd5 + "a"},
        {LetterSha256.substr(1), LetterSha256.substr(1)},
        {"-" + LetterSha256 + "-", "-<sha256>-"},
        {"sleep 123", "sleep 123"},
        {"sleep 1234", "sleep <number>"},
        {"pid=123456789012345678901234567890", "pid=<number>"},
        {"cp /tmp/a.txt /tmp/b.txt", "cp <tmp> <tmp>"},
        {"/private/tmp/x", "/private<tmp>"},
        {"/tmp/", "/tmp/"},
        {"/tmp/ x", "/tmp/ x"},
        {"/tmp/<x", "/tmp/<x"},
        {"/tmp//tmp/x y", "<tmp> y"},
        {"/tmp/a\vb", "<tmp>\vb"},
        {"/tmp/build1234/out", "<tmp><number>/out"},
        {"/tmp/1234/out", "/tmp/<number>/out"},
        {"/tmp/" + Md5 + "/out", "/tmp/<md5>/out"},
        {"/tmp/x-" + Md5 + "/out", "<tmp><md5>/out"},
        {"/tmp/x" + LetterMd5 + "/out", "<tmp>"},
        {"/tmp/ab\x80" "12345\xff", "<tmp><number>\xff"},
    };
    for (const Case& c : cases) {
        std::string commandLine = c.input;
        NormalizeCommandline(commandLine);
        EXPECT_EQ(commandLine, c.expected) << " input: " << c.input;
        std::string key = KeyPrefix + c.input;
        NormalizeCommandline(key, KeyPrefix.size());
        EXPECT_EQ(key, KeyPrefix + c.expected) << " input at the end of a key: " << c.input;
    }
}

TEST(NormalizeCommandline, KeepsTheBufferWhenNothingMatches) {
    std::string commandLine = "/usr/bin/ssh -p 22 user@example.org";
    commandLine.reserve(200);
    const char* buffer = commandLine.data();
    NormalizeCommandline(commandLine);
    EXPECT_EQ(commandLine, "/usr/bin/ssh -p 22 user@example.org");
    EXPECT_EQ(commandLine.data(), buffer);
}

}  // namespace
}  // namespace KALVO::SecurityMonitor
