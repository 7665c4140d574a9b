#include "devhost/ReaderGate.h"

#include <algorithm>
#include <utility>

namespace KALVO::DevHost {

namespace {

using Detail::ReaderRecord;

std::atomic<std::uint64_t> g_nextGateId{1};

// Every record this thread holds, by gate. Gives them back when the thread ends.
class ThreadRecords {
public:
    ~ThreadRecords() {
        for (const Entry& entry : m_entries) entry.record->ownerGone.store(true, std::memory_order_release);
    }

    ReaderRecord* Find(std::uint64_t gate) const noexcept {
        for (const Entry& entry : m_entries) {
            if (entry.gate == gate) return entry.record.get();
        }
        return nullptr;
    }

    void Add(std::uint64_t gate, std::shared_ptr<ReaderRecord> record) {
        std::erase_if(m_entries, [](const Entry& entry) { return entry.record->gateGone.load(std::memory_order_acquire); });
        m_entries.push_back(Entry{gate, std::move(record)});
    }

private:
    struct Entry {
        std::uint64_t gate;
        std::shared_ptr<ReaderRecord> record;
    };
    std::vector<Entry> m_entries;
};

thread_local ThreadRecords t_records;

}  // namespace

ReaderGate::ReaderGate() : m_id(g_nextGateId.fetch_add(1, std::memory_order_relaxed)) {}

ReaderGate::~ReaderGate() {
    std::lock_guard lock(m_mutex);
    for (const auto& record : m_records) record->gateGone.store(true, std::memory_order_release);
}

ReaderRecord* ReaderGate::FindRecordOfThisThread() const noexcept {
    const Detail::LastReaderRecord& last = Detail::t_lastReaderRecord;
    return last.gate == m_id ? last.record : t_records.Find(m_id);
}

ReaderRecord& ReaderGate::RecordOfThisThread() {
    ReaderRecord* record = t_records.Find(m_id);
    if (!record) {
        std::shared_ptr<ReaderRecord> shared;
        {
            std::lock_guard lock(m_mutex);
            // acquire: the new owner continues from the old owner's last state and depth.
            const auto reusable = std::find_if(m_records.begin(), m_records.end(), [](const auto& candidate) {
                return candidate->ownerGone.load(std::memory_order_acquire);
            });
            if (reusable != m_records.end()) {
                shared = *reusable;
                shared->ownerGone.store(false, std::memory_order_relaxed);
            } else {
                shared = std::make_shared<ReaderRecord>();
                m_records.push_back(shared);
            }
        }
        record = shared.get();
        try {
            t_records.Add(m_id, std::move(shared));
        } catch (...) {
            record->ownerGone.store(true, std::memory_order_release);  // back to the gate
            throw;
        }
    }
    Detail::t_lastReaderRecord = Detail::LastReaderRecord{m_id, record};
    return *record;
}

bool ReaderGate::Inside() const noexcept {
    const ReaderRecord* record = FindRecordOfThisThread();
    return record && record->depth > 0;
}

void ReaderGate::Wake() noexcept {
    std::lock_guard lock(m_mutex);
    m_changed.notify_all();
}

void ReaderGate::WaitForReaders() {
    const ReaderRecord* own = FindRecordOfThisThread();
    m_waiting.fetch_add(1, std::memory_order_seq_cst);
    struct Done {
        std::atomic<std::uint32_t>& waiting;
        ~Done() { waiting.fetch_sub(1, std::memory_order_relaxed); }
    } done{m_waiting};

    std::unique_lock lock(m_mutex);
    std::vector<std::pair<const ReaderRecord*, std::uint64_t>> open;
    for (const auto& record : m_records) {
        if (record.get() == own) continue;
        const std::uint64_t state = record->state.load(std::memory_order_seq_cst);
        if (state % 2 != 0) open.emplace_back(record.get(), state);
    }
    m_changed.wait(lock, [&] {
        return std::all_of(open.begin(), open.end(), [](const auto& entry) {
            return entry.first->state.load(std::memory_order_seq_cst) != entry.second;
        });
    });
}

}  // namespace KALVO::DevHost
