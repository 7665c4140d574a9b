// Maps a command line (argc, argv) to its options and their values: every argument that begins
// with "-" names an option and makes it current; every other argument is a value of the
// current option (of the empty name before any option), keyed by its position in argv.
//
// The option name is the argument as written, dashes included ("-v" and "--v" differ). A
// value may also follow the name after "=" in the same argument ("--level=3"); it is then
// keyed by that argument's position. A repeated option collects the values of all its
// occurrences. Null entries of argv are skipped.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace KALVO::EIL::String {

template <class Char>
using CmdLineMap = std::map<std::basic_string<Char>, std::map<unsigned, std::basic_string<Char>>>;

namespace Detail {

template <class Char>
CmdLineMap<Char> MapCmdLine(int argc, const Char* const* argv) {
    CmdLineMap<Char> options;
    auto* current = &options[{}];
    for (int i = 0; argv != nullptr && i < argc; ++i) {
        if (argv[i] == nullptr) continue;
        const std::basic_string_view<Char> argument = argv[i];
        const auto position = static_cast<unsigned>(i);
        if (!argument.starts_with(Char('-'))) {
            (*current)[position] = argument;
            continue;
        }
        const auto equals = argument.find(Char('='));
        current = &options[std::basic_string<Char>(argument.substr(0, equals))];
        if (equals != argument.npos) (*current)[position] = argument.substr(equals + 1);
    }
    // The empty name is listed only when values came before the first option.
    if (const auto unnamed = options.find({}); unnamed != options.end() && unnamed->second.empty())
        options.erase(unnamed);
    return options;
}

}  // namespace Detail

inline CmdLineMap<char> MapCmdLine(int argc, const char* const* argv) { return Detail::MapCmdLine(argc, argv); }
inline CmdLineMap<wchar_t> MapCmdLine(int argc, const wchar_t* const* argv) { return Detail::MapCmdLine(argc, argv); }

}  // namespace KALVO::EIL::String
