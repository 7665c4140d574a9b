// SqliteStore: byte values under (scope, key), kept in an SQLite database file, or in memory
// for the path ":memory:". Each write is one statement and so one transaction: a crash leaves
// the old value or the new one, never a part. Thread-safe (one connection behind a mutex).
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace KALVO::DevHost {

class SqliteStore {
public:
    static constexpr char const* InMemory = ":memory:";

    // Opens (creating if needed) the database at `path`. Throws std::runtime_error naming the
    // path and SQLite's message when it cannot.
    explicit SqliteStore(std::string path);
    ~SqliteStore();

    SqliteStore(const SqliteStore&) = delete;  // owns a connection
    SqliteStore& operator=(const SqliteStore&) = delete;

    // The value, or nothing when the key is absent. Throws std::runtime_error when the store fails.
    std::optional<std::string> Read(std::string_view scope, std::string_view key) const;
    // Inserts or replaces. Throws std::runtime_error when the store fails.
    void Write(std::string_view scope, std::string_view key, std::string_view value);

private:
    [[noreturn]] void Fail(char const* what) const;

    std::string m_path;
    mutable std::mutex m_mutex;  // guards the connection and its statements
    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_read = nullptr;
    sqlite3_stmt* m_write = nullptr;
};

}  // namespace KALVO::DevHost
