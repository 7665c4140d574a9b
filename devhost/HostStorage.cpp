#include "devhost/HostStorage.h"

#include <sqlite3.h>

#include <stdexcept>

namespace KALVO::DevHost {

HostStorage::HostStorage(std::shared_ptr<FaultInjector> faults, std::string path)
    : m_faults(std::move(faults)), m_path(std::move(path)), m_db(nullptr, &sqlite3_close) {
    sqlite3* db = nullptr;
    const int opened = sqlite3_open_v2(m_path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    m_db.reset(db);
    if (opened != SQLITE_OK) {
        throw std::runtime_error("cannot open storage database '" + m_path + "': " + (db ? sqlite3_errmsg(db) : "out of memory"));
    }
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

void HostStorage::Fail(char const* what) const {
    throw std::runtime_error(std::string("storage '") + m_path + "': " + what + ": " + sqlite3_errmsg(m_db.get()));
}

std::optional<std::string> HostStorage::Run(char const* sql, std::string_view scope, std::string_view key,
                                            std::optional<std::string_view> value) const {
    std::lock_guard lock(m_mutex);
    sqlite3_stmt* raw = nullptr;
    if (sqlite3_prepare_v2(m_db.get(), sql, -1, &raw, nullptr) != SQLITE_OK) Fail("cannot prepare a statement");
    const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement(raw, &sqlite3_finalize);
    // Scopes and keys may hold any bytes: bound with their lengths. A zero-length blob must
    // still be a blob, not NULL: it gets a non-null pointer.
    if (sqlite3_bind_text64(raw, 1, scope.data(), scope.size(), SQLITE_TRANSIENT, SQLITE_UTF8) != SQLITE_OK ||
        sqlite3_bind_text64(raw, 2, key.data(), key.size(), SQLITE_TRANSIENT, SQLITE_UTF8) != SQLITE_OK ||
        (value && sqlite3_bind_blob64(raw, 3, value->empty() ? "" : value->data(), value->size(), SQLITE_TRANSIENT) != SQLITE_OK)) {
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

std::optional<std::string> HostStorage::Read(std::string_view scope, std::string_view key) const {
    return Run("SELECT value FROM host_values WHERE scope = ?1 AND key = ?2", scope, key, std::nullopt);
}

void HostStorage::Write(std::string_view scope, std::string_view key, std::string_view value) {
    Run("INSERT OR REPLACE INTO host_values (scope, key, value) VALUES (?1, ?2, ?3)", scope, key, value);
}

}  // namespace KALVO::DevHost
