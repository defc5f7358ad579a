// SPDX-License-Identifier: MIT
// Pixel arithmetic: compares a test image with a reference, as an inspection does after aligning them.
//   ombrel_example_arith [reference test]   (without images: a grey reference, and a copy of it with one
//                                            darker and one brighter patch)
#include <cstdio>

#include "example_image.h"

using namespace ombrel;

static std::unique_ptr<Buffer> DrawReference() {
    auto image = std::make_unique<Buffer>(64, 48, EIGHT);
    example::FillRect(*image, 0, 0, 64, 48, 120);
    return image;
}

static std::unique_ptr<Buffer> DrawTest() {
    auto image = DrawReference();
    example::FillRect(*image, 10, 10, 20, 20, 80);   // 100 pixels 40 darker
    example::FillRect(*image, 40, 30, 45, 34, 200);  // 20 pixels 80 brighter
    return image;
}

// Runs `op` on a and b into `out` and returns the agent's results: word 0 the sum of the bytes written,
// word 1 how many are not 0.
static ArithResults Run(ArithOp op, Buffer& a, Buffer& b, Buffer& out, bool saturateAtZero) {
    ArithResults results;
    std::unique_ptr<ArithAgent> agent(ArithFact(&a, &b, op, 1.0f, 0, &out));
    if (!agent) return results;
    // SUB's default turns a negative difference white; clamping to 0..255 instead is what cv2.subtract does.
    if (saturateAtZero) agent->SetSignClip(_ARITH_UNSIGNED, _ARITH_UNSIGNED, _ARITH_UNSIGNED, false, true);
    if (agent->Go() == 0) agent->GetResults(&results);
    return results;
}

int main(int argc, char** argv) {
    auto reference = example::LoadOrDraw(argc, argv, DrawReference);
    auto test = example::LoadOrDraw(argc - 1, argv + 1, DrawTest);
    if (!reference || !test) return 1;
    Buffer out(reference->Width(), reference->Height(), EIGHT);

    const ArithResults diff = Run(_ARITH_DIFF, *reference, *test, out, false);
    std::printf("|reference - test|: %d pixels differ, differences sum to %d\n", diff.word[1], diff.word[0]);
    const ArithResults darker = Run(_ARITH_SUB, *reference, *test, out, true);
    std::printf("reference - test, saturated at 0: %d pixels are darker than the reference, by %d in all\n",
                darker.word[1], darker.word[0]);
    return 0;
}
