#include "bench/CommandLineCorpus.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string_view>

#include "eil/json/Json.h"

namespace KALVO::Bench {

namespace {

namespace fs = std::filesystem;

std::string ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void AddCut(std::vector<std::string>& to, std::string text, std::size_t maxLength) {
    if (text.empty()) return;
    if (text.size() > maxLength) text.resize(maxLength);
    to.push_back(std::move(text));
}

void ReadLiveProcesses(CommandLineCorpus& corpus, std::size_t maxLength) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename().string();
        if (name.empty() || !std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isdigit(c); }))
            continue;
        std::string commandLine = ReadFile(entry.path() / "cmdline");
        while (!commandLine.empty() && commandLine.back() == '\0') commandLine.pop_back();
        std::replace(commandLine.begin(), commandLine.end(), '\0', ' ');
        const std::size_t before = corpus.commandLines.size();
        AddCut(corpus.commandLines, std::move(commandLine), maxLength);
        corpus.liveCommandLines += corpus.commandLines.size() - before;
        std::error_code linkError;
        const fs::path exe = fs::read_symlink(entry.path() / "exe", linkError);
        if (!linkError) {
            AddCut(corpus.paths, exe.string(), maxLength);
            ++corpus.livePaths;
        }
    }
}

// The trace format belongs to the tool that writes it; every string under a member whose name
// speaks of a command line or a path is taken, wherever it sits.
void CollectStrings(const EIL::Json::Json& node, std::string_view name, CommandLineCorpus& corpus,
                    std::size_t maxLength) {
    std::string lower(name);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    switch (node.GetType()) {
    case EIL::Json::Type::Object:
        for (const auto& [key, child] : node.Get<EIL::Json::Json::ObjectType>())
            CollectStrings(child, key, corpus, maxLength);
        break;
    case EIL::Json::Type::Array:
        for (const auto& child : node.Get<EIL::Json::Json::ArrayType>()) CollectStrings(child, name, corpus, maxLength);
        break;
    case EIL::Json::Type::String:
        if (lower.find("command") != std::string::npos || lower.find("cmdline") != std::string::npos) {
            AddCut(corpus.commandLines, static_cast<std::string>(node), maxLength);
            ++corpus.traceCommandLines;
        } else if (lower.find("path") != std::string::npos) {
            AddCut(corpus.paths, static_cast<std::string>(node), maxLength);
            ++corpus.tracePaths;
        }
        break;
    default: break;
    }
}

void ReadTraces(const std::string& sourceDir, CommandLineCorpus& corpus, std::size_t maxLength) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(fs::path(sourceDir) / "examples", error)) {
        if (entry.path().extension() != ".jsonl") continue;
        std::ifstream in(entry.path());
        std::string line;
        while (std::getline(in, line)) {
            try {
                CollectStrings(EIL::Json::FromString(line), "", corpus, maxLength);
            } catch (const std::exception&) {
                // A line that is not JSON is no command line of ours.
            }
        }
    }
}

std::string Hex(std::mt19937_64& random, std::size_t digits) {
    static constexpr char Digits[] = "0123456789abcdefABCDEF";
    std::string text;
    for (std::size_t i = 0; i < digits; ++i) text += Digits[random() % (sizeof Digits - 1)];
    return text;
}

void AddSynthetic(CommandLineCorpus& corpus, std::size_t count) {
    std::mt19937_64 random(20240611);
    const char* const tools[] = {
        "/usr/bin/curl -fsSL", "python3 -m pip install", "docker run --rm", "sha256sum",
        "/bin/sh -c",          "git checkout",           "tar xzf",         "node /srv/app/index.js --port"};
    for (std::size_t i = 0; i < count; ++i) {
        std::string line = tools[random() % std::size(tools)];
        const std::size_t pieces = 1 + random() % 5;
        for (std::size_t p = 0; p < pieces; ++p) {
            line += ' ';
            switch (random() % 7) {
            case 0: line += Hex(random, 64); break;
            case 1: line += "--md5=" + Hex(random, 32); break;
            case 2: line += "/tmp/build" + std::to_string(random() % 100000) + "/out.o"; break;
            case 3: line += std::to_string(random() % 10000000); break;
            case 4: line += "--pid " + std::to_string(random() % 100); break;
            case 5: line += "/home/user/project_" + Hex(random, 40) + "/src"; break;
            default: line += "--verbose --output=/var/log/app.log"; break;
            }
        }
        corpus.commandLines.push_back(std::move(line));
        corpus.paths.push_back(i % 4 == 0 ? "/proc/" + std::to_string(random() % 65536) + "/root/usr/bin/tool"
                                          : "/usr/local/bin/tool" + std::to_string(i % 50));
    }
}

}  // namespace

CommandLineCorpus LoadCommandLineCorpus(const std::string& sourceDir, std::size_t synthetic, std::size_t maxLength) {
    CommandLineCorpus corpus;
    ReadLiveProcesses(corpus, maxLength);
    ReadTraces(sourceDir, corpus, maxLength);
    AddSynthetic(corpus, synthetic);
    return corpus;
}

}  // namespace KALVO::Bench
