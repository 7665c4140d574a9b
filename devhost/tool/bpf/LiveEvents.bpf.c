// SPDX-License-Identifier: GPL-2.0
// The kernel half of kalvo-devhost's BPF live source: every new program with its path and
// argument vector read at the exec itself (so one that ends at once is still known whole), the
// forks and exits that keep the host's process table right, and every line a shell's line
// editor returns (readline in bash, zle in zsh). Everything goes through one ring buffer; what
// cannot be handed over is counted in `losses` by kind, which the host reads and reports.
// The kernel's types come first: libbpf's headers use them.
#include "vmlinux.h"

#include <bpf/bpf_core_read.h>
#include <bpf/bpf_helpers.h>
#include <bpf/bpf_tracing.h>

#include "LiveEvents.h"

#if defined(KALVO_FOREIGN_BTF) && defined(__TARGET_ARCH_arm64)
// The types came from another architecture's kernel: the target's registers, for PT_REGS_RC.
struct user_pt_regs {
    __u64 regs[31];
    __u64 sp;
    __u64 pc;
    __u64 pstate;
};
#endif

char LICENSE[] SEC("license") = "GPL";

#define RING_BYTES (16 << 20)
// Above this much unread data a record wakes the reader at once, so a storm never fills the
// ring while it sleeps.
#define WAKEUP_BYTES (RING_BYTES / 16)

// Set by the host while it looks at the ring at short intervals (after a record woke it, until
// a look finds nothing): records below the threshold then wake nobody, since a wake-up a record
// costs more than the rest of an exec. Otherwise a record wakes the reader if it had caught up.
__u32 reader_polling = 0;

struct {
    __uint(type, BPF_MAP_TYPE_RINGBUF);
    __uint(max_entries, RING_BYTES);
} events SEC(".maps");

// An exec record is built here, then copied into the ring buffer at its real size.
struct exec_scratch {
    struct live_event header;
    char data[2 * LIVE_PATH_BYTES + LIVE_ARGS_BYTES];  // room for the mask below
};

struct {
    __uint(type, BPF_MAP_TYPE_PERCPU_ARRAY);
    __uint(max_entries, 1);
    __type(key, __u32);
    __type(value, struct exec_scratch);
} scratch SEC(".maps");

// The executables whose lines are reported (the shells), filled by the host: a program that links the same readline (python, sqlite3, gdb) is not a shell.
struct {
    __uint(type, BPF_MAP_TYPE_HASH);
    __uint(max_entries, 64);
    __type(key, struct live_file_key);
    __type(value, __u8);
} shells SEC(".maps");

// The threads inside a readline call whose return is watched, so that the line of a call that
// began before the probes (a prompt already waiting) is taken where it is accepted instead, and
// no line is taken twice.
struct {
    __uint(type, BPF_MAP_TYPE_HASH);
    __uint(max_entries, 16384);
    __type(key, __u32);
    __type(value, __u8);
} reading SEC(".maps");

// The execs the kernel could not hand over, by pid, with their parent: the host counts those
// of the processes it follows. Those beyond the map's room are counted in losses alone.
struct {
    __uint(type, BPF_MAP_TYPE_HASH);
    __uint(max_entries, 65536);
    __type(key, __u32);
    __type(value, __u32);
} lost_execs SEC(".maps");

__u64 losses[LIVE_KINDS] = {};
__u64 unattributed_exec_losses = 0;  // lost execs not in lost_execs

// A reader that is not looking at the ring is woken by every record, forced: the ring's own rule
// wakes only when the reader had read everything before, so one record that came without a
// wake-up (while the reader was still looking) would otherwise keep every later one from waking it.
static __always_inline __u64 wakeup_flags(void) {
    if (bpf_ringbuf_query(&events, BPF_RB_AVAIL_DATA) >= WAKEUP_BYTES) return BPF_RB_FORCE_WAKEUP;
    return reader_polling ? BPF_RB_NO_WAKEUP : BPF_RB_FORCE_WAKEUP;
}

static __always_inline struct live_event header_of(unsigned kind, struct task_struct* task) {
    return (struct live_event){
        .kind = kind,
        .pid = BPF_CORE_READ(task, tgid),
        .parent_pid = BPF_CORE_READ(task, real_parent, tgid),
        .user_id = BPF_CORE_READ(task, real_cred, uid.val),
        .start = BPF_CORE_READ(task, group_leader, start_boottime),
        .time = bpf_ktime_get_ns(),
    };
}

// A fork or an exit, of a process only: a new thread is a fork too, and only the end of the
// thread-group leader is the end of the process.
static __always_inline int fork_or_exit(unsigned kind, struct task_struct* task) {
    if (BPF_CORE_READ(task, pid) != BPF_CORE_READ(task, tgid)) return 0;
    struct live_event event = header_of(kind, task);
    if (bpf_ringbuf_output(&events, &event, sizeof event, wakeup_flags()) != 0) __sync_fetch_and_add(&losses[kind], 1);
    return 0;
}

// The names of the executable's path from the leaf up, across mount points, each ending in a
// NUL, one step of bpf_loop a name (a loop the verifier checks once, however deep the path).
struct walk {
    struct exec_scratch* record;
    struct dentry* dentry;
    struct mount* mount;  // null once the walk reached the root
    __u32 used;
};

static long walk_step(__u32 index, struct walk* walk) {
    struct dentry *dentry = walk->dentry, *parent = BPF_CORE_READ(dentry, d_parent);
    struct mount* mount = walk->mount;
    if (dentry == BPF_CORE_READ(mount, mnt.mnt_root) || dentry == parent) {
        struct mount* up = BPF_CORE_READ(mount, mnt_parent);
        if (up == mount) {  // the root of everything
            walk->mount = 0;
            return 1;
        }
        walk->dentry = BPF_CORE_READ(mount, mnt_mountpoint);
        walk->mount = up;
        return 0;
    }
    __u32 used = walk->used;
    if (used > LIVE_PATH_BYTES - LIVE_NAME_BYTES) return 1;
    long length =
        bpf_probe_read_kernel_str(walk->record->data + used, LIVE_NAME_BYTES, BPF_CORE_READ(dentry, d_name.name));
    if (length <= 0) return 1;
    walk->used = used + length;
    walk->dentry = parent;
    return 0;
}

SEC("tp_btf/sched_process_exec")
int BPF_PROG(on_exec, struct task_struct* task) {
    __u32 zero = 0;
    struct exec_scratch* record = bpf_map_lookup_elem(&scratch, &zero);
    if (!record) return 0;
    record->header = header_of(LIVE_EXEC, task);
    struct mm_struct* mm = BPF_CORE_READ(task, mm);
    struct file* exe = BPF_CORE_READ(mm, exe_file);
    struct walk walk = {record, BPF_CORE_READ(exe, f_path.dentry),
                        container_of(BPF_CORE_READ(exe, f_path.mnt), struct mount, mnt)};
    bpf_loop(64, walk_step, &walk, 0);
    record->header.truncated = walk.mount != 0;
    __u32 path = walk.used & (2 * LIVE_PATH_BYTES - 1);  // never more than LIVE_PATH_BYTES: a bound the verifier sees
    unsigned long start = BPF_CORE_READ(mm, arg_start), end = BPF_CORE_READ(mm, arg_end);
    __u64 wanted = end > start ? end - start : 0;
    __u64 length = wanted > LIVE_ARGS_BYTES ? LIVE_ARGS_BYTES : wanted;
    if (bpf_probe_read_user(record->data + path, length, (void*)start) != 0) length = 0;
    record->header.truncated |= length < wanted;
    record->header.path_bytes = path;
    record->header.data_bytes = length;
    if (bpf_ringbuf_output(&events, record, sizeof record->header + path + length, wakeup_flags()) != 0) {
        __sync_fetch_and_add(&losses[LIVE_EXEC], 1);
        __u32 pid = record->header.pid;
        __u32 parent = record->header.parent_pid;
        if (bpf_map_update_elem(&lost_execs, &pid, &parent, BPF_ANY) != 0)
            __sync_fetch_and_add(&unattributed_exec_losses, 1);
    }
    return 0;
}

SEC("tp_btf/sched_process_fork")
int BPF_PROG(on_fork, struct task_struct* parent, struct task_struct* child) { return fork_or_exit(LIVE_FORK, child); }

SEC("tp_btf/sched_process_exit")
int BPF_PROG(on_exit, struct task_struct* task) { return fork_or_exit(LIVE_EXIT, task); }

// Whether the current process runs one of the shells.
static __always_inline int in_shell(void) {
    struct task_struct* task = bpf_get_current_task_btf();
    struct inode* inode = BPF_CORE_READ(task, mm, exe_file, f_inode);
    struct live_file_key key = {.device = BPF_CORE_READ(inode, i_sb, s_dev), .inode = BPF_CORE_READ(inode, i_ino)};
    return bpf_map_lookup_elem(&shells, &key) != 0;
}

// Hands over a line of the user's at `line` (NULL: the end of input, nothing to hand over).
static __always_inline void send_line(const char* line, unsigned encoding) {
    if (!line) return;
    struct live_event* event = bpf_ringbuf_reserve(&events, sizeof *event + LIVE_LINE_BYTES, 0);
    long length = event ? bpf_probe_read_user_str(event + 1, LIVE_LINE_BYTES, line) : 0;
    if (length <= 0) {  // no room in the ring buffer, or the line unreadable
        __sync_fetch_and_add(&losses[LIVE_LINE], 1);
        if (event) bpf_ringbuf_discard(event, 0);
        return;
    }
    *event = header_of(LIVE_LINE, bpf_get_current_task_btf());
    event->encoding = encoding;
    event->data_bytes = length - 1;  // without the terminating NUL
    bpf_ringbuf_submit(event, wakeup_flags());
}

// The start of readline in a shell: its return will be seen.
SEC("uprobe")
int on_readline_entry(struct pt_regs* ctx) {
    if (!in_shell()) return 0;
    __u32 thread = (__u32)bpf_get_current_pid_tgid();
    __u8 yes = 1;
    bpf_map_update_elem(&reading, &thread, &yes, BPF_ANY);
    return 0;
}

// The return of readline: the line the user typed, if its start was seen (else it was taken
// where it was accepted).
SEC("uretprobe")
int on_readline(struct pt_regs* ctx) {
    __u32 thread = (__u32)bpf_get_current_pid_tgid();
    if (bpf_map_delete_elem(&reading, &thread) != 0) return 0;
    send_line((const char*)PT_REGS_RC(ctx), LIVE_LINE_PLAIN);
    return 0;
}

// readline accepting a line (rl_newline), in a call whose start was not seen: the line is
// taken from rl_line_buffer, a global at a fixed distance from the probed function, which the
// host gives as the attachment's cookie.
SEC("uprobe")
int on_accept(struct pt_regs* ctx) {
    __u32 thread = (__u32)bpf_get_current_pid_tgid();
    if (!in_shell() || bpf_map_lookup_elem(&reading, &thread)) return 0;
    const char* line = 0;
    const char** buffer = (const char**)(PT_REGS_IP(ctx) + bpf_get_attach_cookie(ctx));
    if (bpf_probe_read_user(&line, sizeof line, buffer) != 0) {
        __sync_fetch_and_add(&losses[LIVE_LINE], 1);
        return 0;
    }
    send_line(line, LIVE_LINE_PLAIN);
    return 0;
}

// The return of zsh's line editor: the line, metafied, with the newline that accepted it.
SEC("uretprobe")
int on_zleread(struct pt_regs* ctx) {
    if (in_shell()) send_line((const char*)PT_REGS_RC(ctx), LIVE_LINE_ZSH);
    return 0;
}
