// SPDX-License-Identifier: MIT
#include "ombrel/blob/blob_rle.h"

#include "ombrel/framework/isa.h"

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
int Transitions(const uint8_t* p, int start, int cnt, int xoff, Band band, int* state, int16_t* out) {
    int n = 0;
    bool s = *state != 0;
    for (int i = start; i < cnt; ++i) {
        const bool c = band.In(p[i]);
        if (c != s) {
            out[n++] = static_cast<int16_t>(i + xoff);
            s = c;
        }
    }
    *state = s ? 1 : 0;
    return n;
}
}  // namespace scalar

int CodeSpanStep1(const uint8_t* p, int cnt, int xoff, Band band, int16_t* out, Isa isa) {
    int state = 0, n = 0, done = 0;
    if (isa >= Isa::Avx2)
        done = avx2::Transitions(p, 0, cnt, xoff, band, &state, out, &n);
    else if (isa >= Isa::Sse2)
        done = sse2::Transitions(p, 0, cnt, xoff, band, &state, out, &n);
    n += scalar::Transitions(p, done, cnt, xoff, band, &state, out + n);
    if (state) out[n++] = static_cast<int16_t>(cnt + xoff);
    return n;
}

}  // namespace ombrel::blobrle
