// Runs a piece of a test and gives the message of the exception it throws, "" when none, so a
// table can hold the expected failure of each case next to its input.
#pragma once

#include <exception>
#include <functional>
#include <string>

namespace KALVO::Testing {

inline std::string ErrorOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "";
}

}  // namespace KALVO::Testing
