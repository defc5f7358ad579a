// SPDX-License-Identifier: MIT
#include "ombrel/framework/buffer.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <vector>

namespace ombrel {
namespace {

void FillPattern(Buffer& b) {
    for (int y = 0; y < b.Height(); ++y)
        for (int64_t i = 0; i < Buffer::RowBytes(b.Width(), b.BitsPerPixel()); ++i)
            b.Row(y)[i] = static_cast<uint8_t>(y * 31 + i * 7 + 1);
}

bool Bit(const Buffer& b, int x, int y) {
    return (b.Row(y)[x >> 3] >> (7 - (x & 7))) & 1;
}

TEST(Buffer, HostBuffersAreZeroedWithAlignedPitchForEveryDepth) {
    for (PixelDepth depth : {ONE, EIGHT, SIXTEEN, THIRTYTWO}) {
        Buffer b(13, 5, depth);
        ASSERT_EQ(b.GetError(), 0);
        EXPECT_EQ(b.Width(), 13);
        EXPECT_EQ(b.Height(), 5);
        EXPECT_EQ(b.BitsPerPixel(), depth);
        EXPECT_EQ(b.Type(), HOST_BUFFER);
        EXPECT_EQ(b.Bank(), HOST_BANK);
        EXPECT_EQ(b.Pitch() % 64, 0);
        EXPECT_GE(b.Pitch(), Buffer::RowBytes(13, depth));
        EXPECT_EQ(reinterpret_cast<uintptr_t>(b.BaseAddr()) % 64, 0u);
        for (int y = 0; y < 5; ++y)
            for (int i = 0; i < b.Pitch(); ++i) ASSERT_EQ(b.Row(y)[i], 0);
    }
    EXPECT_EQ(Buffer::RowBytes(13, ONE), 2);  // a one-bit row of 13 pixels still takes whole bytes
}

TEST(Buffer, BankTaggedHostBufferReportsItsBankAndAHostType) {
    Buffer b(8, 8, HOST_BANK, EIGHT, 0, 1);
    EXPECT_EQ(b.Bank(), HOST_BANK);
    EXPECT_NE(b.Type(), MONSTER_BUFFER);
    EXPECT_EQ(b.GetPixelFormat(), 0);
    EXPECT_EQ(b.GetImageFormat(), 1);
}

TEST(Buffer, BadSizesGiveAnErrorAndNoPixelsWithoutThrowing) {
    struct Case {
        int w, h;
        int depth;
        int error;
    };
    const std::vector<Case> cases = {{0, 10, EIGHT, BUFFER_BAD_SIZE},
                                     {10, 0, EIGHT, BUFFER_BAD_SIZE},
                                     {-5, 10, EIGHT, BUFFER_BAD_SIZE},
                                     {10, INT_MIN, ONE, BUFFER_BAD_SIZE},
                                     {INT_MAX, INT_MAX, EIGHT, BUFFER_BAD_SIZE},
                                     {INT_MAX, 2, THIRTYTWO, BUFFER_BAD_SIZE},
                                     {10, 10, 7, BUFFER_BAD_DEPTH}};
    for (const Case& c : cases) {
        Buffer b(c.w, c.h, static_cast<PixelDepth>(c.depth));
        EXPECT_EQ(b.GetError(), c.error) << c.w << "x" << c.h;
        EXPECT_EQ(b.BaseAddr(), nullptr);
        EXPECT_EQ(b.Width(), 0);
        EXPECT_EQ(b.Height(), 0);
    }
}

TEST(Buffer, WrapsCallerPixelsWithTheCallerPitchAndNeverCopiesThem) {
    std::vector<uint8_t> pixels(10 * 7, 0);
    {
        Buffer wrapped(pixels.data(), 9, 7, 10, EIGHT);
        ASSERT_EQ(wrapped.GetError(), 0);
        EXPECT_EQ(wrapped.Type(), HOST_WRAPPED_BUFFER);
        EXPECT_EQ(wrapped.Pitch(), 10);
        EXPECT_EQ(wrapped.BaseAddr(), pixels.data());
        wrapped.Row(3)[4] = 77;
        Buffer copy(wrapped);  // a copy owns its own pixels
        EXPECT_NE(copy.BaseAddr(), pixels.data());
        EXPECT_EQ(copy.Type(), HOST_BUFFER);
        EXPECT_EQ(copy.Row(3)[4], 77);
    }
    EXPECT_EQ(pixels[3 * 10 + 4], 77);  // still ours after the buffer is gone
    EXPECT_EQ(Buffer(pixels.data(), 11, 7, 10, EIGHT).GetError(), BUFFER_BAD_PITCH);
    EXPECT_EQ(Buffer(nullptr, 4, 4, 4, EIGHT).GetError(), BUFFER_BAD_PITCH);
    EXPECT_EQ(Buffer(pixels.data(), 16, 2, 2, ONE).GetError(), 0);
}

TEST(Buffer, CopiesAndAssignmentAreDeepAndSelfAssignmentIsHarmless) {
    Buffer a(20, 6, SIXTEEN);
    FillPattern(a);
    Buffer b(3, 3, EIGHT);
    b = a;
    ASSERT_EQ(b.Width(), 20);
    EXPECT_EQ(b.BitsPerPixel(), SIXTEEN);
    EXPECT_NE(b.BaseAddr(), a.BaseAddr());
    for (int y = 0; y < 6; ++y) EXPECT_EQ(std::memcmp(a.Row(y), b.Row(y), 40), 0);
    Buffer& alias = b;
    b = alias;
    EXPECT_EQ(b.Row(5)[39], a.Row(5)[39]);
}

TEST(Buffer, ShapedLikeFormsTakeDepthAndOptionallyBankAndSize) {
    Buffer model(10, 4, ONE);
    Buffer same(&model);
    EXPECT_EQ(same.Width(), 10);
    EXPECT_EQ(same.BitsPerPixel(), ONE);
    Buffer resized(&model, BANK_1, 30, 2);
    EXPECT_EQ(resized.Width(), 30);
    EXPECT_EQ(resized.Bank(), BANK_1);
    Buffer fromNull(static_cast<const Buffer*>(nullptr));
    EXPECT_NE(fromNull.GetError(), 0);
}

TEST(Buffer, CopyFromConvertsEightBitToOneBitAndBack) {
    Buffer grey(11, 3, EIGHT);
    for (int x = 0; x < 11; ++x) grey.Row(1)[x] = static_cast<uint8_t>(x % 3 == 0 ? 0 : x * 20);
    Buffer bits(11, 3, ONE);
    ASSERT_EQ(bits.CopyFrom(&grey), 0);
    for (int x = 0; x < 11; ++x) EXPECT_EQ(Bit(bits, x, 1), x % 3 != 0) << x;
    EXPECT_EQ(bits.Row(1)[1] & 0x1F, 0) << "padding bits past the width stay clear";
    Buffer back(11, 3, EIGHT);
    ASSERT_EQ(back.CopyFrom(&bits), 0);
    for (int x = 0; x < 11; ++x) EXPECT_EQ(back.Row(1)[x], x % 3 != 0 ? 1 : 0);
    Buffer words(11, 3, SIXTEEN);
    EXPECT_EQ(words.CopyFrom(&grey), BUFFER_BAD_DEPTH);
}

TEST(Buffer, CopyFromRectangleLandsAtThePointAndIsClippedToBothBuffers) {
    Buffer src(8, 8, EIGHT);
    FillPattern(src);
    Buffer dst(6, 6, EIGHT);
    ASSERT_EQ(dst.CopyFrom(&src, Rect{2, 3, 6, 5}, Point{1, 1}), 0);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 6; ++x) {
            const bool inside = x >= 1 && x < 5 && y >= 1 && y < 3;
            EXPECT_EQ(dst.Row(y)[x], inside ? src.Row(y + 2)[x + 1] : 0) << x << "," << y;
        }
    // Rectangles hanging off either buffer copy the overlap only; absurd ones copy nothing.
    Buffer clipped(6, 6, EIGHT);
    EXPECT_EQ(clipped.CopyFrom(&src, Rect{-3, -3, 100, 100}, Point{-2, -2}), 0);  // dest = src + (1, 1)
    EXPECT_EQ(clipped.Row(1)[1], src.Row(0)[0]);
    EXPECT_EQ(clipped.Row(5)[5], src.Row(4)[4]);
    EXPECT_EQ(clipped.Row(0)[0], 0);
    EXPECT_EQ(clipped.Row(0)[5], 0);
    EXPECT_EQ(clipped.CopyFrom(&src, Rect{INT_MIN, INT_MIN, INT_MAX, INT_MAX}, Point{INT_MAX, INT_MIN}), 0);
    EXPECT_EQ(clipped.CopyFrom(nullptr), BUFFER_BAD_SIZE);
}

TEST(Buffer, BoardBuffersDescribeThemselvesButHoldNoHostPixels) {
    Buffer board(nullptr, MONSTER_ALLOC_DEFAULT, BANK_1, 64, 32, EIGHT);
    EXPECT_EQ(board.Type(), MONSTER_BUFFER);
    EXPECT_EQ(board.Bank(), BANK_1);
    EXPECT_EQ(board.Width(), 64);
    EXPECT_EQ(board.BaseAddr(), nullptr);
    EXPECT_EQ(board.GetError(), BUFFER_NO_BOARD);
    Buffer host(64, 32, EIGHT);
    EXPECT_EQ(host.CopyFrom(&board), BUFFER_BAD_SIZE);
    Buffer shaped(&board, BANK_0);
    EXPECT_EQ(shaped.Type(), MONSTER_BUFFER);
    EXPECT_EQ(shaped.Bank(), BANK_0);
}

}  // namespace
}  // namespace ombrel
