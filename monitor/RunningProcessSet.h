// The identifiers of the processes the monitor has seen alive: inserted on every creation and
// existence, erased on termination, saved at teardown so a restart does not report them again.
//
// Every event thread of the host touches this set, so it is split into independently locked
// shards by the identifier's hash: two threads delivering different processes rarely meet on a
// lock or a cache line, where one mutex would be written by both on every event.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace KALVO::SecurityMonitor {

class RunningProcessSet {
public:
    // Any thread. Insert may throw std::bad_alloc; the set is unchanged then.
    void Insert(std::string_view uid);
    void Erase(std::string_view uid);

    // Every identifier, in ascending byte order (as one ordered set would list them).
    std::vector<std::string> Sorted() const;

private:
    static constexpr std::size_t ShardCount = 16;
    // 64 bytes: a cache line on the x86_64 and arm64 machines the sensor runs on.
    struct alignas(64) Shard {
        mutable std::mutex mutex;
        std::set<std::string, std::less<>> uids;
    };

    Shard& ShardOf(std::string_view uid);

    std::array<Shard, ShardCount> m_shards;
};

}  // namespace KALVO::SecurityMonitor
