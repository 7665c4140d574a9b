// CommandLineCorpus: the command lines and executable paths the normalisation benchmarks and
// the differential checks run over: this machine's live processes (read at run time), the
// example traces in examples/*.jsonl when present, and synthetic lines that hold what the
// normaliser replaces (hashes, long numbers, /tmp paths, container paths).
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace KALVO::Bench {

struct CommandLineCorpus {
    std::vector<std::string> commandLines;
    std::vector<std::string> paths;
    std::size_t liveCommandLines = 0;   // of commandLines, read from /proc
    std::size_t traceCommandLines = 0;  // from examples/*.jsonl
    std::size_t livePaths = 0;
    std::size_t tracePaths = 0;
};

// Texts longer than `maxLength` are cut there, so that the std::regex reference (which
// recurses per character) stays within the main thread's stack.
CommandLineCorpus LoadCommandLineCorpus(const std::string& sourceDir, std::size_t synthetic = 2000,
                                        std::size_t maxLength = 4096);

}  // namespace KALVO::Bench
