#include <atomic>

#include "eil/object/ObjectImpl.h"

namespace KALVO::EIL::Object {

namespace {
std::atomic<std::int64_t> g_liveObjects{0};
}

std::int64_t LiveObjects::Count() noexcept { return g_liveObjects.load(std::memory_order_relaxed); }

void LiveObjects::Add(std::int64_t delta) noexcept { g_liveObjects.fetch_add(delta, std::memory_order_relaxed); }

}  // namespace KALVO::EIL::Object
