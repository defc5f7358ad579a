// SPDX-License-Identifier: MIT
#include "testing/images.h"

#include <gtest/gtest.h>

#include <cstring>

namespace ombrel::testing {
namespace {

void FillPadding(const Buffer& b) {
    for (int y = 0; y < b.Height(); ++y)
        std::memset(b.Row(y) + b.Width(), kPadByte, static_cast<size_t>(b.Pitch() - b.Width()));
}

}  // namespace

std::unique_ptr<Buffer> RandomImage(int w, int h, uint32_t seed) {
    auto b = std::make_unique<Buffer>(w, h, EIGHT);
    std::mt19937 rng(seed);
    FillRandom(*b, rng);
    FillPadding(*b);
    return b;
}

std::unique_ptr<Buffer> FilledImage(int w, int h, uint8_t value) {
    auto b = std::make_unique<Buffer>(w, h, EIGHT);
    for (int y = 0; y < h; ++y) std::memset(b->Row(y), value, static_cast<size_t>(w));
    FillPadding(*b);
    return b;
}

void FillRandom(const Buffer& b, std::mt19937& rng, int bytesPerRow) {
    for (int y = 0; y < b.Height(); ++y)
        for (int x = 0; x < bytesPerRow; ++x) b.Row(y)[x] = static_cast<uint8_t>(rng());
}

void FillRandom(const Buffer& b, std::mt19937& rng) {
    FillRandom(b, rng, b.Width());
}

std::vector<int> AwkwardWidths() {
    return {1, 2, 7, 15, 16, 17, 31, 32, 33, 63, 64, 65, 71, 127, 128, 129, 200};
}

std::vector<uint8_t> Pixels(const Buffer& b) {
    std::vector<uint8_t> out;
    out.reserve(static_cast<size_t>(b.Width()) * b.Height());
    for (int y = 0; y < b.Height(); ++y) out.insert(out.end(), b.Row(y), b.Row(y) + b.Width());
    return out;
}

void ExpectPaddingIs(const Buffer& b, uint8_t pad) {
    for (int y = 0; y < b.Height(); ++y)
        for (int x = b.Width(); x < b.Pitch(); ++x)
            if (b.Row(y)[x] != pad) {
                ADD_FAILURE() << "padding byte " << x << " of row " << y << " is " << int{b.Row(y)[x]};
                return;
            }
}

}  // namespace ombrel::testing
