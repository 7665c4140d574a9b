#include "devhost/tool/NetlinkConnector.h"

#include <linux/cn_proc.h>
#include <linux/connector.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>

namespace KALVO::DevHost::Tool {

namespace {

std::string Failure(char const* step) { return std::string(step) + ": " + std::strerror(errno); }

// The kernel's event numbers (the values of proc_event's "what"): part of its ABI, spelled out
// because newer headers moved the enumeration out of the struct, which changes its C++ name.
constexpr std::uint32_t ForkEvent = 0x00000001;
constexpr std::uint32_t ExecEvent = 0x00000002;
constexpr std::uint32_t ExitEvent = 0x80000000;

// Large enough for a burst of a parallel build: the kernel drops events once it is full.
constexpr int ReceiveBufferBytes = 8 << 20;

}  // namespace

NetlinkConnector::NetlinkConnector() {
    m_socket = ::socket(PF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_CONNECTOR);
    if (m_socket < 0) throw NetlinkUnavailable(Failure("netlink socket"));
    try {
        // FORCE passes the system's limit when we may (root); otherwise the plain request.
        if (::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUFFORCE, &ReceiveBufferBytes, sizeof ReceiveBufferBytes) != 0)
            (void)::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &ReceiveBufferBytes, sizeof ReceiveBufferBytes);
        sockaddr_nl address{};
        address.nl_family = AF_NETLINK;
        address.nl_groups = CN_IDX_PROC;
        address.nl_pid = 0;  // the kernel picks a unique port
        if (::bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            throw NetlinkUnavailable(Failure("netlink bind"));
        Subscribe(true);
        Probe();
    } catch (...) {
        ::close(m_socket);
        throw;
    }
}

NetlinkConnector::~NetlinkConnector() {
    try {
        Subscribe(false);
    } catch (...) {
        // The kernel forgets the subscription with the socket anyway.
    }
    ::close(m_socket);
}

void NetlinkConnector::Subscribe(bool listen) {
    // Header, connector message and operation laid end to end (cn_msg ends in a flexible array,
    // so it cannot be a member followed by another).
    constexpr std::size_t size = NLMSG_LENGTH(sizeof(cn_msg) + sizeof(proc_cn_mcast_op));
    alignas(nlmsghdr) char request[NLMSG_SPACE(sizeof(cn_msg) + sizeof(proc_cn_mcast_op))] = {};
    nlmsghdr header{};
    header.nlmsg_len = size;
    header.nlmsg_type = NLMSG_DONE;
    cn_msg message{};
    message.id.idx = CN_IDX_PROC;
    message.id.val = CN_VAL_PROC;
    message.len = sizeof(proc_cn_mcast_op);
    const proc_cn_mcast_op operation = listen ? PROC_CN_MCAST_LISTEN : PROC_CN_MCAST_IGNORE;
    std::memcpy(request, &header, sizeof header);
    std::memcpy(request + NLMSG_HDRLEN, &message, sizeof message);
    std::memcpy(request + NLMSG_HDRLEN + sizeof message, &operation, sizeof operation);
    if (::send(m_socket, request, size, 0) != static_cast<ssize_t>(size))
        throw NetlinkUnavailable(Failure("netlink subscribe"));
}

void NetlinkConnector::Probe() {
    const pid_t child = ::fork();
    if (child < 0) throw NetlinkUnavailable(Failure("fork of the probe"));
    if (child == 0) ::_exit(0);

    bool seen = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (!seen && std::chrono::steady_clock::now() < deadline) {
        Receive(100, [&](const KernelProcessEvent& event) {
            if (event.pid == static_cast<std::uint64_t>(child)) seen = true;
        });
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!seen) {
        throw NetlinkUnavailable(
            "the process connector sent no events (another network namespace, or not allowed to listen)");
    }
}

std::size_t NetlinkConnector::Receive(int timeoutMs, const std::function<void(const KernelProcessEvent&)>& handle) {
    pollfd waiting{m_socket, POLLIN, 0};
    const int ready = ::poll(&waiting, 1, timeoutMs);
    if (ready <= 0) return 0;

    std::size_t handed = 0;
    // Drains what is queued, up to a bound so a flood cannot keep the caller from its checks.
    for (int datagram = 0; datagram < 256; ++datagram) {
        alignas(nlmsghdr) char buffer[16384];
        const ssize_t length = ::recv(m_socket, buffer, sizeof buffer, MSG_DONTWAIT);
        if (length < 0) {
            if (errno == ENOBUFS) {
                ++m_overflows;
                continue;
            }
            break;
        }
        handed += Handle(buffer, static_cast<std::size_t>(length), handle);
    }
    return handed;
}

std::size_t NetlinkConnector::Handle(const char* buffer, std::size_t length,
                                     const std::function<void(const KernelProcessEvent&)>& handle) {
    std::size_t handed = 0;
    auto remaining = static_cast<unsigned>(length);
    for (auto* header = reinterpret_cast<const nlmsghdr*>(buffer); NLMSG_OK(header, remaining);
         header = NLMSG_NEXT(header, remaining)) {
        if (header->nlmsg_type == NLMSG_NOOP || header->nlmsg_type == NLMSG_ERROR) continue;
        if (header->nlmsg_len < NLMSG_LENGTH(sizeof(cn_msg))) continue;
        cn_msg message;
        std::memcpy(&message, NLMSG_DATA(header), sizeof message);
        if (message.id.idx != CN_IDX_PROC || message.id.val != CN_VAL_PROC) continue;
        if (message.len < sizeof(proc_event) || header->nlmsg_len < NLMSG_LENGTH(sizeof(cn_msg) + sizeof(proc_event)))
            continue;
        proc_event event;
        std::memcpy(&event, static_cast<const char*>(NLMSG_DATA(header)) + sizeof(cn_msg), sizeof event);

        KernelProcessEvent out;
        switch (static_cast<std::uint32_t>(event.what)) {
            case ForkEvent:
                // A new thread is a fork too; only new processes count.
                if (event.event_data.fork.child_pid != event.event_data.fork.child_tgid) continue;
                out.type = KernelProcessEvent::Type::Fork;
                out.pid = static_cast<std::uint64_t>(event.event_data.fork.child_tgid);
                out.parentPid = static_cast<std::uint64_t>(event.event_data.fork.parent_tgid);
                break;
            case ExecEvent:
                out.type = KernelProcessEvent::Type::Exec;
                out.pid = static_cast<std::uint64_t>(event.event_data.exec.process_tgid);
                break;
            case ExitEvent:
                // Only the end of the thread-group leader is the end of the process.
                if (event.event_data.exit.process_pid != event.event_data.exit.process_tgid) continue;
                out.type = KernelProcessEvent::Type::Exit;
                out.pid = static_cast<std::uint64_t>(event.event_data.exit.process_tgid);
                break;
            default:
                continue;
        }
        handle(out);
        ++handed;
    }
    return handed;
}

}  // namespace KALVO::DevHost::Tool
