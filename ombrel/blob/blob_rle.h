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

namespace ombrel {
template <class Signature>
class KernelFamily;  // framework/kernel_family.h; not included here, since ISA-compiled files include this
}  // namespace ombrel

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

// The step-1 transition finder, the same at every level: from pixel `begin` to `end` of the span at p, with
// the current class in st->state (0 background, 1 object), it writes the position (xoff + index) of every
// class change to out[st->count++]. The scalar reference finishes at end; a vector level stops after its last
// whole block.
struct TransitionState {
    int state = 0;
    int count = 0;
};
using TransitionKernel = int(int begin, int end, const uint8_t* p, int xoff, Band band, TransitionState* st,
                             int16_t* out);

namespace scalar {
int Transitions(int begin, int end, const uint8_t* p, int xoff, Band band, TransitionState* st, int16_t* out);
}
namespace sse2 {
int Transitions(int begin, int end, const uint8_t* p, int xoff, Band band, TransitionState* st, int16_t* out);
}
namespace avx2 {
int Transitions(int begin, int end, const uint8_t* p, int xoff, Band band, TransitionState* st, int16_t* out);
}
namespace avx512 {
int Transitions(int begin, int end, const uint8_t* p, int xoff, Band band, TransitionState* st, int16_t* out);
}

// Step-1 coding through the fastest kernel the active instruction set allows (identical to CodeSpan).
int CodeSpanStep1(const uint8_t* p, int cnt, int xoff, Band band, int16_t* out, Isa isa);

extern const KernelFamily<TransitionKernel> kTransitionKernels;

}  // namespace ombrel::blobrle
