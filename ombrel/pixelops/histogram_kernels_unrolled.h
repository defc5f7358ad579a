// SPDX-License-Identifier: MIT
// The unrolled counting body shared by the ISA kernel files; each includes it inside its own anonymous
// namespace, so each copy is compiled with, and stays private to, that file's flags.
// 16 pixels per step, read as two 64-bit words, byte k of the step going to lane k % 4.

inline int CountSpanUnrolled(const uint8_t* p, int n, HistogramLanes& lanes) {
    uint32_t* h0 = lanes.lane[0];
    uint32_t* h1 = lanes.lane[1];
    uint32_t* h2 = lanes.lane[2];
    uint32_t* h3 = lanes.lane[3];
    int i = 0;
    for (; i + 16 <= n; i += 16) {
        uint64_t a, b;
        std::memcpy(&a, p + i, 8);
        std::memcpy(&b, p + i + 8, 8);
        for (int k = 0; k < 64; k += 32) {
            ++h0[(a >> k) & 0xFF];
            ++h1[(a >> (k + 8)) & 0xFF];
            ++h2[(a >> (k + 16)) & 0xFF];
            ++h3[(a >> (k + 24)) & 0xFF];
            ++h0[(b >> k) & 0xFF];
            ++h1[(b >> (k + 8)) & 0xFF];
            ++h2[(b >> (k + 16)) & 0xFF];
            ++h3[(b >> (k + 24)) & 0xFF];
        }
    }
    return i;
}
