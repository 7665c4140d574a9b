// The shell callback: a command line a shell received, filtered, counted per shell and
// command, and reported with the command as an observable of its own.
#include <stdexcept>
#include <string>
#include <string_view>

#include "eil/json/Json.h"
#include "eil/values/Identifier.h"
#include "eil/values/MakeValue.h"
#include "eil/values/Values.h"
#include "logging/CatchAll.h"
#include "logging/Log.h"
#include "monitor/Observables.h"
#include "monitor/RepeatKeys.h"
#include "monitor/ReportTypes.h"
#include "monitor/SecurityMonitorImpl.h"
#include "package/Version.h"

namespace KALVO::SecurityMonitor {

using Agent::Hosting::IObject;
using Agent::Hosting::ObjectPtr;
using EIL::Values::Identifier;
using Logging::Severity;

void SecurityMonitorImpl::OnShellCommand(EventPtr&, ProcessPtr& process, char const* commandLine,
                                         unsigned long length) {
    (void)Logging::CatchAll("unable to process shell command event", [&] {
        if (!process) throw std::invalid_argument("no process record");
        ESP::v0::IProcessInfo& shell = *process;
        const std::string command = commandLine ? std::string(commandLine, length) : std::string();
        ObjectPtr<IObject> identity = IdentityOf(shell);

        EIL::Json::Json context = EIL::Json::Object();
        context["sensor"] = EIL::Json::Json(std::string("securitymonitor"));
        context["command"] = EIL::Json::Json(command);
        const std::string contextText = EIL::Json::ToStringA(context);
        if (m_processFilter->FilterEvent(identity, identity, contextText.c_str()) == ESP::v0::IEventFilter::Suppress) {
            Logging::Log::Write(Severity::Info, "Skipping OnShellCommand event for process {}",
                                CopyText(shell.GetUid()));
            return;
        }

        if (CountsRepeats(m_settings.reportLimit.load())) {
            const std::string key =
                ShellCommandKey(ViewText(shell.GetPath()), ViewText(shell.GetCommandLine()), command);
            if (IsCountedKey(key) && !CountWithinLimit(m_shellCommandCounts, key)) return;
        }

        static const Reporting::Source sourceInformation("SecurityMonitor", Version);
        auto commandValues = EIL::Values::MakeValues();
        static constexpr char const* TypeKey = "type";
        static constexpr char const* TypeIdKey = "type_id";
        static constexpr char const* CommandKey = "command";
        (void)Identifier::Set(Identifier(TypeKey), commandValues.Get(), "shell_command");
        (void)Identifier::Set(Identifier(TypeIdKey), commandValues.Get(), CommandObservableTypeId);
        (void)Identifier::Set(Identifier(CommandKey), commandValues.Get(), command);

        ReportObservation(*m_reporter, sourceInformation, ShellCommandTypeId, "Shell {process} received {command}",
                          [&](Reporting::IHostObservation& observation) {
                              AttachObservable(observation, "process", ValuesOf(shell));
                              AttachObservable(observation, "command",
                                               ObjectPtr<EIL::Values::IValues>(std::move(commandValues)));
                          });
    });
}

}  // namespace KALVO::SecurityMonitor
