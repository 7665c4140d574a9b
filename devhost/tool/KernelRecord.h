// KernelRecord: the decoder of the BPF live source's records (bpf/LiveEvents.h), apart from
// the code that loads the programs, so that it builds everywhere and is tested on records made
// in memory. A record's bytes in, the event the process table receives out; /proc is read only
// to complete a command line or path the kernel side cut short.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "devhost/ProcessRecord.h"
#include "devhost/tool/ProcFs.h"

namespace KALVO::DevHost::Tool {

enum class KernelEventKind { Exec, Fork, Exit, Line };

struct KernelEvent {
    KernelEventKind kind = KernelEventKind::Exit;
    // Exec and fork: the process's record (a fork's has no path nor command line); exit and
    // line: the pid alone.
    ProcessRecord process{};
    std::string line{};              // line: the user's exact bytes, at most 64 KiB
    std::uint64_t kernelTimeNs = 0;  // when the kernel saw it, CLOCK_MONOTONIC
    // Exec: the command line or path was cut short and /proc could not complete it; line: the
    // line was longer than 64 KiB.
    bool incomplete = false;
};

// The longest line delivered whole.
inline constexpr std::size_t MaxShellLineBytes = 64 * 1024;

// The event a record stands for, or nothing when the record is malformed (shorter than its
// header, sizes beyond its length, an unknown kind).
std::optional<KernelEvent> DecodeKernelRecord(std::string_view bytes, const ProcFs& procfs);

// The path whose names are given leaf first, each ending in a NUL.
std::string JoinLeafFirstPath(std::string_view names);

// A line as zsh keeps it internally, as its user typed it.
std::string Unmetafy(std::string_view line);

}  // namespace KALVO::DevHost::Tool
