// SPDX-License-Identifier: MIT
#include "ombrel/framework/roi.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ombrel/framework/region_clip.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::AssertRecorder;

// Builds a one-bit mask from rows of '#' (in) and '.' (out).
std::unique_ptr<Buffer> MaskFrom(const std::vector<std::string>& rows) {
    auto mask =
        std::make_unique<Buffer>(static_cast<int>(rows[0].size()), static_cast<int>(rows.size()), ONE);
    for (size_t y = 0; y < rows.size(); ++y)
        for (size_t x = 0; x < rows[y].size(); ++x)
            if (rows[y][x] == '#')
                mask->Row(static_cast<int>(y))[x >> 3] |= static_cast<uint8_t>(0x80 >> (x & 7));
    return mask;
}

// The spans of a region as "y:x+len" strings, walked the way agents walk it.
std::vector<std::string> Walk(Buffer* image, Point origin, ROI* roi, int step = 1) {
    std::vector<std::string> spans;
    ROIRowIter rows(image, origin, roi);
    for (ROIRow* row = rows.FirstRow(); row != nullptr; row = rows.NextRow(step))
        for (ROISeg* seg = row->FirstSeg(); seg != nullptr; seg = row->NextSeg()) {
            EXPECT_EQ(seg->ptr, image->Row(seg->y) + seg->x);
            spans.push_back(std::to_string(seg->y) + ":" + std::to_string(seg->x) + "+" +
                            std::to_string(seg->len));
        }
    return spans;
}

TEST(ROI, MaskRowsBecomeOrderedSeparateRunsReadMostSignificantBitFirst) {
    auto mask = MaskFrom({"##..#.###.#",  // width 11: the padding bits of the second byte are never read
                          "...........", "###########"});
    mask->Row(1)[1] = 0x1F;  // set padding bits past the width in a row that is otherwise empty
    ROI roi(mask.get());
    EXPECT_FALSE(roi.OwnsMask());
    EXPECT_EQ(roi.GetMaskbits(), mask.get());
    ASSERT_EQ(roi.ScanRows(), 3);
    const ROIRowStore* scans = roi.GetScans();
    ASSERT_EQ(scans[0].SegCnt(), 4);
    EXPECT_EQ(scans[0].scans[0].Start(), 0);
    EXPECT_EQ(scans[0].scans[0].Len(), 2);
    EXPECT_EQ(scans[0].scans[3].Start(), 10);
    EXPECT_EQ(scans[0].scans[3].Len(), 1);
    EXPECT_EQ(scans[1].SegCnt(), 0);
    EXPECT_EQ(scans[1].scans, nullptr);
    EXPECT_EQ(scans[2].row, 2);

    Buffer image(40, 20, EIGHT);
    EXPECT_EQ(Walk(&image, Point{5, 7}, &roi),
              (std::vector<std::string>{"7:5+2", "7:9+1", "7:11+3", "7:15+1", "9:5+11"}));
}

TEST(ROI, RectangularRegionHasOneWholeRowSpanAndRowStepsSkipRows) {
    Buffer image(10, 10, EIGHT);
    ROI rect(4, 5);
    EXPECT_EQ(Walk(&image, Point{2, 3}, &rect, 2), (std::vector<std::string>{"3:2+4", "5:2+4", "7:2+4"}));
    ROIRowIter rows(&image, Point{0, 0}, &rect);
    EXPECT_EQ(rows.NextRow(5), nullptr) << "a step that jumps past the last row ends the walk";
    EXPECT_EQ(rows.NextRow(0), nullptr) << "a step below one still advances";
    ASSERT_NE(rows.FirstRow(), nullptr);
    EXPECT_EQ(rows.NextRow(INT32_MAX), nullptr);
}

TEST(ROI, EightBitOrRequestedCopiesAreOwnedAndAssignmentCopiesOnlyOwnedMasks) {
    Buffer grey(12, 2, EIGHT);
    grey.Row(0)[3] = 9;
    grey.Row(1)[11] = 255;
    ROI owned(&grey);  // 8-bit masks are always copied into a one-bit mask
    ASSERT_TRUE(owned.OwnsMask());
    EXPECT_EQ(owned.GetMaskbits()->BitsPerPixel(), ONE);
    EXPECT_EQ(owned.GetScans()[0].scans[0].Start(), 3);
    EXPECT_EQ(owned.GetScans()[1].scans[0].Start(), 11);

    ROI second;
    second = owned;
    EXPECT_TRUE(second.OwnsMask());
    EXPECT_NE(second.GetMaskbits(), owned.GetMaskbits()) << "an owned mask is copied, not shared";
    ROI& alias = second;
    const Buffer* before = second.GetMaskbits();
    second = alias;
    EXPECT_EQ(second.GetMaskbits(), before);

    auto bits = MaskFrom({"#..#"});
    ROI referring(bits.get());
    ROI third(3, 3);
    third = referring;
    EXPECT_FALSE(third.OwnsMask());
    EXPECT_EQ(third.GetMaskbits(), bits.get()) << "a caller's mask is referred to, not copied";
    ROI copied(&referring, true);
    EXPECT_TRUE(copied.OwnsMask());
    EXPECT_NE(copied.GetMaskbits(), bits.get());

    third = ROI(7, 2);  // assigning a rectangle drops the scans; a caller's mask is not the region's to clear
    EXPECT_EQ(third.GetMaskbits(), bits.get());
    EXPECT_FALSE(third.IsMasked());
    EXPECT_FALSE(third.OwnsMask());
    EXPECT_EQ(third.Width(), 7);
}

// A caller's mask that a region stopped using stays referred to, but the region never reads it again: the
// caller may change or free it. Copies pass the pointer on without building scans from it.
TEST(ROI, ACallersMaskIsKeptButNeverReadOnceTheRegionLetsGoOfIt) {
    auto bits = MaskFrom({"#...", ".#.."});
    ROI r(bits.get());
    r.SetMaskbits(nullptr, false);  // stops at the null: scans freed, pointer and extent kept
    EXPECT_EQ(r.GetMaskbits(), bits.get());
    EXPECT_FALSE(r.IsMasked());
    EXPECT_EQ(r.Width(), 4);
    EXPECT_EQ(r.Height(), 2);
    ROI deleted(bits.get());
    deleted.DeleteMaskbits();
    EXPECT_EQ(deleted.GetMaskbits(), bits.get());
    EXPECT_EQ(deleted.ScanRows(), 0);

    // Were the mask read again, this change would show up as scans in the copies below.
    bits->Row(0)[0] = bits->Row(1)[0] = 0xF0;
    ROI assigned(9, 9);
    assigned = r;
    ROI copied(&r, true);
    ROI constructed(r);
    for (const ROI* region : {&assigned, &copied, &constructed}) {
        EXPECT_EQ(region->GetMaskbits(), bits.get());
        EXPECT_FALSE(region->IsMasked());
        EXPECT_FALSE(region->OwnsMask());
        EXPECT_EQ(region->Width(), 4);
    }
    Buffer image(8, 8, EIGHT);
    EXPECT_EQ(Walk(&image, Point{1, 1}, &assigned), (std::vector<std::string>{"1:1+4", "2:1+4"}));

    // Handing the same buffer in again attaches it anew and reads it as it is now.
    assigned.SetMaskbits(bits.get(), false);
    ASSERT_TRUE(assigned.IsMasked());
    EXPECT_EQ(assigned.GetScans()[1].scans[0].Len(), 4);

    // Freed by its owner: copying and assigning the regions that still hold the pointer stays safe.
    const Buffer* gone = bits.get();
    bits.reset();
    assigned.SetSwMask(nullptr, false);
    EXPECT_EQ(assigned.GetSwMask(), nullptr) << "SetSwMask(nullptr) clears the pointer";
    ROI again;
    again = constructed;
    ROI(&again, false);
    EXPECT_EQ(again.GetMaskbits(), gone);
    EXPECT_FALSE(again.IsMasked());
}

TEST(ROI, SetMonstMasksStoresByBankAndIgnoresASingleNull) {
    Buffer b0(nullptr, MONSTER_ALLOC_DEFAULT, BANK_0, 8, 8, ONE);
    Buffer b1(nullptr, MONSTER_ALLOC_DEFAULT, BANK_1, 8, 8, ONE);
    ROI roi(8, 8);
    roi.SetMonstMasks(&b1, &b0);  // argument order does not matter
    EXPECT_EQ(roi.GetMonstMask(BANK_0), &b0);
    EXPECT_EQ(roi.GetMonstMask(BANK_1), &b1);
    roi.SetMonstMasks(nullptr, &b0);
    EXPECT_EQ(roi.GetMonstMask(BANK_1), &b1) << "exactly one null changes nothing";
    AssertRecorder recorder;
    roi.SetMonstMasks(&b0, &b0);
    EXPECT_TRUE(recorder.Has("roi", 159, "buf0->Bank() != buf1->Bank()"));
    roi.SetMonstMasks(nullptr, nullptr);
    Buffer* m0 = &b0;
    Buffer* m1 = &b1;
    roi.GetMonstMasks(&m0, &m1);
    EXPECT_EQ(m0, nullptr);
    EXPECT_EQ(m1, nullptr);
}

TEST(ROI, BadMasksReportTheirAssertionAndStayInsideTheirMemory) {
    AssertRecorder recorder;
    Buffer words(9, 3, SIXTEEN);
    ROI wrongDepth(&words);
    EXPECT_TRUE(
        recorder.Has("roi", 108, "(newbits->BitsPerPixel() == ONE) || (newbits->BitsPerPixel() == EIGHT)"));
    ROI sw;
    Buffer grey(5, 5, EIGHT);
    sw.SetSwMask(&grey, false);
    EXPECT_TRUE(recorder.Has("roi", 137, "newbits->BitsPerPixel() == ONE"));
    sw.SetSwMask(nullptr, false);
    EXPECT_EQ(sw.GetSwMask(), nullptr);
    Buffer empty(0, 0, ONE);  // no pixels: the region is empty, nothing is read
    ROI fromEmpty(&empty);
    EXPECT_EQ(fromEmpty.Height(), 0);
    Buffer board(nullptr, MONSTER_ALLOC_DEFAULT, BANK_0, 16, 4, ONE);
    ROI onBoard(&board);
    EXPECT_EQ(onBoard.ScanRows(), 4);
    EXPECT_EQ(onBoard.GetScans()[2].SegCnt(), 0);
}

TEST(ROI, ExtentChangesDoNotTouchTheScansAndWalksNeverPassTheScanList) {
    auto mask = MaskFrom({"##", "##"});
    ROI roi(mask.get());
    roi.SetExtent(50, 40);
    EXPECT_EQ(roi.Width(), 50);
    EXPECT_EQ(roi.ScanRows(), 2);
    Buffer image(60, 60, EIGHT);
    EXPECT_EQ(Walk(&image, Point{0, 0}, &roi), (std::vector<std::string>{"0:0+2", "1:0+2"}));
    EXPECT_EQ(ClipRegionToBuffers(roi, {{&image, {0, 0}}}).bottom, 2);
}

TEST(RegionClip, KeepsOnlyTheRegionPartInsideEveryBufferAndClipsSpans) {
    Buffer a(100, 50, EIGHT), b(30, 30, EIGHT);
    EXPECT_EQ(ClipRegionToBuffers(40, 40, {{&a, {70, -5}}, {&b, {0, 0}}}), (Rect{0, 5, 30, 30}));
    EXPECT_TRUE(ClipRegionToBuffers(40, 40, {{&a, {100, 0}}}).IsEmpty());
    EXPECT_TRUE(ClipRegionToBuffers(40, 40, {{&a, {0, 0}}, {nullptr, {0, 0}}}).IsEmpty());
    EXPECT_TRUE(ClipRegionToBuffers(-4, 40, {{&a, {0, 0}}}).IsEmpty());
    EXPECT_TRUE(ClipRegionToBuffers(INT32_MAX, INT32_MAX, {{&a, {INT32_MIN, INT32_MIN}}}).IsEmpty());

    auto mask = MaskFrom({"#.####..##"});
    ROI roi(mask.get());
    std::vector<std::string> spans;
    ForEachSpan(roi, Rect{1, 0, 9, 1}, [&](int y, int x, int len) {
        spans.push_back(std::to_string(y) + ":" + std::to_string(x) + "+" + std::to_string(len));
    });
    EXPECT_EQ(spans, (std::vector<std::string>{"0:2+4", "0:8+1"}));
}

}  // namespace
}  // namespace ombrel
