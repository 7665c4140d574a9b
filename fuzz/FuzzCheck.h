// FuzzCheck: the one assertion of the fuzz harnesses. A broken property prints what was
// expected and aborts, which libFuzzer reports as a crash and saves the input for.
#pragma once

#include <cstdio>
#include <cstdlib>

#define KALVO_FUZZ_CHECK(condition, what)                                                   \
    do {                                                                                    \
        if (!(condition)) {                                                                 \
            std::fprintf(stderr, "property broken: %s (%s:%d)\n", what, __FILE__, __LINE__); \
            std::abort();                                                                   \
        }                                                                                   \
    } while (false)
