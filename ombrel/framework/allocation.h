// SPDX-License-Identifier: MIT
// The library's raw memory blocks (image pixels, correlation position lists) are taken here, so that a test
// build can make any one of them fail on purpose and prove that every caller copes.
#pragma once
#include <cstddef>

namespace ombrel::detail {

// std::calloc, except that a test build may refuse the request (null, as calloc gives when memory runs out).
// Release the block with std::free.
void* Calloc(std::size_t count, std::size_t size);

}  // namespace ombrel::detail
