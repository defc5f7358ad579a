// SPDX-License-Identifier: MIT
// Any bytes given to the image reader must give an image or a message: never a crash, a hang, a leak or
// a read outside the file's bytes. Every format the program reads is reached by its magic bytes: PNG,
// PGM/PBM/PPM, TIFF, JPEG and BMP.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "image_io.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ombrel::cli::DecodeLimits limits;
    // Small enough that the fuzzer's memory limit is never the thing that stops it.
    limits.maxSide = 4096;
    limits.maxBytes = 32u << 20;
    // Random mutations almost never repair a chunk's checksum; without this the fuzzer would not get past it.
    limits.checkPngCrc = false;
    // The last byte also picks a --bits setting, so the 16-bit mapping paths are fuzzed too.
    limits.bits = size > 0 ? data[size - 1] % 17 : 0;
    const ombrel::cli::DecodedImage decoded = ombrel::cli::DecodeImage(data, size, limits);
    if (decoded.image) {
        // Touch every pixel so that a short or misplaced buffer shows up under AddressSanitizer.
        unsigned sum = 0;
        for (int y = 0; y < decoded.image->Height(); ++y) {
            const uint8_t* row = decoded.image->Row(y);
            for (int x = 0; x < decoded.image->Width(); ++x) sum += row[x];
        }
        volatile unsigned keep = sum;  // so the reads are not optimised away
        (void)keep;
        if (!decoded.error.empty()) std::abort();  // success carries no message
    } else if (decoded.error.empty()) {
        std::abort();  // a failure must always say why
    }
    return 0;
}
