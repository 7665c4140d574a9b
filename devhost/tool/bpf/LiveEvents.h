// LiveEvents.h: the records the kernel programs of the BPF live source (LiveEvents.bpf.c) hand
// to kalvo-devhost through their one ring buffer. Plain C, shared by both sides, so the layout
// is defined once.
#pragma once

// The kinds, also the indexes of the loss counters.
enum live_kind { LIVE_EXEC, LIVE_FORK, LIVE_EXIT, LIVE_LINE, LIVE_KINDS };

// The executable's path is sent as its names, leaf first, each ending in a NUL (the kernel
// side walks from the file up to the root); the argument vector as it lies in memory.
#define LIVE_PATH_BYTES 4096
#define LIVE_NAME_BYTES 256
#define LIVE_ARGS_BYTES 16384
// Lines of up to 64 KiB arrive whole. The kernel side reads two bytes more (zsh's newline, then
// one that tells a longer line) and the NUL.
#define LIVE_LINE_MAX 65536
#define LIVE_LINE_BYTES (LIVE_LINE_MAX + 3)

// How a line's bytes are encoded.
enum live_line_encoding {
    LIVE_LINE_PLAIN,  // as typed (readline)
    // zsh's line editor: every byte zsh treats as special follows the meta byte 0x83, XORed with
    // 0x20; the line ends in the newline that accepted it.
    LIVE_LINE_ZSH,
};

// A file, as the kernel names it: the key of the map of shells the host fills.
struct live_file_key {
    unsigned long long device;  // the kernel's encoding (major << 20 | minor)
    unsigned long long inode;
};

struct live_event {
    unsigned int kind;
    unsigned int pid;          // the process (thread group)
    unsigned int parent_pid;   // its real parent
    unsigned int user_id;      // the real user
    unsigned long long start;  // the process's start, nanoseconds after boot (start_boottime)
    unsigned long long time;   // when the kernel saw the event, CLOCK_MONOTONIC nanoseconds
    // exec: 1 when the path or the argument vector is incomplete (longer than read, or unreadable).
    unsigned int truncated;
    unsigned int path_bytes;  // exec: bytes of the path's names
    unsigned int data_bytes;  // exec: bytes of the argument vector; line: bytes of the line
    unsigned int encoding;    // line: a live_line_encoding
    // Followed by the data: exec, the path's names, then the arguments; line, the line.
};
