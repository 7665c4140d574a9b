// SqliteStore: byte values under (scope, key), kept in an SQLite database file, or in memory
// for the path ":memory:". Each write is one statement and so one transaction: a crash leaves
// the old value or the new one, never a part. Thread-safe (one connection behind a mutex).
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;

namespace KALVO::DevHost {

class SqliteStore {
public:
    static constexpr char const* InMemory = ":memory:";

    // Opens (creating if needed) the database at `path`. Throws std::runtime_error naming the
    // path and SQLite's message when it cannot.
    explicit SqliteStore(std::string path);

    // The value, or nothing when the key is absent. Throws std::runtime_error when the store fails.
    std::optional<std::string> Read(std::string_view scope, std::string_view key) const;
    // Inserts or replaces. Throws std::runtime_error when the store fails.
    void Write(std::string_view scope, std::string_view key, std::string_view value);

private:
    // Runs `sql` with scope, key and (when given) value bound as ?1, ?2, ?3; the first column of
    // the row it yields, or nothing when it yields none.
    std::optional<std::string> Run(char const* sql, std::string_view scope, std::string_view key,
                                   std::optional<std::string_view> value) const;
    [[noreturn]] void Fail(char const* what) const;

    std::string m_path;
    mutable std::mutex m_mutex;  // guards the connection
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> m_db;
};

}  // namespace KALVO::DevHost
