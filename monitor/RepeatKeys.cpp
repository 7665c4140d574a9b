#include "monitor/RepeatKeys.h"

#include "monitor/Normalize.h"

namespace KALVO::SecurityMonitor {

std::string ProcessTreeKey(std::string_view parentPath, std::string_view childPath, std::string_view parentCommandLine,
                           std::string_view childCommandLine, CollapseExpression const& collapse) {
    // Built in one string, each part normalised where it lands: the host's texts are copied
    // once and no part needs a string of its own.
    std::string key;
    key.reserve(parentPath.size() + childPath.size() + parentCommandLine.size() + childCommandLine.size() + 3);
    key.append(parentPath);
    NormalizeProcessPath(key, 0);
    key.append(1, '|');
    const std::size_t childPathStart = key.size();
    key.append(childPath);
    NormalizeProcessPath(key, childPathStart);
    key.append(1, '|');
    const std::size_t parentCommandLineStart = key.size();
    key.append(parentCommandLine);
    NormalizeCommandline(key, parentCommandLineStart);
    const std::size_t parentCommandLineLength = key.size() - parentCommandLineStart;
    key.append(1, '|');
    const std::size_t childCommandLineStart = key.size();
    key.append(childCommandLine);
    NormalizeCommandline(key, childCommandLineStart);

    // Both are matched before either is replaced; the child's part is replaced first so that
    // the parent's offsets stay valid.
    const std::string_view keyText = key;
    const bool collapseChild = collapse.MatchesWhole(keyText.substr(childCommandLineStart));
    const bool collapseParent = collapse.MatchesWhole(keyText.substr(parentCommandLineStart, parentCommandLineLength));
    if (collapseChild) key.replace(childCommandLineStart, std::string::npos, "<>");
    if (collapseParent) key.replace(parentCommandLineStart, parentCommandLineLength, "<>");
    return key;
}

std::string ShellCommandKey(std::string_view shellPath, std::string_view shellCommandLine, std::string_view command) {
    std::string key;
    if (shellPath.empty() && command.empty()) return key;
    key.reserve(shellPath.size() + shellCommandLine.size() + command.size() + 2);
    key.append(shellPath);
    NormalizeProcessPath(key, 0);
    key.append(1, '|').append(shellCommandLine).append(1, '|').append(command);
    return key;
}

}  // namespace KALVO::SecurityMonitor
