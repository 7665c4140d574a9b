#include "devhost/SqliteStore.h"

#include <sqlite3.h>

#include <stdexcept>
#include <utility>

namespace KALVO::DevHost {

namespace {

// Resets a statement and its bindings when the call using it ends, on every path.
class StatementUse {
public:
    explicit StatementUse(sqlite3_stmt* statement) noexcept : m_statement(statement) {}
    ~StatementUse() {
        sqlite3_reset(m_statement);
        sqlite3_clear_bindings(m_statement);
    }
    StatementUse(const StatementUse&) = delete;
    StatementUse& operator=(const StatementUse&) = delete;

private:
    sqlite3_stmt* m_statement;
};

// Scopes and keys may hold any bytes; they are bound with their lengths.
bool BindText(sqlite3_stmt* statement, int index, std::string_view text) {
    return sqlite3_bind_text64(statement, index, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8) == SQLITE_OK;
}

}  // namespace

SqliteStore::SqliteStore(std::string path) : m_path(std::move(path)) {
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(m_path.c_str(), &m_db, flags, nullptr) != SQLITE_OK) {
        const std::string message = m_db ? sqlite3_errmsg(m_db) : "out of memory";
        sqlite3_close(m_db);
        throw std::runtime_error("cannot open storage database '" + m_path + "': " + message);
    }
    try {
        // Another process (a second tool run) may hold the file briefly.
        sqlite3_busy_timeout(m_db, 5000);
        if (sqlite3_exec(m_db,
                         "CREATE TABLE IF NOT EXISTS host_values ("
                         " scope TEXT NOT NULL, key TEXT NOT NULL, value BLOB NOT NULL,"
                         " PRIMARY KEY (scope, key))",
                         nullptr, nullptr, nullptr) != SQLITE_OK) {
            Fail("cannot create the values table");
        }
        const auto prepare = [this](char const* sql, sqlite3_stmt*& statement) {
            if (sqlite3_prepare_v3(m_db, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) != SQLITE_OK) {
                Fail("cannot prepare a statement");
            }
        };
        prepare("SELECT value FROM host_values WHERE scope = ?1 AND key = ?2", m_read);
        prepare("INSERT OR REPLACE INTO host_values (scope, key, value) VALUES (?1, ?2, ?3)", m_write);
    } catch (...) {
        for (sqlite3_stmt* statement : {m_read, m_write}) sqlite3_finalize(statement);
        sqlite3_close(m_db);
        throw;
    }
}

SqliteStore::~SqliteStore() {
    for (sqlite3_stmt* statement : {m_read, m_write}) sqlite3_finalize(statement);
    sqlite3_close(m_db);
}

void SqliteStore::Fail(char const* what) const {
    throw std::runtime_error(std::string("storage '") + m_path + "': " + what + ": " + sqlite3_errmsg(m_db));
}

std::optional<std::string> SqliteStore::Read(std::string_view scope, std::string_view key) const {
    std::lock_guard lock(m_mutex);
    StatementUse use(m_read);
    if (!BindText(m_read, 1, scope) || !BindText(m_read, 2, key)) Fail("cannot bind a read");
    const int step = sqlite3_step(m_read);
    if (step == SQLITE_DONE) return std::nullopt;
    if (step != SQLITE_ROW) Fail("cannot read a value");
    // The length after the blob: asking for the bytes first fixes their form.
    const void* bytes = sqlite3_column_blob(m_read, 0);
    const int length = sqlite3_column_bytes(m_read, 0);
    if (!bytes && length != 0) Fail("cannot read a value");
    return std::string(static_cast<char const*>(bytes), static_cast<std::size_t>(length));
}

void SqliteStore::Write(std::string_view scope, std::string_view key, std::string_view value) {
    std::lock_guard lock(m_mutex);
    StatementUse use(m_write);
    // A zero-length blob must still be a blob, not NULL: give it a non-null pointer.
    static const char empty = 0;
    if (!BindText(m_write, 1, scope) || !BindText(m_write, 2, key) ||
        sqlite3_bind_blob64(m_write, 3, value.empty() ? &empty : value.data(), value.size(), SQLITE_TRANSIENT) !=
            SQLITE_OK) {
        Fail("cannot bind a write");
    }
    if (sqlite3_step(m_write) != SQLITE_DONE) Fail("cannot write a value");
}

}  // namespace KALVO::DevHost
