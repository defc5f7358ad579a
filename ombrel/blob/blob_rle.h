// SPDX-License-Identifier: MIT
// Row coding of blob segmentation (internal): the transitions of one span between background and object.
//
// A span of `cnt` pixels starts in the background class. Every `step`-th pixel is classified (object when
// its value lies in [low, high]); at a class change the position is refined backwards by at most step - 1
// pixels while the pixel already has the new class. When the span ends in the object class a closing
// transition one past the last object pixel is added (found by stepping back from the span end the same
// way). Positions are written as xoff + offset. The band is given as low and range = high - low, both
// 0..255; an empty band never reaches the coder.
#pragma once
#include <cstdint>

#include "ombrel/framework/isa.h"

namespace ombrel::blobrle {

struct Band {
    uint8_t low;
    uint8_t range;
    bool In(uint8_t v) const { return static_cast<uint8_t>(v - low) <= range; }
};

// Scalar reference, any step, without grey sums. Returns the number of transitions written (at most
// cnt + 1; `out` must hold that many).
int CodeSpan(const uint8_t* p, int cnt, int xoff, int step, Band band, int16_t* out);

// The same with grey sums: greys[k] receives the sum of the run that ends at out[k] (sampled pixels times
// `step`, less the pixels stepped back over); *tail the sum of the run after the last transition.
int CodeSpanGrey(const uint8_t* p, int cnt, int xoff, int step, Band band, int16_t* out, int32_t* greys,
                 int32_t* tail);

namespace scalar {
// Step-1 transition finder from `start` with the current class in *state (0 background, 1 object); stops
// at `cnt`. Returns the number of transitions written. The reference for the vector kernels.
int Transitions(const uint8_t* p, int start, int cnt, int xoff, Band band, int* state, int16_t* out);
}  // namespace scalar

namespace sse2 {
// Handles whole 16-pixel blocks from `start`; returns the pixel index where it stopped, *n transitions.
int Transitions(const uint8_t* p, int start, int cnt, int xoff, Band band, int* state, int16_t* out, int* n);
}  // namespace sse2
namespace avx2 {
int Transitions(const uint8_t* p, int start, int cnt, int xoff, Band band, int* state, int16_t* out, int* n);
}  // namespace avx2

// Step-1 coding through the fastest kernel the active instruction set allows (identical to CodeSpan).
int CodeSpanStep1(const uint8_t* p, int cnt, int xoff, Band band, int16_t* out, Isa isa);

}  // namespace ombrel::blobrle
