// HostStorage: the stand-in host's IStorage over an SqliteStore, with the host's exact read
// protocol: a null buffer with size 0 asks for the length; a short buffer answers 12 with the
// needed size; a missing key 22; a failing store 89.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "devhost/FaultInjector.h"
#include "devhost/SqliteStore.h"
#include "eil/object/LookupInterfaceImpl.h"
#include "host/IStorage.h"

namespace KALVO::DevHost {

class HostStorage : public KALVO::Storage::IStorage {
public:
    static constexpr char const* Kind = "Storage";
    using Interfaces = EIL::Object::InterfaceList<KALVO::Storage::IStorage>;

    // `path` is a database file, or ":memory:". Throws std::runtime_error when it cannot be opened.
    HostStorage(std::shared_ptr<FaultInjector> faults, std::string path);

    // Direct access for tests and tools: no fault injection, no call counting. Throw
    // std::runtime_error when the store fails.
    std::optional<std::string> Read(std::string_view scope, std::string_view key) const { return m_store.Read(scope, key); }
    void Write(std::string_view scope, std::string_view key, std::string_view value) { m_store.Write(scope, key, value); }

    // IStorage. Any thread, concurrently.
    void Reserved3() override {}
    void Reserved4() override {}
    void Reserved5() override {}
    // Null scope or key: 22. A null buffer with a non-zero size: 22.
    Result::Code GetValue(char const* scope, char const* key, void* buffer, std::uint64_t& size) override;
    void Reserved7() override {}
    // Null scope or key, or null data with a non-zero size: 22. Store failure: 89.
    Result::Code SetValue(char const* scope, char const* key, void const* data, std::uint64_t size) override;

protected:
    ~HostStorage() = default;

private:
    std::shared_ptr<FaultInjector> m_faults;
    SqliteStore m_store;
};

}  // namespace KALVO::DevHost
