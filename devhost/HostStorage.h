// HostStorage: the stand-in host's IStorage. Byte values under (scope, key), kept in an SQLite
// database file, or in memory for the path ":memory:". Each write is one statement and so one
// transaction: a crash leaves the old value or the new one, never a part. Thread-safe (one
// connection behind a mutex).
//
// The host's exact read protocol: a null buffer with size 0 asks for the length; a short
// buffer answers 12 with the needed size; a missing key 22; a failing store 89.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>
#include <sqlite3.h>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "devhost/FaultInjector.h"
#include "eil/object/LookupInterfaceImpl.h"
#include "host/IStorage.h"

namespace KALVO::DevHost {

class HostStorage : public KALVO::Storage::IStorage {
public:
    static constexpr char const* Kind = "Storage";
    static constexpr char const* InMemory = ":memory:";
    using Interfaces = EIL::Object::InterfaceList<KALVO::Storage::IStorage>;

    // Opens (creating if needed) the database at `path`. Throws std::runtime_error naming the
    // path and SQLite's message when it cannot.
    HostStorage(std::shared_ptr<FaultInjector> faults, std::string path)
        : m_faults(std::move(faults)), m_path(std::move(path)), m_db(nullptr, &sqlite3_close) {
        // The file made private before SQLite opens it: its journal and WAL files take the
        // database's mode. A file of an earlier run is made private too.
        if (m_path != InMemory) {
            if (const int fd = ::open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600); fd >= 0) {
                (void)::fchmod(fd, 0600);
                ::close(fd);
            }
        }
        sqlite3* db = nullptr;
        const int opened = sqlite3_open_v2(m_path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
        m_db.reset(db);
        // With no connection at all SQLite's message is "out of memory".
        if (opened != SQLITE_OK) Fail("cannot open the database");
        // Another process (a second tool run) may hold the file briefly.
        sqlite3_busy_timeout(db, 5000);
        if (sqlite3_exec(db,
                         "CREATE TABLE IF NOT EXISTS host_values ("
                         " scope TEXT NOT NULL, key TEXT NOT NULL, value BLOB NOT NULL,"
                         " PRIMARY KEY (scope, key))",
                         nullptr, nullptr, nullptr) != SQLITE_OK) {
            Fail("cannot create the values table");
        }
    }

    // Direct access for tests and tools: no fault injection, no call counting. Read answers
    // nothing when the key is absent, Write inserts or replaces. Both throw std::runtime_error
    // when the store fails.
    std::optional<std::string> Read(std::string_view scope, std::string_view key) const {
        return Run("SELECT value FROM host_values WHERE scope = ?1 AND key = ?2", scope, key, std::nullopt);
    }
    void Write(std::string_view scope, std::string_view key, std::string_view value) {
        Run("INSERT OR REPLACE INTO host_values (scope, key, value) VALUES (?1, ?2, ?3)", scope, key, value);
    }

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
                Write(scope, key,
                      size == 0 ? std::string_view() : std::string_view(static_cast<char const*>(data), size));
            } catch (const std::runtime_error&) {  // the store failed
                return Result::OperationCanceled;
            }
            return Result::Success;
        });
    }

private:
    // Runs `sql` with scope, key and (when given) value bound as ?1, ?2, ?3; the first column of
    // the row it yields, or nothing when it yields none.
    std::optional<std::string> Run(char const* sql, std::string_view scope, std::string_view key,
                                   std::optional<std::string_view> value) const {
        std::lock_guard lock(m_mutex);
        sqlite3_stmt* raw = nullptr;
        if (sqlite3_prepare_v2(m_db.get(), sql, -1, &raw, nullptr) != SQLITE_OK) Fail("cannot prepare a statement");
        const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement(raw, &sqlite3_finalize);
        // Scopes and keys may hold any bytes: bound with their lengths. A zero-length blob must
        // still be a blob, not NULL: it gets a non-null pointer.
        if (sqlite3_bind_text64(raw, 1, scope.data(), scope.size(), SQLITE_TRANSIENT, SQLITE_UTF8) != SQLITE_OK ||
            sqlite3_bind_text64(raw, 2, key.data(), key.size(), SQLITE_TRANSIENT, SQLITE_UTF8) != SQLITE_OK ||
            (value && sqlite3_bind_blob64(raw, 3, value->empty() ? "" : value->data(), value->size(),
                                          SQLITE_TRANSIENT) != SQLITE_OK)) {
            Fail("cannot bind a statement");
        }
        const int step = sqlite3_step(raw);
        if (step == SQLITE_DONE) return std::nullopt;
        if (step != SQLITE_ROW) Fail(value ? "cannot write a value" : "cannot read a value");
        // The length after the blob: asking for the bytes first fixes their form.
        const void* bytes = sqlite3_column_blob(raw, 0);
        const int length = sqlite3_column_bytes(raw, 0);
        if (!bytes && length != 0) Fail("cannot read a value");
        return std::string(static_cast<char const*>(bytes), static_cast<std::size_t>(length));
    }

    [[noreturn]] void Fail(char const* what) const {
        throw std::runtime_error(fmt::format("storage '{}': {}: {}", m_path, what, sqlite3_errmsg(m_db.get())));
    }

    std::shared_ptr<FaultInjector> m_faults;
    std::string m_path;
    mutable std::mutex m_mutex;  // guards the connection
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> m_db;
};

}  // namespace KALVO::DevHost
