// kalvo-devhost: runs the sensor plug-in under the stand-in host against this machine's
// processes or a recorded trace, so a person sees what it reports and what it holds back.
#include <csignal>
#include <exception>
#include <iostream>
#include <string>

#include "devhost/Plugin.h"
#include "devhost/tool/Commands.h"
#include "devhost/tool/Console.h"
#include "devhost/tool/PluginLocation.h"
#include "devhost/tool/SignalWatcher.h"
#include "devhost/tool/ToolOptions.h"

using namespace KALVO::DevHost::Tool;

int main(int argc, char** argv) {
    // A closed stdout shows up as a failed write, which stops the run, instead of killing it.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        const ToolOptions options = ParseToolOptions(argc, argv);
        if (options.command == Command::Help) {
            const std::vector<std::string> candidates = PluginCandidates();
            std::cout << UsageText(candidates.back());
            return 0;
        }
        // Before any other thread, so every thread inherits the blocked signals.
        SignalWatcher signals;
        switch (options.command) {
            case Command::Live: return RunLive(options, signals);
            case Command::Record: return RunRecord(options, signals);
            case Command::Replay: return RunReplay(options, signals);
            case Command::Health: return RunHealth(options);
            case Command::Help: break;
        }
        return 0;
    } catch (const UsageError& error) {
        Note(error.what());
        return 2;
    } catch (const std::exception& error) {
        Note(error.what());
        return 1;
    }
}
