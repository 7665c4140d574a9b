#include "monitor/RunningProcessSet.h"

#include <algorithm>

namespace KALVO::SecurityMonitor {

RunningProcessSet::Shard& RunningProcessSet::ShardOf(std::string_view uid) {
    return m_shards[std::hash<std::string_view>{}(uid) % ShardCount];
}

void RunningProcessSet::Insert(std::string_view uid) {
    Shard& shard = ShardOf(uid);
    std::lock_guard lock(shard.mutex);
    // Looked up first: a process already known costs no allocation.
    if (shard.uids.find(uid) == shard.uids.end()) shard.uids.emplace(uid);
}

void RunningProcessSet::Erase(std::string_view uid) {
    Shard& shard = ShardOf(uid);
    std::lock_guard lock(shard.mutex);
    if (const auto found = shard.uids.find(uid); found != shard.uids.end()) shard.uids.erase(found);
}

std::vector<std::string> RunningProcessSet::Sorted() const {
    std::vector<std::string> all;
    for (const Shard& shard : m_shards) {
        std::lock_guard lock(shard.mutex);
        all.insert(all.end(), shard.uids.begin(), shard.uids.end());
    }
    std::sort(all.begin(), all.end());
    return all;
}

}  // namespace KALVO::SecurityMonitor
