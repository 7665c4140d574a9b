// The command line of kalvo-devhost: CLI11 does the parsing, in this file alone, so that the
// program's other pieces compile without it.
#include "devhost/tool/ToolOptions.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace KALVO::DevHost::Tool {
namespace {

// `text` as a whole number from `low` to `high`, else nothing.
template <class T>
std::optional<T> Whole(std::string_view text, T low, T high) {
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || value < low || value > high)
        return std::nullopt;
    return value;
}

// An option whose value `parse` checks and stores; when it returns false, the message is
// "'VALUE' is not `what`".
template <class Parse>
CLI::Option* AddChecked(CLI::App& app, const std::string& name, const std::string& what, Parse parse) {
    return app.add_option_function<std::string>(name, [name, what, parse](const std::string& value) {
        if (!parse(value)) throw CLI::ValidationError(name, fmt::format("'{}' is not {}", value, what));
    });
}

}  // namespace

// Parses argv[1..], warning of the sensor's options given to record. Throws UsageError.
ToolOptions ParseToolOptions(int argc, char const* const* argv) {
    using Logging::v0::Severity;
    ToolOptions options;
    CLI::App app{"kalvo-devhost"};
    app.set_help_flag();  // the usage text is our own
    bool help = false;
    app.add_flag("-h,--help", help);
    bool version = false;
    app.add_flag("--version", version);
    // Options of the sensor are accepted before and after the command.
    app.fallthrough();
    app.add_option("--plugin", options.plugin);
    app.add_option("--config", options.config);
    app.add_option("--state", options.stateDir)->check([](const std::string& value) {
        return value.empty() ? "the directory name is empty" : "";
    });
    AddChecked(app, "--log-level", "error, warn, info, trace or a number 0-7", [&](const std::string& text) {
        const std::map<std::string, Severity> names = {{"error", Severity::Error},
                                                       {"warn", Severity::Warn},
                                                       {"warning", Severity::Warn},
                                                       {"info", Severity::Info},
                                                       {"trace", Severity::Trace}};
        const auto named = names.find(text);
        const auto level =
            named != names.end() ? static_cast<std::uint32_t>(named->second) : Whole<std::uint32_t>(text, 0, 7);
        options.logThreshold = level.value_or(options.logThreshold);
        return level.has_value();
    });
    app.add_option_function<std::string>("--fail",
                                         [&](const std::string& rule) {
                                             try {
                                                 options.faults.push_back(ParseFaultRule(rule));
                                             } catch (const std::invalid_argument& error) {
                                                 throw CLI::ValidationError("--fail " + rule, error.what());
                                             }
                                         })
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->expected(1);

    CLI::App* const live = app.add_subcommand("live");
    CLI::App* const record = app.add_subcommand("record");
    CLI::App* const replay = app.add_subcommand("replay");
    CLI::App* const health = app.add_subcommand("health");
    for (CLI::App* machine : {live, record}) {
        AddChecked(*machine, "--duration", "a positive number of seconds", [&](const std::string& text) {
            char* end = nullptr;
            options.duration = std::strtod(text.c_str(), &end);
            return !text.empty() && *end == '\0' && *options.duration > 0 && *options.duration <= 1e9;
        });
        AddChecked(*machine, "--tree", "a process id", [&](const std::string& text) {
            options.treeRoot = Whole<std::uint64_t>(text, 1, UINT64_MAX);
            return options.treeRoot.has_value();
        });
        AddChecked(*machine, "--source", "bpf, netlink or poll", [&](const std::string& text) {
            const std::map<std::string, LiveSourceKind> kinds = {
                {"bpf", LiveSourceKind::Bpf}, {"netlink", LiveSourceKind::Netlink}, {"poll", LiveSourceKind::Poll}};
            const auto kind = kinds.find(text);
            if (kind != kinds.end()) options.source = kind->second;
            return kind != kinds.end();
        });
    }
    record->add_option("--output", options.output);
    replay->add_option("trace", options.trace, "the trace, - for stdin")->required();
    AddChecked(*replay, "--threads", "a number from 1 to 256", [&](const std::string& text) {
        options.threads = Whole(text, 1u, 256u).value_or(0);
        return options.threads != 0;
    });
    replay->add_option("--compare", options.compare);
    for (CLI::App* sensor : {live, replay}) {
        // The count is optional: "--keys 5", "--keys=5" or "--keys" alone (the default rows).
        AddChecked(*sensor, "--keys", fmt::format("a number from 1 to {}", KeyCapacity),
                   [&](const std::string& text) {
                       options.keys = text.empty() ? DefaultKeyRows : Whole<std::size_t>(text, 1, KeyCapacity);
                       return options.keys.has_value();
                   })
            ->expected(0, 1)
            ->default_str("");
        sensor->add_option("--keys-json", options.keysJson);
        sensor->add_option("--keys-html", options.keysHtml);
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (help) return options;  // --help
        throw UsageError(std::string(error.what()) + " (see --help)");
    }
    if (help) return options;
    if (version) {
        options.command = Command::Version;
        return options;
    }
    const std::pair<CLI::App*, Command> commands[] = {
        {live, Command::Live}, {record, Command::Record}, {replay, Command::Replay}, {health, Command::Health}};
    for (const auto& [subcommand, command] : commands) {
        if (subcommand->parsed()) options.command = command;
    }
    if (options.command == Command::Help)
        throw UsageError("no command given: live, record, replay or health (see --help)");
    if (options.command == Command::Record) {
        for (char const* name : {"--plugin", "--config", "--state", "--log-level", "--fail"})
            if (app.count(name) != 0) Warn(fmt::format("{} has no effect on record, which runs no sensor", name));
    }
    return options;
}

}  // namespace KALVO::DevHost::Tool
