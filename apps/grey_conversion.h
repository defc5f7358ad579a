// SPDX-License-Identifier: MIT
// Sample conversions shared by the image readers.
#pragma once
#include <cstdint>

#include <ombrel/framework/startup.h>

namespace ombrel::cli {

// Grey from 8-bit red, green and blue with the library's ITU-R BT.601 tables
// (0.299 R + 0.587 G + 0.114 B, rounded to nearest), so the program and the library agree on colour.
inline uint8_t RgbToGrey(uint8_t r, uint8_t g, uint8_t b) {
    return static_cast<uint8_t>((ColorUtilities::RedToGrey()[r] + ColorUtilities::GreenToGrey()[g] +
                                 ColorUtilities::BlueToGrey()[b]) >>
                                16);
}

// A sample of 0..maxval (maxval 1..65535) scaled to 0..255, rounded to nearest. Values above maxval
// (which the readers reject) would saturate rather than wrap.
inline uint8_t ScaleSample(uint32_t value, uint32_t maxval) {
    if (maxval == 255) return static_cast<uint8_t>(value > 255 ? 255 : value);
    const uint32_t scaled = (value * 255u + maxval / 2) / maxval;
    return static_cast<uint8_t>(scaled > 255 ? 255 : scaled);
}

// The maxval samples are scaled by: the file's own, or 2^bits - 1 when the user said how many bits a
// high-bit-depth sensor fills (`bits` 0 means "not said"; it applies only to files with more than 8 bits).
inline uint32_t ScaleMaxval(uint32_t fileMaxval, int sourceBits, int bits) {
    if (bits <= 0 || sourceBits <= 8) return fileMaxval;
    return (uint32_t{1} << bits) - 1;
}

}  // namespace ombrel::cli
