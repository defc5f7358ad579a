// SPDX-License-Identifier: MIT
// Break detection: compares a board's traces with their golden template and marks where a trace is cut.
// Binary images hold one pixel per byte, bit value 1 set.
#include <cstdio>

#include "example_image.h"

using namespace ombrel;

// Three horizontal traces, 3 pixels thick; `cut` removes columns 30..33 of the middle one.
static void DrawTraces(Buffer& image, bool cut) {
    for (int y0 : {8, 20, 32}) example::FillRect(image, 6, y0, 70, y0 + 3, 1);
    if (cut) example::FillRect(image, 30, 20, 34, 23, 0);
}

int main() {
    Buffer golden(76, 44, EIGHT), board(76, 44, EIGHT), dilated(76, 44, EIGHT);
    DrawTraces(golden, false);
    DrawTraces(board, true);

    // The agent compares the board with the template and with the board dilated by a 3 x 3 square (that
    // forgives a trace a pixel off); the dilation is binary morphology.
    BinMorphOperator grow(DilateFull);
    std::unique_ptr<BinMorphAgent> dilate(BinMorphFact(&board, &dilated, BMBORDER_CLEAR, &grow, 1));
    if (!dilate || dilate->Go() != 0) return 1;

    // Iterations 0: the converging mode, whose passes PostGo finishes.
    BreakAgent agent(&board, &golden, &dilated, BMBORDER_CLEAR, 0, 1);
    if (agent.Go() != 0 || agent.PostGo() != 0) return 1;

    const Buffer& breaks = *agent.Breaks();
    int found = 0;
    for (int y = 0; y < breaks.Height(); ++y)
        for (int x = 0; x < breaks.Width(); ++x)
            if (breaks.Row(y)[x] & 1) {
                std::printf("break marked at (%d, %d)\n", x, y);
                ++found;
            }
    std::printf("%d break pixel%s on the board\n", found, found == 1 ? "" : "s");
    return 0;
}
