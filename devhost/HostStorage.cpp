#include "devhost/HostStorage.h"

#include <cstring>
#include <stdexcept>
#include <utility>

#include "devhost/Boundary.h"

namespace KALVO::DevHost {

HostStorage::HostStorage(std::shared_ptr<FaultInjector> faults, std::string path)
    : m_faults(std::move(faults)), m_store(std::move(path)) {}

Result::Code HostStorage::GetValue(char const* scope, char const* key, void* buffer, std::uint64_t& size) {
    if (const auto failure = m_faults->Check(Operation::GetValue)) return *failure;
    if (!scope || !key || (!buffer && size != 0)) return Result::InvalidArgument;
    return AtBoundary([&] {
        std::optional<std::string> value;
        try {
            value = m_store.Read(scope, key);
        } catch (const std::runtime_error&) {  // the store failed
            return Result::OperationCanceled;
        }
        if (!value) return Result::InvalidArgument;
        const std::uint64_t capacity = size;
        size = value->size();
        if (!buffer) return Result::Success;  // a length query
        if (capacity < value->size()) return Result::OutOfMemory;
        if (!value->empty()) std::memcpy(buffer, value->data(), value->size());
        return Result::Success;
    });
}

Result::Code HostStorage::SetValue(char const* scope, char const* key, void const* data, std::uint64_t size) {
    if (const auto failure = m_faults->Check(Operation::SetValue)) return *failure;
    if (!scope || !key || (!data && size != 0)) return Result::InvalidArgument;
    return AtBoundary([&] {
        const std::string_view value(static_cast<char const*>(data), static_cast<std::size_t>(size));
        try {
            m_store.Write(scope, key, size == 0 ? std::string_view() : value);
        } catch (const std::runtime_error&) {  // the store failed
            return Result::OperationCanceled;
        }
        return Result::Success;
    });
}

}  // namespace KALVO::DevHost
