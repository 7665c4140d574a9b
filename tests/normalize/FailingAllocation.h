// Lets a test make the next allocation of its thread fail with std::bad_alloc. The test binary
// that links FailingAllocation.cpp has its global operator new and delete replaced.
#pragma once

namespace KALVO::Testing {

// Arms (or disarms) a one-shot failure of the next operator new on the calling thread.
void FailNextAllocation(bool fail) noexcept;

}  // namespace KALVO::Testing
