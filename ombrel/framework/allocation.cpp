// SPDX-License-Identifier: MIT
#include "ombrel/framework/allocation.h"

#include <cstdlib>

// Defined only by test programs (testing/allocation_counter.cpp), which also route operator new through it.
// Weak and hidden: in the shared library nothing defines it, so the linker resolves it to null, nothing can
// interpose it at run time, and the check below always takes the plain path.
extern "C" __attribute__((weak, visibility("hidden"))) bool ombrel_test_refuses_allocation();

namespace ombrel::detail {

void* Calloc(std::size_t count, std::size_t size) {
    if (ombrel_test_refuses_allocation != nullptr && ombrel_test_refuses_allocation()) return nullptr;
    return std::calloc(count, size);
}

}  // namespace ombrel::detail
