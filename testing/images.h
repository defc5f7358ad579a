// SPDX-License-Identifier: MIT
// Test images: random pixels, padding that must stay untouched, and pixels read back as plain vectors.
// Every kernel-equality test builds its inputs with these so that all of them probe the same awkward cases.
#pragma once
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "ombrel/framework/buffer.h"

namespace ombrel::testing {

// The byte the padding of a padded image holds: a value no kernel writes by accident.
constexpr uint8_t kPadByte = 0xA5;

// An 8-bit image of w x h random pixels (seeded), its row padding filled with kPadByte.
std::unique_ptr<Buffer> RandomImage(int w, int h, uint32_t seed);
// An 8-bit image of w x h pixels all `value`, its row padding filled with kPadByte.
std::unique_ptr<Buffer> FilledImage(int w, int h, uint8_t value);
// Fills the first `bytesPerRow` bytes of every row with random bytes.
void FillRandom(const Buffer& b, std::mt19937& rng, int bytesPerRow);
void FillRandom(const Buffer& b, std::mt19937& rng);  // every pixel of an 8-bit image
// Widths just below, at and above each vector width (16, 32, 64), plus 1 and a few odd ones.
std::vector<int> AwkwardWidths();

// The w x h pixels of an 8-bit image, row after row (the padding left out).
std::vector<uint8_t> Pixels(const Buffer& b);
// Adds a test failure for every padding byte of an 8-bit image that is not `pad`.
void ExpectPaddingIs(const Buffer& b, uint8_t pad = kPadByte);

}  // namespace ombrel::testing
