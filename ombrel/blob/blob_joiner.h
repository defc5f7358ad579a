// SPDX-License-Identifier: MIT
// The run joiner of blob segmentation (internal): the coordinates and rules its runs share with the agent.
//
// The active runs of one row are alternating background / object runs, from the root's run (x = -32767)
// to a terminator (x = 32767); a run ends where the next one starts. While a row is joined, the previous
// row's runs are read from one array at a cursor and the current row's are written to another, so that
// the runs left of the cursor describe the current row and those from it on the previous one. Three
// edits keep them a partition of the row:
//   continue: a previous run touched by a current run of its class takes the current run's start;
//   newseg:   a current run that touches nothing of its class splits the run enclosing it into three
//             (the enclosing region's part, the new region's run, the enclosing region's continuation,
//             which goes back in front of the cursor);
//   endseg:   a previous run that no current run of its class continues is removed together with the run
//             after it, so that the runs on either side (of one class) become one, merging their regions.
// Runs name their region through a slot; a merge forwards the merged-away slot to the survivor's instead of
// re-pointing its runs, and the survivor's slot counts the open runs of both. Plain arrays and slots keep
// a noisy image (hundreds of thousands of tiny regions) from spending its time on linked, pooled entries;
// the entry pool's accounting is kept as counts (CountedPool) so that limits and failures stay the same.
#pragma once
#include <cstdint>

namespace ombrel::blobjoin {

inline constexpr int16_t kRunStart = -32767;
inline constexpr int16_t kRunEnd = 32767;
inline constexpr int16_t kEndMark = -32768;
inline constexpr int kMaxExtent = 32766;    // the reach of the 16-bit run coordinates
inline constexpr int kPrefetchRuns = 4;     // how far ahead of the cursor the joiner fetches region records
inline constexpr int kPrefetchRecords = 4;  // how far ahead of the pool newseg fetches fresh records

inline int Complement(int colour) {
    return colour == -1 ? 0 : -1;
}

// Same-class runs [s, t) and [a, b): objects touch 8-connected, background 4-connected.
inline bool Touches(bool object, int s, int t, int a, int b) {
    return object ? (s <= b && a <= t) : (s < b && a < t);
}

}  // namespace ombrel::blobjoin
