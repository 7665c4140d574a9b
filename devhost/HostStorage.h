// HostStorage: the stand-in host's IStorage. Byte values under (scope, key), kept in an SQLite
// database file, or in memory for the path ":memory:". Each write is one statement and so one
// transaction: a crash leaves the old value or the new one, never a part. Thread-safe (one
// connection behind a mutex).
//
// The host's exact read protocol: a null buffer with size 0 asks for the length; a short
// buffer answers 12 with the needed size; a missing key 22; a failing store 89.
#pragma once

#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "devhost/FaultInjector.h"
#include "eil/object/LookupInterfaceImpl.h"
#include "host/IStorage.h"

struct sqlite3;

namespace KALVO::DevHost {

class HostStorage : public KALVO::Storage::IStorage {
public:
    static constexpr char const* Kind = "Storage";
    static constexpr char const* InMemory = ":memory:";
    using Interfaces = EIL::Object::InterfaceList<KALVO::Storage::IStorage>;

    // Opens (creating if needed) the database at `path`. Throws std::runtime_error naming the
    // path and SQLite's message when it cannot.
    HostStorage(std::shared_ptr<FaultInjector> faults, std::string path);

    // Direct access for tests and tools: no fault injection, no call counting. Read answers
    // nothing when the key is absent, Write inserts or replaces. Both throw std::runtime_error
    // when the store fails.
    std::optional<std::string> Read(std::string_view scope, std::string_view key) const;
    void Write(std::string_view scope, std::string_view key, std::string_view value);

    // IStorage. Any thread, concurrently.
    void Reserved3() override {}
    void Reserved4() override {}
    void Reserved5() override {}
    // Null scope or key: 22. A null buffer with a non-zero size: 22.
    Result::Code GetValue(char const* scope, char const* key, void* buffer, std::uint64_t& size) override {
        return Serve(*m_faults, Operation::GetValue, [&] {
            if (!scope || !key || (!buffer && size != 0)) return Result::InvalidArgument;
            std::optional<std::string> value;
            try {
                value = Read(scope, key);
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
    void Reserved7() override {}
    // Null scope or key, or null data with a non-zero size: 22. Store failure: 89.
    Result::Code SetValue(char const* scope, char const* key, void const* data, std::uint64_t size) override {
        return Serve(*m_faults, Operation::SetValue, [&] {
            if (!scope || !key || (!data && size != 0)) return Result::InvalidArgument;
            try {
                Write(scope, key, size == 0 ? std::string_view() : std::string_view(static_cast<char const*>(data), size));
            } catch (const std::runtime_error&) {  // the store failed
                return Result::OperationCanceled;
            }
            return Result::Success;
        });
    }

protected:
    ~HostStorage() = default;

private:
    // Runs `sql` with scope, key and (when given) value bound as ?1, ?2, ?3; the first column of
    // the row it yields, or nothing when it yields none.
    std::optional<std::string> Run(char const* sql, std::string_view scope, std::string_view key,
                                   std::optional<std::string_view> value) const;
    [[noreturn]] void Fail(char const* what) const;

    std::shared_ptr<FaultInjector> m_faults;
    std::string m_path;
    mutable std::mutex m_mutex;  // guards the connection
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> m_db;
};

}  // namespace KALVO::DevHost
