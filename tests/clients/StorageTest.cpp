// The storage client against the stand-in host: the key limit, the read protocol with its
// retries and every failure text. Persistence across a restart is tested once, at sensor level.
#include "storage/Storage.h"

#include <gtest/gtest.h>

#include <string>

#include "devhost/Host.h"
#include "tests/support/ErrorOf.h"

namespace {

using KALVO::DevHost::Host;
using KALVO::DevHost::Operation;
using KALVO::Storage::Storage;

constexpr char const* Scope = "securitymonitor";

TEST(Storage, ValuesRoundTripAsRawBytesUnderKeysOfAtMost128Bytes) {
    Host host;
    const Storage storage(host.Root(), Scope);
    const std::string values[] = {"", "1,2,3,", std::string("a\0b\0", 4), std::string(100'000, '\xff')};
    for (const std::string& value : values) {
        storage.SetBuffer("key", value.data(), static_cast<unsigned long>(value.size()));
        EXPECT_EQ(storage.GetString("key"), value) << "size " << value.size();
    }
    // The scope is part of the address.
    const Storage other(host.Root(), "other");
    EXPECT_EQ(KALVO::Testing::ErrorOf([&] { (void)other.GetString("key"); }), "key does not exist in storage");
    // Keys longer than 128 bytes are refused before the host is asked.
    const std::string atLimit(128, 'k');
    const std::string tooLong(129, 'k');
    const std::string refused = "key is too long (128 characters maximum)";
    storage.SetBuffer(atLimit, "v", 1);
    EXPECT_EQ(storage.GetString(atLimit), "v");
    const std::uint64_t asked = host.Faults().Calls(Operation::GetInterfaceStorage);
    EXPECT_EQ(KALVO::Testing::ErrorOf([&] { (void)storage.GetString(tooLong); }), refused);
    EXPECT_EQ(KALVO::Testing::ErrorOf([&] { storage.SetBuffer(tooLong, "v", 1); }), refused);
    EXPECT_EQ(host.Faults().Calls(Operation::GetInterfaceStorage), asked);
    EXPECT_EQ(host.OutstandingReferences(), "");
}

TEST(Storage, HostFailuresBecomeTheirFixedTexts) {
    const struct {
        char const* rule;
        bool read;
        char const* message;
    } rows[] = {
        {"GetValue=22", true, "key does not exist in storage"},
        {"GetValue=89", true, "unable to get value from storage"},
        // The read into the buffer fails after a successful length query.
        {"GetValue=89@2", true, "unable to get value from storage"},
        {"SetValue=89", false, "unable to store value in storage"},
    };
    for (const auto& row : rows) {
        Host host;
        host.Store().Write(Scope, "key", "value");
        const Storage storage(host.Root(), Scope);
        host.Faults().Apply(KALVO::DevHost::ParseFaultRule(row.rule));
        const std::string message = KALVO::Testing::ErrorOf([&] {
            if (row.read) {
                (void)storage.GetString("key");
            } else {
                storage.SetBuffer("key", "new", 3);
            }
        });
        EXPECT_EQ(message, row.message) << row.rule;
        EXPECT_EQ(host.Store().Read(Scope, "key"), "value") << row.rule;
        EXPECT_EQ(host.OutstandingReferences(), "") << row.rule;
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
        {1, 4, "stored"},
        {7, 10, "stored"},  // one failed attempt; four, and the fifth reads
        // Five failed attempts: the last length query said 0, and an empty read is what
        // the client is left with.
        {9, 10, ""},
        {20, 10, ""},
    };
    for (const auto& row : rows) {
        Host host;
        host.Store().Write(Scope, "key", "stored");
        const Storage storage(host.Root(), Scope);
        host.Faults().Apply({Operation::GetValue, 12, row.failedCalls});
        std::string value;
        EXPECT_EQ(KALVO::Testing::ErrorOf([&] { value = storage.GetString("key"); }), "")
            << "failed calls " << row.failedCalls;
        EXPECT_EQ(value, row.expected) << "failed calls " << row.failedCalls;
        EXPECT_EQ(host.Faults().Calls(Operation::GetValue), row.expectedCalls) << "failed calls " << row.failedCalls;
        EXPECT_EQ(host.OutstandingReferences(), "") << " failed calls " << row.failedCalls;
    }
}

}  // namespace
