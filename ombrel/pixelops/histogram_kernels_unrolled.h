// SPDX-License-Identifier: MIT
// The unrolled counting body shared by the ISA kernel files; each includes it inside its own anonymous
// namespace, so each copy is compiled with, and stays private to, that file's flags.
// 16 pixels per step, read as two 64-bit words, byte k of each word going to lane k.

inline int CountSpanUnrolled(const uint8_t* p, int n, HistogramLanes& lanes) {
    int i = 0;
    for (; i + 16 <= n; i += 16) {
        uint64_t a, b;
        std::memcpy(&a, p + i, 8);
        std::memcpy(&b, p + i + 8, 8);
        for (int k = 0; k < 8; ++k) ++lanes.lane[k][(a >> (8 * k)) & 0xFF];
        for (int k = 0; k < 8; ++k) ++lanes.lane[k][(b >> (8 * k)) & 0xFF];
    }
    return i;
}
