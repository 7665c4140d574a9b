// kalvo-devhost: runs the sensor plug-in under the stand-in host against this machine's
// processes or a recorded trace, so a person sees what it reports and what it holds back.
#include <csignal>
#include <exception>
#include <iostream>

#include "devhost/tool/Commands.h"
#include "devhost/tool/Console.h"

using namespace KALVO::DevHost::Tool;

int main(int argc, char** argv) {
    // A closed stdout shows up as a failed write, which stops the run, instead of killing it.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        const ToolOptions options = ParseToolOptions(argc, argv);
        if (options.command == Command::Help) {
            std::cout << UsageText;
            return 0;
        }
        // Before any other thread, so every thread inherits the blocked signals.
        SignalWatcher signals;
        return RunCommand(options, signals);
    } catch (const UsageError& error) {
        Note(error.what());
        return 2;
    } catch (const std::exception& error) {
        Note(error.what());
        return 1;
    }
}
