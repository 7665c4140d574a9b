// Shared by the value tests: a fixture asserting that every object a test made was released,
// and readers of a value's bytes.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "eil/object/ObjectImpl.h"
#include "host/IValue.h"

namespace KALVO::EIL::Values::Testing {

class BalancedReferences : public ::testing::Test {
protected:
    void SetUp() override { m_liveAtStart = Object::LiveObjects::Count(); }
    void TearDown() override {
        EXPECT_EQ(Object::LiveObjects::Count(), m_liveAtStart) << "objects leaked or released twice";
    }

private:
    std::int64_t m_liveAtStart = 0;
};

inline std::string ReadString(const IValue& value) {
    std::string text(value.GetSize(), '\0');
    unsigned long long written = 0;
    value.GetData(text.data(), text.size(), &written);
    text.resize(written);
    return text;
}

inline std::uint64_t ReadNumber(const IValue& value) {
    std::uint64_t number = 0;
    value.GetData(&number, sizeof number, nullptr);
    return number;
}

}  // namespace KALVO::EIL::Values::Testing
