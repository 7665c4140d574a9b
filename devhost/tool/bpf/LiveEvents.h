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
// Lines of up to 64 KiB arrive whole; one byte more is read to tell a longer line.
#define LIVE_LINE_BYTES (65536 + 2)

struct live_event {
    unsigned int kind;
    unsigned int pid;          // the process (thread group)
    unsigned int parent_pid;   // its real parent
    unsigned int user_id;      // the real user
    unsigned long long start;  // the process's start, nanoseconds after boot (start_boottime)
    // 1 when incomplete: exec, the path or the argument vector (longer than read, or
    // unreadable); line, the line.
    unsigned int truncated;
    unsigned int path_bytes;  // exec: bytes of the path's names
    unsigned int data_bytes;  // exec: bytes of the argument vector; line: bytes of the line
    // Followed by the data: exec, the path's names, then the arguments; line, the line.
};
