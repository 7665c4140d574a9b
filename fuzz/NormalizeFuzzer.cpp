// NormalizeCommandline and NormalizeProcessPath against std::regex_replace with the same
// ECMAScript expressions, on inputs short enough for the recursive regex engine (256 bytes).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <regex>
#include <string>

#include "fuzz/FuzzCheck.h"
#include "monitor/Normalize.h"

namespace {

struct Reference {
    std::regex sha256{R"(\b[a-fA-F0-9]{64}\b)"};
    std::regex md5{R"(\b[a-fA-F0-9]{32}\b)"};
    std::regex number{R"(\d{4,})"};
    std::regex tmp{R"(\/tmp\/[^\s<]+)"};
    std::regex container{R"(^/proc/\d+/root)"};
};

const Reference& TheReference() {
    static const Reference reference;
    return reference;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 256) return 0;
    const std::string input(reinterpret_cast<const char*>(data), size);
    const Reference& reference = TheReference();

    std::string ours = input;
    KALVO::SecurityMonitor::NormalizeCommandline(ours);
    std::string theirs = input;
    if (!theirs.empty()) {
        theirs = std::regex_replace(theirs, reference.sha256, "<sha256>");
        theirs = std::regex_replace(theirs, reference.md5, "<md5>");
        theirs = std::regex_replace(theirs, reference.number, "<number>");
        theirs = std::regex_replace(theirs, reference.tmp, "<tmp>");
    }
    if (ours != theirs) std::fprintf(stderr, "ours:   %s\nregex:  %s\n", ours.c_str(), theirs.c_str());
    KALVO_FUZZ_CHECK(ours == theirs, "NormalizeCommandline equals the std::regex_replace chain");

    std::string path = input;
    KALVO::SecurityMonitor::NormalizeProcessPath(path);
    const std::string expected = std::regex_replace(input, reference.container, "container:");
    KALVO_FUZZ_CHECK(path == expected, "NormalizeProcessPath equals std::regex_replace");
    return 0;
}
