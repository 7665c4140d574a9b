// The process callbacks: creation (filtered, counted per normalised parent-to-child step,
// reported), existence (reported once across restarts) and termination (forgotten).
#include <stdexcept>
#include <string>
#include <string_view>

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
using Logging::Severity;

namespace {

constexpr char const* ProcessFilterContext = R"({"sensor":"securitymonitor"})";

ESP::v0::IProcessInfo& Require(SecurityMonitorImpl::ProcessPtr& process) {
    if (!process) throw std::invalid_argument("no process record");
    return *process;
}

}  // namespace

void SecurityMonitorImpl::OnProcessCreate(EventPtr&, ProcessPtr& process, ProcessPtr& parent) {
    (void)Logging::CatchAll("unable to process process start event", [&] {
        ESP::v0::IProcessInfo& child = Require(process);
        ESP::v0::IProcessInfo& creator = Require(parent);
        const std::string uid = CopyText(child.GetUid());
        ObjectPtr<IObject> childIdentity = IdentityOf(child);
        ObjectPtr<IObject> parentIdentity = IdentityOf(creator);

        if (m_processFilter->FilterEvent(childIdentity, parentIdentity, ProcessFilterContext) ==
            ESP::v0::IEventFilter::Suppress) {
            Logging::Log::Write(Severity::Info, "Skipping OnProcessCreate event for process {}", uid);
            return;
        }
        m_runningProcessUIDs.Insert(uid);

        if (CountsRepeats(m_settings.reportLimit.load())) {
            std::string key;
            {
                std::shared_lock lock(m_configMutex);
                key = ProcessTreeKey(ViewText(creator.GetPath()), ViewText(child.GetPath()),
                                     ViewText(creator.GetCommandLine()), ViewText(child.GetCommandLine()),
                                     m_settings.collapse);
            }
            if (IsCountedKey(key) && !CountWithinLimit(m_processTreeCounts, key)) return;
        }

        static const Reporting::Source sourceInformation("SecurityMonitor", Version);
        ReportObservation(*m_reporter, sourceInformation, ProcessCreatedTypeId, "{parent} created {child}",
                          [&](Reporting::IHostObservation& observation) {
                              auto childValues = ValuesOf(child);
                              auto parentValues = ValuesOf(creator);
                              AttachObservable(observation, "child", std::move(childValues));
                              AttachObservable(observation, "parent", std::move(parentValues));
                          });
    });
}

void SecurityMonitorImpl::OnProcessCreateInstant(EventPtr&, ProcessPtr&, ProcessPtr&) {}

void SecurityMonitorImpl::OnProcessExists(EventPtr&, ProcessPtr& process) {
    (void)Logging::CatchAll("unable to process process exists event", [&] {
        ESP::v0::IProcessInfo& running = Require(process);
        const std::string uid = CopyText(running.GetUid());
        ObjectPtr<IObject> identity = IdentityOf(running);
        if (m_processFilter->FilterEvent(identity, identity, ProcessFilterContext) == ESP::v0::IEventFilter::Suppress) {
            Logging::Log::Write(Severity::Info, "Skipping OnProcessExists event for process {}", uid);
            return;
        }
        m_runningProcessUIDs.Insert(uid);
        // The previous run already reported it; no repeat count here otherwise.
        if (WasCachedByPreviousRun(uid)) return;

        static const Reporting::Source sourceInformation("SecurityMonitor", Version);
        ReportObservation(*m_reporter, sourceInformation, ProcessExistsTypeId, "{process} exists on the system",
                          [&](Reporting::IHostObservation& observation) {
                              AttachObservable(observation, "process", ValuesOf(running));
                          });
    });
}

void SecurityMonitorImpl::OnProcessTerminate(EventPtr&, ProcessPtr& process) {
    (void)Logging::CatchAll("unable to process process terminate event",
                            [&] { m_runningProcessUIDs.Erase(CopyText(Require(process).GetUid())); });
}

void SecurityMonitorImpl::OnProcessTerminateInstant(EventPtr&, ProcessPtr&) {}

}  // namespace KALVO::SecurityMonitor
