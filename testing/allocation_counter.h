// SPDX-License-Identifier: MIT
// Counts every allocation a test program makes (a replaced global operator new, every form, and the
// library's raw blocks) and can make one chosen request fail. Link the OmbrelAllocationCounter object
// library to use it; the shared library never contains any of this.
#pragma once
#include <cstdint>

namespace ombrel::testing {

// Requests made so far by every thread.
int64_t AllocationCount();
// operator new blocks not yet given back, over every thread.
int64_t LiveAllocations();

// From now on, this thread's requests are counted and the k-th one (1-based) is refused: operator new
// throws std::bad_alloc, its nothrow forms and the library's raw blocks give null. k = 0 only counts.
void RefuseAllocation(int64_t k);
// Ends counting on this thread; returns how many requests it made since RefuseAllocation.
int64_t StopRefusing();
// Stops and restarts counting on this thread (around the test's own work inside a counted stretch).
void PauseRefusing();
void ResumeRefusing();
// Whether the chosen request was refused since the last RefuseAllocation on this thread.
bool AllocationWasRefused();

}  // namespace ombrel::testing
