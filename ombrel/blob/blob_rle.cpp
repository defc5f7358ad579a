// SPDX-License-Identifier: MIT
#include "ombrel/blob/blob_rle.h"

#include "ombrel/framework/kernel_family.h"

namespace ombrel::blobrle {
namespace {

// First pixel of the new class found by stepping back from the change at `i` (at most step - 1 pixels).
int RefineBack(const uint8_t* p, int i, int step, Band band, bool newClass) {
    int t = i;
    for (int k = 1; k < step && i - k >= 0 && band.In(p[i - k]) == newClass; ++k) t = i - k;
    return t;
}

// One past the last object pixel, stepping back from the span end over at most step - 1 background pixels
// that lie after the last sampled pixel.
int ClosingEnd(const uint8_t* p, int cnt, int lastSample, Band band) {
    int e = cnt;
    while (e - 1 > lastSample && !band.In(p[e - 1])) --e;
    return e;
}

}  // namespace

int CodeSpan(const uint8_t* p, int cnt, int xoff, int step, Band band, int16_t* out) {
    int n = 0;
    bool state = false;
    int i = 0, lastSample = 0;
    for (; i < cnt; i += step) {
        lastSample = i;
        const bool c = band.In(p[i]);
        if (c == state) continue;
        out[n++] = static_cast<int16_t>(RefineBack(p, i, step, band, c) + xoff);
        state = c;
    }
    if (state) out[n++] = static_cast<int16_t>(ClosingEnd(p, cnt, lastSample, band) + xoff);
    return n;
}

int CodeSpanGrey(const uint8_t* p, int cnt, int xoff, int step, Band band, int16_t* out, int32_t* greys,
                 int32_t* tail) {
    int n = 0;
    bool state = false;
    int32_t sum = 0;
    int i = 0, lastSample = 0;
    for (; i < cnt; i += step) {
        lastSample = i;
        const bool c = band.In(p[i]);
        if (c != state) {
            const int t = RefineBack(p, i, step, band, c);
            for (int k = t; k < i; ++k) sum -= p[k];
            out[n] = static_cast<int16_t>(t + xoff);
            greys[n++] = sum;
            sum = 0;
            state = c;
        }
        sum += int32_t{p[i]} * step;
    }
    if (state) {
        const int e = ClosingEnd(p, cnt, lastSample, band);
        for (int k = e; k < cnt; ++k) sum -= p[k];
        out[n] = static_cast<int16_t>(e + xoff);
        greys[n++] = sum;
        sum = 0;
    }
    *tail = sum;
    return n;
}

namespace scalar {
int Transitions(int begin, int end, const uint8_t* p, int xoff, Band band, TransitionState* st,
                int16_t* out) {
    bool s = st->state != 0;
    int n = st->count;
    for (int i = begin; i < end; ++i) {
        const bool c = band.In(p[i]);
        if (c != s) {
            out[n++] = static_cast<int16_t>(i + xoff);
            s = c;
        }
    }
    st->state = s ? 1 : 0;
    st->count = n;
    return end;
}
}  // namespace scalar

const KernelFamily<TransitionKernel> kTransitionKernels{&scalar::Transitions, &sse2::Transitions,
                                                        &avx2::Transitions, &avx512::Transitions};

int CodeSpanStep1(const uint8_t* p, int cnt, int xoff, Band band, int16_t* out, Isa isa) {
    TransitionState st;
    kTransitionKernels.Run(isa, 0, cnt, p, xoff, band, &st, out);
    if (st.state) out[st.count++] = static_cast<int16_t>(cnt + xoff);
    return st.count;
}

}  // namespace ombrel::blobrle
