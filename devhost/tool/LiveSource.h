// LiveSource: this machine's processes as events, for the live and record commands. Every
// process running at the start is announced as existing; then creations and terminations come
// from the kernel's netlink process connector, or, where that is not available, from polling
// /proc (which can miss programs that live shorter than one polling interval).
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "devhost/tool/EventSink.h"
#include "devhost/tool/NetlinkConnector.h"
#include "devhost/tool/ProcFs.h"
#include "devhost/tool/SignalWatcher.h"

namespace KALVO::DevHost::Tool {

struct LiveOptions {
    bool forcePolling = false;
    std::optional<std::uint64_t> treeRoot;  // only this process and its descendants
    std::chrono::milliseconds pollInterval{200};
};

struct LiveStatistics {
    std::uint64_t missed = 0;     // new programs gone before they could be read
    std::uint64_t overflows = 0;  // times the kernel dropped events
};

class LiveSource {
public:
    // Subscribes to the kernel's events (unless polling is forced), so nothing that happens
    // from here on is lost. Throws std::runtime_error when /proc cannot be read.
    explicit LiveSource(LiveOptions options);
    ~LiveSource();

    // Which source is used, and why not the connector when polling, for the user.
    const std::string& Description() const noexcept { return m_description; }

    // Announces the running processes, then follows creations and terminations until a stop is
    // requested or `deadline` passes. On the calling thread.
    void Run(EventSink& sink, SignalWatcher& signals, std::optional<SignalWatcher::Clock::time_point> deadline);

    LiveStatistics Statistics() const noexcept { return m_statistics; }

private:
    LiveOptions m_options;
    ProcFs m_procfs;
    std::unique_ptr<NetlinkConnector> m_connector;  // null when polling
    std::string m_description;
    LiveStatistics m_statistics;
};

}  // namespace KALVO::DevHost::Tool
