// SPDX-License-Identifier: MIT
#include "ombrel/blob/blob_pool.h"

#include <algorithm>
#include <atomic>

namespace ombrel {
namespace {

std::atomic<int> gBlobMaxPoolSize{kBlobDefaultMaxPoolSize};

}  // namespace

void SetBlobMaxPoolSize(int n) {
    // 3n/32 chunks of 32: room for about three elements per requested one.
    const int64_t chunks = 3 * int64_t{n} / 32;
    if (chunks > 0)
        gBlobMaxPoolSize = static_cast<int>(std::min<int64_t>(std::max<int64_t>(512, chunks), 1 << 28));
}

int GetBlobMaxPoolSize() {
    return gBlobMaxPoolSize;
}

void ReportBlobPoolFailure(int32_t status) {
    if (status == BLOB_ERR_TOO_COMPLEX)
        DebugWndMsg(kImageTooComplexMessageClass, "Image Too Complex -- Change Threshold");
}

}  // namespace ombrel
