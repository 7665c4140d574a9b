// NormalizeCommandline and NormalizeProcessPath against std::regex_replace with the same
// ECMAScript expressions, on inputs short enough for the recursive regex engine (256 bytes).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "fuzz/FuzzCheck.h"
#include "monitor/Normalize.h"
#include "tests/support/RegexNormalizer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 256) return 0;
    const std::string input(reinterpret_cast<const char*>(data), size);
    const auto& reference = KALVO::Testing::RegexNormalizer::Instance();

    std::string ours = input;
    KALVO::SecurityMonitor::NormalizeCommandline(ours);
    std::string theirs = input;
    reference.CommandLine(theirs);
    if (ours != theirs) std::fprintf(stderr, "ours:   %s\nregex:  %s\n", ours.c_str(), theirs.c_str());
    KALVO_FUZZ_CHECK(ours == theirs, "NormalizeCommandline equals the std::regex_replace chain");

    std::string path = input;
    KALVO::SecurityMonitor::NormalizeProcessPath(path);
    std::string expected = input;
    reference.ProcessPath(expected);
    KALVO_FUZZ_CHECK(path == expected, "NormalizeProcessPath equals std::regex_replace");
    return 0;
}
