#include "eil/values/Values.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "eil/values/Identifier.h"
#include "eil/values/MakeValue.h"
#include "tests/eil_values/ValuesTesting.h"

namespace KALVO::EIL::Values {
namespace {

using Agent::Hosting::ObjectPtr;
using Testing::ReadNumber;
using Testing::ReadString;

using ValuesContainer = Testing::BalancedReferences;

// What GetByIndex delivered, as text: "name=value" for named keys, "#id=value" for numbered ones.
std::string EntryAt(const IValues& values, unsigned long index) {
    ObjectPtr<IValue> value;
    ObjectPtr<IValue> key;
    const Result::Code code = values.GetByIndex(index, value, &key);
    if (code != Result::Success) return "code " + std::to_string(code);
    const std::string shownValue = value ? ReadString(*value) : "null";
    if (key->Type() == static_cast<std::uint32_t>(ValueType::UInt64)) {
        return "#" + std::to_string(ReadNumber(*key)) + "=" + shownValue;
    }
    EXPECT_EQ(key->Type(), static_cast<std::uint32_t>(ValueType::String));
    return ReadString(*key) + "=" + shownValue;
}

std::vector<std::string> Entries(const IValues& values) {
    std::vector<std::string> entries;
    for (unsigned long i = 0; i < values.Count(); ++i) entries.push_back(EntryAt(values, i));
    return entries;
}

TEST_F(ValuesContainer, KeepsEntriesInIdOrderWhateverTheInsertionOrder) {
    const std::vector<std::vector<std::uint64_t>> orders = {{5, 1, 3}, {1, 3, 5}, {3, 5, 1}, {5, 3, 1}};
    const char* const names[] = {"", "one", "", "three", "", "five"};
    for (const auto& order : orders) {
        const auto values = MakeValues();
        for (const std::uint64_t id : order) {
            ASSERT_EQ(values->Set(Identifier(names[id], id), MakeStringValue(std::to_string(id))), Result::Success);
        }
        EXPECT_EQ(Entries(*values), (std::vector<std::string>{"one=1", "three=3", "five=5"}))
            << "inserted first: " << order[0];
    }
}

TEST_F(ValuesContainer, KeepsTheFirstNameOfAnIdAndIgnoresNamesOnLookup) {
    const auto values = MakeValues();
    ASSERT_EQ(values->Set(Identifier("a", 7), MakeStringValue("first")), Result::Success);
    ASSERT_EQ(values->Set(Identifier("b", 7), MakeStringValue("second")), Result::Success);
    EXPECT_EQ(Entries(*values), std::vector<std::string>{"a=second"});

    ObjectPtr<IValue> found;
    ASSERT_EQ(values->Get(Identifier("other", 7), found), Result::Success);
    EXPECT_EQ(ReadString(*found), "second");
    EXPECT_EQ(values->Remove(Identifier("third", 7)), Result::Success);
    EXPECT_EQ(values->Count(), 0U);
    EXPECT_EQ(values->Remove(Identifier("a", 7)), Result::NoSuchEntry);
}

TEST_F(ValuesContainer, MissesLeaveTheOutputsAsTheyWere) {
    const auto values = MakeValues();
    ASSERT_EQ(values->Set(Identifier("type"), MakeStringValue("x")), Result::Success);
    const auto sentinel = MakeStringValue("sentinel");
    ObjectPtr<IValue> value = sentinel;
    ObjectPtr<IValue> key = sentinel;

    EXPECT_EQ(values->Get(Identifier("version"), value), Result::NoSuchEntry);
    EXPECT_EQ(values->GetByIndex(1, value, &key), Result::OutOfRange);
    EXPECT_EQ(values->GetByIndex(~0UL, value, nullptr), Result::OutOfRange);
    EXPECT_EQ(value, sentinel);
    EXPECT_EQ(key, sentinel);
    EXPECT_EQ(MakeValues()->GetByIndex(0, value, &key), Result::OutOfRange);
}

TEST_F(ValuesContainer, HandsOutKeysWithoutANameAsNumbers) {
    const auto values = MakeValues();
    values->PushBack(MakeStringValue("zero"));
    values->PushBack(MakeStringValue("one"));
    ASSERT_EQ(values->Set(Identifier(nullptr, 9), MakeStringValue("nine")), Result::Success);
    ASSERT_EQ(values->Set(Identifier("", 8), MakeStringValue("eight")), Result::Success);
    ASSERT_EQ(values->Set(Identifier("named", 10), MakeStringValue("ten")), Result::Success);
    EXPECT_EQ(Entries(*values), (std::vector<std::string>{"#0=zero", "#1=one", "#8=eight", "#9=nine", "named=ten"}));

    ObjectPtr<IValue> value;
    ASSERT_EQ(values->GetByIndex(4, value, nullptr), Result::Success);
    EXPECT_EQ(ReadString(*value), "ten");
}

TEST_F(ValuesContainer, PushBackReplacesAnEntryThatAlreadyHasTheNextId) {
    const auto values = MakeValues();
    ASSERT_EQ(values->Set(Identifier("small", 1), MakeStringValue("set")), Result::Success);
    auto pushed = MakeStringValue("pushed");
    values->PushBack(std::move(pushed));
    EXPECT_FALSE(pushed);
    EXPECT_EQ(Entries(*values), std::vector<std::string>{"small=pushed"});
    values->PushBack(MakeStringValue("again"));
    EXPECT_EQ(Entries(*values), std::vector<std::string>{"small=again"});
}

TEST_F(ValuesContainer, StoresANullValueAsNull) {
    const auto values = MakeValues();
    ASSERT_EQ(values->Set(Identifier("type"), nullptr), Result::Success);
    ObjectPtr<IValue> found = MakeStringValue("sentinel");
    ASSERT_EQ(values->Get(Identifier("type"), found), Result::Success);
    EXPECT_FALSE(found);
    EXPECT_EQ(Entries(*values), std::vector<std::string>{"type=null"});
}

TEST_F(ValuesContainer, ClearAndRemoveReleaseTheirValues) {
    const auto values = MakeValues();
    const std::int64_t empty = Object::LiveObjects::Count();
    for (int i = 0; i < 5; ++i) values->PushBack(MakeStringValue("v"));
    EXPECT_EQ(values->Remove(Identifier(nullptr, 4)), Result::Success);
    EXPECT_EQ(Object::LiveObjects::Count(), empty + 4);
    EXPECT_EQ(values->Clear(), Result::Success);
    EXPECT_EQ(values->Count(), 0U);
    EXPECT_EQ(Object::LiveObjects::Count(), empty);
}

// A host identifier misbehaving: the container must turn its exceptions into codes.
class ThrowingIdentifier final : public IIdentifier {
public:
    explicit ThrowingIdentifier(bool outOfMemory) : m_outOfMemory(outOfMemory) {}
    char const* Name() const override {
        if (m_outOfMemory) throw std::bad_alloc();
        throw std::runtime_error("broken identifier");
    }
    std::uint64_t Id() const override { return 1; }

private:
    bool m_outOfMemory;
};

TEST_F(ValuesContainer, SetReportsFailuresAsCodes) {
    const auto values = MakeValues();
    EXPECT_EQ(values->Set(ThrowingIdentifier(true), MakeStringValue("x")), Result::OutOfMemory);
    EXPECT_EQ(values->Set(ThrowingIdentifier(false), MakeStringValue("x")), Result::ProtocolError);
    EXPECT_EQ(values->Count(), 0U);
}

TEST_F(ValuesContainer, AnswersForItselfAsIObjectAndIValuesOnly) {
    const auto values = MakeValues();
    IValues* const self = values.Get();
    for (const Agent::Hosting::InterfaceId id : {Agent::Hosting::IObject::Id, IValues::Id}) {
        Agent::Hosting::IObject* out = nullptr;
        ASSERT_EQ(self->GetInterface(id, out), Result::Success);
        EXPECT_EQ(out, static_cast<Agent::Hosting::IObject*>(self));
        out->Release();
    }
    Agent::Hosting::IObject* out = nullptr;
    EXPECT_EQ(self->GetInterface(IValue::Id, out), Result::ProtocolNotSupported);
    EXPECT_EQ(self->GetInterface(WrappedValuesId, out), Result::ProtocolNotSupported);
    EXPECT_EQ(out, nullptr);
}

// Random edits interleaved with indexed reads at random positions and full walks in both
// directions, checked against a plain map: catches a stale remembered position.
TEST_F(ValuesContainer, IndexedReadsMatchAReferenceMapThroughEdits) {
    const auto values = MakeValues();
    std::map<std::uint64_t, std::string> reference;  // id -> "name=value" as Entries shows it
    std::map<std::uint64_t, std::string> names;
    std::mt19937 random(7);
    std::uniform_int_distribution<std::uint64_t> anyId(0, 60);
    std::uniform_int_distribution<int> operation(0, 99);
    std::vector<std::string> keyNames;
    for (int i = 0; i <= 60; ++i) keyNames.push_back(i % 3 == 0 ? "" : "k" + std::to_string(i));

    const auto expectedAt = [&](std::size_t index) {
        auto it = reference.begin();
        std::advance(it, index);
        return it->second;
    };

    for (int step = 0; step < 20000; ++step) {
        const int op = operation(random);
        const std::uint64_t id = anyId(random);
        const std::string text = std::to_string(step);
        if (op < 30) {
            ASSERT_EQ(values->Set(Identifier(keyNames[id].c_str(), id), MakeStringValue(text)), Result::Success);
            names.try_emplace(id, keyNames[id].empty() ? "#" + std::to_string(id) : keyNames[id]);
            reference[id] = names[id] + "=" + text;
        } else if (op < 40) {
            const std::uint64_t next = reference.size();
            values->PushBack(MakeStringValue(text));
            // A fresh id gets no name; an existing entry with that id keeps its own.
            names.try_emplace(next, "#" + std::to_string(next));
            reference[next] = names[next] + "=" + text;
        } else if (op < 55) {
            const bool present = reference.erase(id) != 0;
            if (present) names.erase(id);
            ASSERT_EQ(values->Remove(Identifier(nullptr, id)), present ? Result::Success : Result::NoSuchEntry);
        } else if (op < 56) {
            ASSERT_EQ(values->Clear(), Result::Success);
            reference.clear();
            names.clear();
        } else if (op < 96) {
            const std::size_t index = reference.empty() ? 0 : random() % (reference.size() + 1);
            const std::string expected = index < reference.size() ? expectedAt(index) : "code 34";
            ASSERT_EQ(EntryAt(*values, index), expected) << "step " << step << " index " << index;
        } else {
            ASSERT_EQ(values->Count(), reference.size());
            std::vector<std::string> forward(reference.size());
            std::vector<std::string> expected;
            for (const auto& entry : reference) expected.push_back(entry.second);
            for (std::size_t i = 0; i < reference.size(); ++i) forward[i] = EntryAt(*values, i);
            ASSERT_EQ(forward, expected) << "step " << step;
            for (std::size_t i = reference.size(); i-- > 0;) {
                ASSERT_EQ(EntryAt(*values, i), expected[i]) << "step " << step << " backwards at " << i;
            }
        }
    }
}

// Readers walk by index while writers edit; run under ThreadSanitizer this checks the
// reader/writer lock and the remembered walk position.
TEST_F(ValuesContainer, ConcurrentReadersAndWritersStayConsistent) {
#ifdef KALVO_SANITIZED
    constexpr int Rounds = 2000;
#else
    constexpr int Rounds = 20000;
#endif
    const auto values = MakeValues();
    std::atomic<bool> failed{false};
    std::vector<std::thread> threads;
    for (int writer = 0; writer < 2; ++writer) {
        threads.emplace_back([&, writer] {
            for (int i = 0; i < Rounds; ++i) {
                const std::uint64_t id = static_cast<std::uint64_t>((i * 7 + writer) % 50);
                if (i % 3 == 0) {
                    values->Remove(Identifier(nullptr, id));
                } else if (i % 1000 == 999) {
                    values->Clear();
                } else if (values->Set(Identifier("key", id), MakeStringValue(std::to_string(id))) != Result::Success) {
                    failed = true;
                }
            }
        });
    }
    for (int reader = 0; reader < 2; ++reader) {
        threads.emplace_back([&] {
            for (int i = 0; i < Rounds / 10; ++i) {
                for (unsigned long index = 0;; ++index) {
                    ObjectPtr<IValue> value;
                    ObjectPtr<IValue> key;
                    const Result::Code code = values->GetByIndex(index, value, &key);
                    if (code == Result::OutOfRange) break;
                    if (code != Result::Success || !value || ReadString(*key) != "key") failed = true;
                }
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_FALSE(failed);
    EXPECT_LE(values->Count(), 50U);
}

}  // namespace
}  // namespace KALVO::EIL::Values
