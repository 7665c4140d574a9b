// The size of a test's heavy loops: full in optimised builds, reduced where every step runs many
// times slower (the sanitizer builds, the mutation runs, the emulator).
#pragma once

namespace KALVO::Testing {

template <class T>
constexpr T Scaled([[maybe_unused]] T full, [[maybe_unused]] T reduced) {
#ifdef KALVO_SANITIZED
    return reduced;
#else
    return full;
#endif
}

}  // namespace KALVO::Testing
