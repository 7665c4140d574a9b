// Helpers shared by the Json tests.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include "eil/json/Json.h"

namespace KALVO::EIL::Json {

// Failures print the tree as text instead of its bytes.
inline void PrintTo(const Json& json, std::ostream* out) {
    try {
        *out << ToStringA(json);
    } catch (const std::exception& error) {
        *out << "<unwritable: " << error.what() << ">";
    }
}

}  // namespace KALVO::EIL::Json

namespace KALVO::EIL::Json::Testing {

// Whether every node below `root` points to the container that holds it (explicit stack: the
// trees tested may be deep). Reports the path of the first wrong node.
inline ::testing::AssertionResult ParentsAreConsistent(const Json& root) {
    std::vector<const Json*> pending{&root};
    while (!pending.empty()) {
        const Json* node = pending.back();
        pending.pop_back();
        const auto check = [&](const Json& child) {
            if (child.GetParent() != node) return false;
            pending.push_back(&child);
            return true;
        };
        if (node->IsObject()) {
            for (const auto& [name, member] : node->Get<Json::ObjectType>()) {
                if (!check(member)) return ::testing::AssertionFailure() << "wrong parent of member " << name << " of " << node->GetPath();
            }
        } else if (node->IsArray()) {
            for (const auto& element : node->Get<Json::ArrayType>()) {
                if (!check(element)) return ::testing::AssertionFailure() << "wrong parent of an element of " << node->GetPath();
            }
        }
    }
    return ::testing::AssertionSuccess();
}

// Runs `action` and expects it to throw exactly `Exception` with the message `what`.
template <class Exception>
::testing::AssertionResult Throws(const std::function<void()>& action, const std::string& what) {
    try {
        action();
    } catch (const std::exception& error) {
        if (typeid(error) != typeid(Exception))
            return ::testing::AssertionFailure() << "threw " << typeid(error).name() << ": " << error.what();
        if (error.what() != what) return ::testing::AssertionFailure() << "threw \"" << error.what() << "\"";
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "did not throw";
}

}  // namespace KALVO::EIL::Json::Testing
