// Replaced global allocation functions, kept in their own translation unit so that no caller
// sees malloc and free behind its new and delete.
#include "tests/normalize/FailingAllocation.h"

#include <cstdlib>
#include <new>

namespace {
thread_local bool failNextAllocation = false;
}  // namespace

void* operator new(std::size_t size) {
    if (failNextAllocation) {
        failNextAllocation = false;
        throw std::bad_alloc();
    }
    if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace KALVO::Testing {

void FailNextAllocation(bool fail) noexcept { failNextAllocation = fail; }

}  // namespace KALVO::Testing
