// Letters(n): a distinct lower-case word for every n ("a", "b", ..., "z", "ba", ...). Benchmarks
// use it to make distinct command lines that normalisation leaves distinct (digits would
// become "<number>" and merge).
#pragma once

#include <cstddef>
#include <string>

namespace KALVO::Bench {

inline std::string Letters(std::size_t n) {
    std::string text;
    do {
        text.insert(text.begin(), static_cast<char>('a' + n % 26));
        n /= 26;
    } while (n != 0);
    return text;
}

}  // namespace KALVO::Bench
