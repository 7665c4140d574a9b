#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "devhost/Host.h"
#include "host/IStorage.h"

namespace KALVO::DevHost {
namespace {

using Agent::Hosting::ObjectPtr;
using KALVO::Storage::IStorage;

ObjectPtr<IStorage> StorageOf(Host& host) {
    ObjectPtr<IStorage> storage;
    EXPECT_EQ(Agent::Hosting::QueryInterface(host.Root(), storage), Result::Success);
    return storage;
}

// A database file of its own per test, removed afterwards.
class TemporaryDatabase {
public:
    TemporaryDatabase()
        : m_path(std::filesystem::temp_directory_path() /
                 ("devhost-storage-" + std::to_string(::getpid()) + "-" +
                  ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".db")) {
        Remove();
    }
    ~TemporaryDatabase() { Remove(); }
    std::string Path() const { return m_path.string(); }

private:
    void Remove() {
        for (char const* suffix : {"", "-journal", "-wal", "-shm"}) {
            std::error_code ignored;
            std::filesystem::remove(m_path.string() + suffix, ignored);
        }
    }
    std::filesystem::path m_path;
};

TEST(HostStorage, ReadProtocol) {
    Host host;
    auto storage = StorageOf(host);
    const std::string value("abc\0def", 7);  // bytes, not text
    ASSERT_EQ(storage->SetValue("scope", "key", value.data(), value.size()), Result::Success);

    struct Case {
        char const* name;
        char const* key;
        bool withBuffer;
        std::uint64_t capacity;
        Result::Code code;
        std::uint64_t sizeAfter;
        bool copied;
    };
    const Case cases[] = {
        {"length query", "key", false, 0, Result::Success, 7, false},
        {"exact buffer", "key", true, 7, Result::Success, 7, true},
        {"larger buffer", "key", true, 20, Result::Success, 7, true},
        {"short buffer", "key", true, 6, Result::OutOfMemory, 7, false},
        {"empty buffer", "key", true, 0, Result::OutOfMemory, 7, false},
        {"missing key", "other", false, 0, Result::InvalidArgument, 0, false},
        {"null buffer with a size", "key", false, 5, Result::InvalidArgument, 5, false},
    };
    for (const Case& c : cases) {
        std::vector<char> buffer(32, 'x');
        std::uint64_t size = c.capacity;
        EXPECT_EQ(storage->GetValue("scope", c.key, c.withBuffer ? buffer.data() : nullptr, size), c.code) << c.name;
        EXPECT_EQ(size, c.sizeAfter) << c.name;
        if (c.copied) {
            EXPECT_EQ(std::string(buffer.data(), 7), value) << c.name;
        } else {
            EXPECT_EQ(buffer[0], 'x') << c.name << ": nothing may be written";
        }
    }

    std::uint64_t size = 0;
    EXPECT_EQ(storage->GetValue(nullptr, "key", nullptr, size), Result::InvalidArgument);
    EXPECT_EQ(storage->GetValue("scope", nullptr, nullptr, size), Result::InvalidArgument);
    EXPECT_EQ(storage->GetValue("other scope", "key", nullptr, size), Result::InvalidArgument);
}

TEST(HostStorage, EmptyValueIsStoredAndReplaced) {
    Host host;
    auto storage = StorageOf(host);
    ASSERT_EQ(storage->SetValue("s", "k", "long value", 10), Result::Success);
    ASSERT_EQ(storage->SetValue("s", "k", nullptr, 0), Result::Success);
    std::uint64_t size = 99;
    char buffer[1];
    EXPECT_EQ(storage->GetValue("s", "k", buffer, size), Result::Success);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(host.Store().Read("s", "k"), std::string());
    EXPECT_EQ(storage->SetValue("s", "k", nullptr, 3), Result::InvalidArgument);
}

TEST(HostStorage, ValueSurvivesReopeningTheDatabase) {
    TemporaryDatabase database;
    std::string value;
    for (int byte = 0; byte < 256; ++byte) value.push_back(static_cast<char>(byte));
    {
        Host host(HostOptions{database.Path(), "{}"});
        auto storage = StorageOf(host);
        ASSERT_EQ(storage->SetValue("securitymonitor", "CachedProcessUIDs", value.data(), value.size()), Result::Success);
        ASSERT_EQ(storage->SetValue("securitymonitor", "other", "x", 1), Result::Success);
    }
    Host reopened(HostOptions{database.Path(), "{}"});
    auto storage = StorageOf(reopened);
    std::string read(value.size(), '\0');
    std::uint64_t size = read.size();
    ASSERT_EQ(storage->GetValue("securitymonitor", "CachedProcessUIDs", read.data(), size), Result::Success);
    EXPECT_EQ(read, value);
    EXPECT_EQ(reopened.Store().Keys("securitymonitor"), (std::vector<std::string>{"CachedProcessUIDs", "other"}));
}

TEST(HostStorage, UnopenableDatabaseIsReportedAtConstruction) {
    EXPECT_THROW(Host(HostOptions{"/nonexistent-directory/store.db", "{}"}), std::runtime_error);
}

TEST(HostStorage, ConcurrentWritersNeverTearAValue) {
    Host host;
    auto storage = StorageOf(host);
    const std::string a(1000, 'a');
    const std::string b(2000, 'b');
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            const std::string& mine = t % 2 ? a : b;
            for (int i = 0; i < 200; ++i) {
                ASSERT_EQ(storage->SetValue("s", "k", mine.data(), mine.size()), Result::Success);
                std::string buffer(2000, '\0');
                std::uint64_t size = buffer.size();
                ASSERT_EQ(storage->GetValue("s", "k", buffer.data(), size), Result::Success);
                buffer.resize(size);
                ASSERT_TRUE(buffer == a || buffer == b) << "torn value of " << size << " bytes";
            }
        });
    }
    for (auto& thread : threads) thread.join();
}

}  // namespace
}  // namespace KALVO::DevHost
