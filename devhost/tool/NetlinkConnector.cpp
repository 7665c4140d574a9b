// The netlink source: the kernel's process connector says which pid ran exec, the record is read
// from /proc (so a program that ends first is missed, and counted), and which process ended: the
// way an agent on this platform learns of process creations as they happen instead of finding
// them late by polling. Needs the right to listen (root, or CAP_NET_ADMIN) and the machine's
// first network namespace and pid namespace; where any is missing, opening or the probe fails.
#include <linux/cn_proc.h>
#include <linux/connector.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>

#include "devhost/tool/Console.h"
#include "devhost/tool/DeliveryLatency.h"
#include "devhost/tool/LiveSource.h"
#include "eil/core/ScopeGuard.h"

namespace KALVO::DevHost::Tool {

namespace {

// The kernel's event numbers (the values of proc_event's "what"): part of its ABI, spelled out
// because newer headers moved the enumeration out of the struct, which changes its C++ name.
constexpr std::uint32_t ExecEvent = 0x00000002;
constexpr std::uint32_t ExitEvent = 0x80000000;

// Large enough for a burst of a parallel build: the kernel drops events once it is full.
constexpr int ReceiveBufferBytes = 8 << 20;

class NetlinkSource final : public KernelSource {
public:
    // Opens the socket, subscribes, and proves that events arrive by forking a child that exits
    // at once and waiting up to a second for its end.
    explicit NetlinkSource(const ProcFs& procfs) : m_procfs(procfs) {
        if (m_socket < 0) throw SystemFailure("netlink socket");
        description = "process events from the kernel's netlink process connector";
        auto closeOnFailure = EIL::Core::MakeScopeFail([this] { ::close(m_socket); });
        // FORCE passes the system's limit when we may (root); otherwise the plain request.
        if (::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUFFORCE, &ReceiveBufferBytes, sizeof ReceiveBufferBytes) != 0)
            (void)::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &ReceiveBufferBytes, sizeof ReceiveBufferBytes);
        // nl_pid 0: the kernel picks a unique port.
        sockaddr_nl address{.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = 0, .nl_groups = CN_IDX_PROC};
        if (::bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            throw SystemFailure("netlink bind");
        if (!Send(PROC_CN_MCAST_LISTEN)) throw SystemFailure("netlink subscribe");

        const pid_t child = ::fork();
        if (child < 0) throw SystemFailure("fork of the probe");
        if (child == 0) ::_exit(0);
        bool seen = false;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
        while (!seen && std::chrono::steady_clock::now() < deadline)
            Drain(100, [&](std::uint32_t, std::uint64_t pid, std::uint64_t) {
                seen = seen || pid == static_cast<std::uint64_t>(child);
            });
        while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) continue;
        if (!seen)
            throw std::runtime_error(
                "the process connector sent no events (another network namespace, or not allowed to listen)");
    }

    ~NetlinkSource() override {
        (void)Send(PROC_CN_MCAST_IGNORE);  // on failure, the kernel forgets it with the socket anyway
        ::close(m_socket);
    }

    void Receive(int timeoutMs, ProcessTracker& tracker) override {
        Drain(timeoutMs, [&](std::uint32_t what, std::uint64_t pid, std::uint64_t kernelNs) {
            if (what == ExitEvent) return tracker.OnExit(pid);
            std::optional<ProcessRecord> record = m_procfs.ReadProcess(pid);
            if (!record) {
                ++m_missed;
                return;
            }
            tracker.OnExec(std::move(*record));
            m_latency.Delivered(kernelNs);
        });
    }

    void NoteStatistics() const override {
        if (m_missed != 0) Note(fmt::format("{} new program(s) ended before they could be read", m_missed));
        if (m_overflows != 0)
            Warn(fmt::format("the kernel dropped process events {} time(s): this reader fell behind", m_overflows));
        if (const std::string latency = m_latency.Summary(); !latency.empty())
            Note("creations from the kernel's exec to the sensor: " + latency);
    }

private:
    // Subscribes or unsubscribes; false when the kernel refused.
    bool Send(proc_cn_mcast_op operation) {
        nlmsghdr header{NLMSG_LENGTH(sizeof(cn_msg) + sizeof operation), NLMSG_DONE, 0, 0, 0};
        cn_msg message{{CN_IDX_PROC, CN_VAL_PROC}, 0, 0, sizeof operation, 0};
        // The three laid end to end (cn_msg ends in a flexible array, so it cannot be a member
        // followed by another); the socket's default destination is the kernel.
        iovec parts[] = {{&header, sizeof header}, {&message, sizeof message}, {&operation, sizeof operation}};
        return ::writev(m_socket, parts, std::size(parts)) == static_cast<ssize_t>(header.nlmsg_len);
    }

    // Waits up to `timeoutMs` for the next datagram, which the kernel sends with one event, and
    // hands it to `handle` as (what, pid, the kernel's CLOCK_MONOTONIC time of it) if it is an exec or exit of a process (not of a thread).
    template <class Handle>
    void Drain(int timeoutMs, const Handle& handle) {
        pollfd waiting{m_socket, POLLIN, 0};
        char buffer[NLMSG_SPACE(sizeof(cn_msg) + sizeof(proc_event))];
        if (::poll(&waiting, 1, timeoutMs) <= 0) return;
        const ssize_t length = ::recv(m_socket, buffer, sizeof buffer, MSG_DONTWAIT);
        if (length < 0 && errno == ENOBUFS) ++m_overflows;
        nlmsghdr header;
        cn_msg message;
        proc_event event;
        if (length < static_cast<ssize_t>(NLMSG_LENGTH(sizeof message + sizeof event))) return;
        std::memcpy(&header, buffer, sizeof header);
        std::memcpy(&message, buffer + NLMSG_HDRLEN, sizeof message);
        std::memcpy(&event, buffer + NLMSG_HDRLEN + sizeof message, sizeof event);
        if (header.nlmsg_type != NLMSG_DONE || message.id.idx != CN_IDX_PROC || message.id.val != CN_VAL_PROC) return;
        const auto what = static_cast<std::uint32_t>(event.what);
        const auto& exit = event.event_data.exit;
        if (what == ExecEvent) handle(what, event.event_data.exec.process_tgid, event.timestamp_ns);
        // Only the end of the thread-group leader is the end of the process.
        if (what == ExitEvent && exit.process_pid == exit.process_tgid)
            handle(what, exit.process_tgid, event.timestamp_ns);
    }

    const ProcFs& m_procfs;
    int m_socket = ::socket(PF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_CONNECTOR);
    std::uint64_t m_missed = 0;     // new programs gone before they could be read
    std::uint64_t m_overflows = 0;  // times the kernel dropped events because this reader fell behind
    DeliveryLatency m_latency;
};

}  // namespace

std::unique_ptr<KernelSource> OpenNetlinkSource(const ProcFs& procfs) {
    return std::make_unique<NetlinkSource>(procfs);
}

}  // namespace KALVO::DevHost::Tool
