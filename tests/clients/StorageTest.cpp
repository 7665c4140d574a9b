// The storage client against the stand-in host: the key limit, the read protocol with its
// retries and every failure text. Persistence across a restart is tested once, at sensor level.
#include "storage/Storage.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <system_error>

#include "devhost/Host.h"
#include "logging/Log.h"

namespace {

using KALVO::DevHost::Host;
using KALVO::DevHost::Operation;
using KALVO::Storage::Storage;

constexpr char const* Scope = "securitymonitor";

// Runs `work` and returns the message of the std::exception it throws ("" when none).
std::string ErrorOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "";
}

void ExpectNothingHeld(const Host& host, const std::string& context) {
    EXPECT_EQ(host.OutstandingReferences(), 0u) << host.DescribeOutstandingReferences() << " " << context;
}

TEST(Storage, NullHostIsRefused) {
    try {
        Storage storage(nullptr, Scope);
        FAIL() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "service provider not available");
    }
}

TEST(Storage, ConstructionLogsItsScopeUnderTheStorageLogger) {
    Host host;
    const auto created = KALVO::Logging::LoggerSingleton::CreateEx(std::string("kalvo.securitymonitor"), host.Root());
    ASSERT_TRUE(created.second) << "another test left a logger behind";
    const Storage storage(host.Root(), Scope);
    (void)KALVO::Logging::LoggerSingleton::Detach();

    ASSERT_EQ(host.Logs().Lines().size(), 1u);
    const KALVO::DevHost::LogLine line = host.Logs().Lines().front();
    EXPECT_EQ(line.logger, "kalvo.storage.layer");
    EXPECT_EQ(line.severity, 7u);
    EXPECT_EQ(line.text, "Storage for scope securitymonitor successfully initialized.");
    // The store itself is looked up only when it is used.
    EXPECT_EQ(host.Faults().Calls(Operation::GetInterfaceStorage), 0u);
}

TEST(Storage, KeysLongerThan128BytesAreRefusedBeforeTheHostIsAsked) {
    Host host;
    const Storage storage(host.Root(), Scope);
    const std::string atLimit(128, 'k');
    storage.SetBuffer(atLimit, "v", 1);
    EXPECT_EQ(storage.GetString(atLimit), "v");

    host.Faults().ResetCounts();
    const std::string tooLong(129, 'k');
    const std::function<void()> operations[] = {
        [&] { (void)storage.GetString(tooLong); },
        [&] { storage.SetBuffer(tooLong, "v", 1); },
    };
    for (const auto& operation : operations) {
        try {
            operation();
            ADD_FAILURE() << "no exception";
        } catch (const std::invalid_argument& e) {
            EXPECT_STREQ(e.what(), "key is too long (128 characters maximum)");
        }
    }
    for (const Operation asked : {Operation::GetInterfaceStorage, Operation::GetValue, Operation::SetValue}) {
        EXPECT_EQ(host.Faults().Calls(asked), 0u) << KALVO::DevHost::OperationName(asked);
    }
}

TEST(Storage, ValuesRoundTripAsRawBytes) {
    Host host;
    const Storage storage(host.Root(), Scope);
    const std::string values[] = {"", "1,2,3,", std::string("a\0b\0", 4), std::string(100'000, '\xff')};
    for (const std::string& value : values) {
        storage.SetBuffer("key", value.data(), static_cast<unsigned long>(value.size()));
        EXPECT_EQ(storage.GetString("key"), value) << "size " << value.size();
    }
    // The scope is part of the address.
    const Storage other(host.Root(), "other");
    EXPECT_EQ(ErrorOf([&] { (void)other.GetString("key"); }), "key does not exist in storage");
    ExpectNothingHeld(host, "round trip");
}

TEST(Storage, HostFailuresBecomeTheirFixedTexts) {
    const struct {
        Operation operation;
        KALVO::Result::Code code;
        bool read;
        char const* message;
    } rows[] = {
        {Operation::GetValue, 22, true, "key does not exist in storage"},
        {Operation::GetValue, 89, true, "unable to get value from storage"},
        {Operation::SetValue, 89, false, "unable to store value in storage"},
        {Operation::SetValue, 22, false, "unable to store value in storage"},
        {Operation::SetValue, 5, false, "unable to store value in storage"},
        {Operation::SetValue, 12, false, "unable to store value in storage"},
    };
    for (const auto& row : rows) {
        Host host;
        host.Store().Write(Scope, "key", "value");
        const Storage storage(host.Root(), Scope);
        host.Faults().FailNext(row.operation, row.code);
        const std::string message = ErrorOf([&] {
            if (row.read) {
                (void)storage.GetString("key");
            } else {
                storage.SetBuffer("key", "new", 3);
            }
        });
        const std::string context = std::string(KALVO::DevHost::OperationName(row.operation)) + "=" + std::to_string(row.code);
        EXPECT_EQ(message, row.message) << context;
        EXPECT_EQ(host.Store().Read(Scope, "key"), "value") << context;
        ExpectNothingHeld(host, context);
    }
}

TEST(Storage, HostWithoutStorageThrowsItsLookupCode) {
    for (const bool read : {true, false}) {
        Host host;
        const Storage storage(host.Root(), Scope);
        host.Faults().FailNext(Operation::GetInterfaceStorage, 43);
        try {
            if (read) {
                (void)storage.GetString("key");
            } else {
                storage.SetBuffer("key", "v", 1);
            }
            ADD_FAILURE() << "no exception, read " << read;
        } catch (const std::system_error& e) {
            EXPECT_EQ(e.code(), std::error_code(43, std::generic_category())) << "read " << read;
        }
        EXPECT_EQ(host.Faults().Calls(Operation::GetValue) + host.Faults().Calls(Operation::SetValue), 0u);
    }
}

// A read is a length query and a read into a buffer of that length. Failing the first N calls
// with 12 leaves the length query's size at 0, so the real read that follows finds the
// stored value larger than its buffer: to the client, the value grew in between.
TEST(Storage, ReadOfAGrowingValueIsRetriedFiveTimesInAll) {
    const struct {
        std::uint64_t failedCalls;
        std::uint64_t expectedCalls;
        char const* expected;  // null: "unable to get value from storage"
    } rows[] = {
        {1, 4, "stored"},  // one failed attempt
        {7, 10, "stored"},  // four failed attempts, the fifth reads
        // Five failed attempts: the last length query said 0, and an empty read is what
        // the client is left with.
        {9, 10, ""},
        {10, 10, ""},
        {20, 10, ""},
    };
    for (const auto& row : rows) {
        Host host;
        host.Store().Write(Scope, "key", "stored");
        const Storage storage(host.Root(), Scope);
        host.Faults().FailNext(Operation::GetValue, 12, row.failedCalls);
        std::string value;
        EXPECT_EQ(ErrorOf([&] { value = storage.GetString("key"); }), "") << "failed calls " << row.failedCalls;
        EXPECT_EQ(value, row.expected) << "failed calls " << row.failedCalls;
        EXPECT_EQ(host.Faults().Calls(Operation::GetValue), row.expectedCalls) << "failed calls " << row.failedCalls;
        ExpectNothingHeld(host, "failed calls " + std::to_string(row.failedCalls));
    }
}

TEST(Storage, UnknownCodeOfALengthQueryIsNotAFailureByItself) {
    Host host;
    host.Store().Write(Scope, "key", "stored");
    const Storage storage(host.Root(), Scope);
    // The length query answers 5 and no size; the read then finds the value larger and the
    // next attempt reads it.
    host.Faults().FailNext(Operation::GetValue, 5, 1);
    EXPECT_EQ(storage.GetString("key"), "stored");
    EXPECT_EQ(host.Faults().Calls(Operation::GetValue), 4u);
}

}  // namespace
