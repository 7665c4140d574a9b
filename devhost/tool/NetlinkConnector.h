// NetlinkConnector: the kernel's process events (fork, exec, exit) through the netlink process
// connector, the way an agent on this platform learns of process creations as they happen
// instead of finding them late by polling. Needs the right to listen (root, or CAP_NET_ADMIN)
// and the machine's first network namespace; where either is missing, opening or the probe
// fails and the caller polls /proc instead.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>

namespace KALVO::DevHost::Tool {

class NetlinkUnavailable : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct KernelProcessEvent {
    enum class Type { Fork, Exec, Exit };
    Type type = Type::Exec;
    std::uint64_t pid = 0;        // the process (its thread group); for Fork, the child
    std::uint64_t parentPid = 0;  // Fork only: the process that forked
};

class NetlinkConnector {
public:
    // Opens the socket, subscribes, and proves that events arrive by forking a child that exits
    // at once and waiting up to a second for its events. Throws NetlinkUnavailable saying why not.
    NetlinkConnector();
    ~NetlinkConnector();

    NetlinkConnector(const NetlinkConnector&) = delete;  // owns a socket
    NetlinkConnector& operator=(const NetlinkConnector&) = delete;

    // Waits up to `timeoutMs` for events and hands each one of a process (not of a thread) to
    // `handle`, on this thread. Returns the number handed over.
    std::size_t Receive(int timeoutMs, const std::function<void(const KernelProcessEvent&)>& handle);

    // Times the kernel dropped events because this reader fell behind.
    std::uint64_t Overflows() const noexcept { return m_overflows; }

private:
    void Subscribe(bool listen);
    void Probe();
    // Hands over the events of one datagram; returns how many.
    std::size_t Handle(const char* buffer, std::size_t length, const std::function<void(const KernelProcessEvent&)>& handle);

    int m_socket = -1;
    std::uint64_t m_overflows = 0;
};

}  // namespace KALVO::DevHost::Tool
