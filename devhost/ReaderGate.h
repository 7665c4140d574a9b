// ReaderGate: lets a writer that has replaced something readers use (a list of monitors) wait
// until no reader can still be using the old one, while readers write nothing that another
// thread writes. Each thread has its own record per gate, written only by that thread: a
// number that is odd while the thread is inside a section. A writer samples every record and
// waits until each odd one has changed, i.e. until the sections open at the time have closed.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace KALVO::DevHost {

namespace Detail {

// One thread's state in one gate. 64: a cache line of its own (the standard's constant would
// make the layout depend on compiler flags, and g++ warns about its use in headers).
struct alignas(64) ReaderRecord {
    // Odd while the owner is inside a section; changes on every outermost entry and exit, so a
    // writer that saw an odd value knows the section closed once the value differs. Only the
    // owner writes it; seq_cst pairs the entry with the reader's load of what it reads, against
    // the writer's publication and sampling.
    std::atomic<std::uint64_t> state{0};
    std::uint64_t depth = 0;              // nested sections; owner only
    std::atomic<bool> ownerGone{false};   // the owning thread ended: the gate may give it to another
    std::atomic<bool> gateGone{false};    // the gate was destroyed: the thread may forget it
};

// The record this thread used last, so entering a gate costs no search. Constant-initialised.
struct LastReaderRecord {
    std::uint64_t gate = 0;
    ReaderRecord* record = nullptr;
};
inline thread_local LastReaderRecord t_lastReaderRecord;

}  // namespace Detail

class ReaderGate {
public:
    // An open section; closes when destroyed, on the thread that opened it.
    class Section {
    public:
        ~Section() { m_gate.Leave(m_record); }
        Section(const Section&) = delete;  // tied to its thread and scope
        Section& operator=(const Section&) = delete;

    private:
        friend class ReaderGate;
        Section(ReaderGate& gate, Detail::ReaderRecord& record) noexcept : m_gate(gate), m_record(record) {}

        ReaderGate& m_gate;
        Detail::ReaderRecord& m_record;
    };

    ReaderGate();
    // No section may be open.
    ~ReaderGate();
    ReaderGate(const ReaderGate&) = delete;  // threads hold records of this gate
    ReaderGate& operator=(const ReaderGate&) = delete;

    // Opens a section on this thread; sections nest. What the reader loads after this, it may
    // use until the section closes. Throws std::bad_alloc (only on a thread's first entry).
    [[nodiscard]] Section Enter() {
        Detail::LastReaderRecord& last = Detail::t_lastReaderRecord;
        Detail::ReaderRecord& record = last.gate == m_id ? *last.record : RecordOfThisThread();
        if (record.depth++ == 0) record.state.store(record.state.load(std::memory_order_relaxed) + 1, std::memory_order_seq_cst);
        return Section(*this, record);
    }

    // Returns once every section that another thread had open at the call has closed. Call it
    // after publishing (seq_cst) the replacement: a section opened later sees the replacement.
    // The calling thread's own open sections are not waited for. Any thread; throws
    // std::bad_alloc or std::system_error.
    void WaitForReaders();

    // Whether this thread has a section of this gate open.
    bool Inside() const noexcept;

private:
    Detail::ReaderRecord& RecordOfThisThread();
    Detail::ReaderRecord* FindRecordOfThisThread() const noexcept;

    void Leave(Detail::ReaderRecord& record) noexcept {
        if (--record.depth != 0) return;
        record.state.store(record.state.load(std::memory_order_relaxed) + 1, std::memory_order_seq_cst);
        // seq_cst against the writer's increment before it samples: either it sees this exit,
        // or this load sees it waiting.
        if (m_waiting.load(std::memory_order_seq_cst) != 0) Wake();
    }
    void Wake() noexcept;

    const std::uint64_t m_id;  // unique among all gates ever made: a thread's cache never takes a new gate for a dead one
    std::atomic<std::uint32_t> m_waiting{0};  // writers sampling or waiting
    std::mutex m_mutex;                       // guards m_records; pairs with m_changed
    std::condition_variable m_changed;        // a record left its section while a writer waited
    std::vector<std::shared_ptr<Detail::ReaderRecord>> m_records;  // shared with their threads
};

}  // namespace KALVO::DevHost
