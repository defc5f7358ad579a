// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "ombrel/framework/object_stream.h"
#include "ombrel/morph/graymorph.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::AssertRecorder;

std::vector<unsigned char> WeightsOf(const GrayMorphElem& e) {
    return std::vector<unsigned char>(e.Weights(), e.Weights() + e.GetElementWidth() * e.GetElementHeight());
}

std::vector<unsigned> TilesOf(const GrayMorphElem& e) {
    std::vector<unsigned> tiles;
    for (int i = 0; i < e.GetMaskSize(); ++i) tiles.push_back(e.GetMaskByIndex(i));
    return tiles;
}

TEST(GrayMorphElemStream, ElementsComeBackWithHotSpotWeightsAndTiles) {
    // 5 x 4: two columns of tiles, the right one two cells wide; two rows, the lower one a single cell tall.
    GrayMorphElem odd(3, 2, 5, 4, "01101, 11111, 10001, 00100");
    odd.SetElementWeight(1, 0, 17);  // weights are kept as given, not only 0 and 255
    GrayMorphElem square;
    GrayMorphElem none(nullptr, 2, 2, 0, 0);
    ASSERT_FALSE(none.HasWeights());

    os_bstream w;
    w.WriteValue(odd);
    w.WritePointer(&square);
    w.WriteValue(none);
    os_bstream r(w.Bytes().data(), w.Bytes().size());
    GrayMorphElem odd2, none2(0, 0, 2, 2, "1111");
    GrayMorphElem* square2 = nullptr;
    none2.SetElementsUpdated(false);
    odd2.SetElementsUpdated(false);
    ASSERT_TRUE(r.ReadValue(odd2) && r.ReadPointer(square2) && r.ReadValue(none2)) << r.Error();

    EXPECT_EQ(odd2.GetElementHotX(), 3);
    EXPECT_EQ(odd2.GetElementHotY(), 2);
    EXPECT_EQ(odd2.GetElementWidth(), 5);
    EXPECT_EQ(odd2.GetElementHeight(), 4);
    EXPECT_EQ(WeightsOf(odd2), WeightsOf(odd));
    EXPECT_EQ(odd2.GetElementWeight(1, 0), 17);
    // Tiles by hand, bit (y % 3) * 3 + 2 - x % 3 of each tile: upper left "011/111/100" -> bits 1,0,5,4,3,8;
    // upper right "01/11/01" -> 1,5,4,7; lower left "001" -> 0; lower right "00" -> none.
    EXPECT_EQ(TilesOf(odd2), (std::vector<unsigned>{0x13B, 0xB2, 0x001, 0x000}));
    EXPECT_EQ(TilesOf(odd2), TilesOf(odd));
    EXPECT_TRUE(odd2.ElementsUpdated());

    ASSERT_NE(square2, nullptr);
    EXPECT_EQ(square2->GetElementWidth(), 3);
    EXPECT_EQ(square2->GetElementHotX(), 1);
    EXPECT_EQ(square2->GetMaskByIndex(0), 0x1FFu);

    EXPECT_FALSE(none2.HasWeights());
    EXPECT_EQ(none2.GetElementWidth(), 0);
    EXPECT_EQ(none2.GetMaskSize(), 0);
}

TEST(GrayMorphElemStream, AnUnknownVersionAssertsAndLeavesTheElementUnread) {
    GrayMorphElem stored(0, 0, 2, 1, "11");
    os_bstream w;
    w.WriteValue(stored);
    w.WriteBool(true);
    std::vector<uint8_t> bytes = w.Bytes();
    const size_t versionAt = 8 + 4 + bytes[8];
    bytes[versionAt] ^= 1;
    os_bstream r(bytes.data(), bytes.size());
    AssertRecorder asserts;
    GrayMorphElem target(0, 1, 1, 2, "10");
    bool next = false;
    EXPECT_TRUE(r.ReadValue(target) && r.ReadBool(next));
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Reports()[0].module, "lsgraymorph");
    EXPECT_EQ(asserts.Reports()[0].expression, "0");
    EXPECT_EQ(target.GetElementWidth(), 1);
    EXPECT_EQ(target.GetElementHotY(), 1);
    EXPECT_EQ(WeightsOf(target), (std::vector<unsigned char>{255, 0}));
    EXPECT_TRUE(next);
}

TEST(GrayMorphElemStream, TruncatedCorruptedAndImpossibleElementsAreRejected) {
    GrayMorphElem stored(2, 1, 4, 3, "1001 0110 1111");
    os_bstream w;
    w.WriteValue(stored);
    const std::vector<uint8_t>& full = w.Bytes();
    for (size_t n = 0; n < full.size(); ++n) {
        os_bstream r(full.data(), n);
        GrayMorphElem target;
        EXPECT_FALSE(r.ReadValue(target)) << n;
        EXPECT_EQ(target.GetElementWidth(), 3) << n;  // a failed read leaves the element as it was
        EXPECT_EQ(TilesOf(target), std::vector<unsigned>{0x1FF}) << n;
    }
    // The body: name "(GrayMorphElem*)" (16) after the 4-byte length; then version and body length.
    const size_t body = 8 + 4 + 16 + 4 + 4;
    auto patchInt = [&](size_t field, int32_t v) {
        std::vector<uint8_t> bytes = full;
        for (int i = 0; i < 4; ++i) bytes[body + 4 * field + i] = static_cast<uint8_t>(v >> (8 * i));
        return bytes;
    };
    const std::vector<std::vector<uint8_t>> impossible = {
        patchInt(0, 4),        // hot spot x outside the element
        patchInt(1, -1),       // hot spot y outside
        patchInt(2, 5),        // width that does not match the weights
        patchInt(3, 1 << 20),  // height beyond the limit
        patchInt(2, 0),        // one side zero
        patchInt(4, 11),       // chunk one short
    };
    for (const auto& bytes : impossible) {
        os_bstream r(bytes.data(), bytes.size());
        GrayMorphElem target;
        EXPECT_FALSE(r.ReadValue(target));
        EXPECT_EQ(WeightsOf(target), std::vector<unsigned char>(9, 255));
    }
    std::mt19937 rng(7);
    for (int round = 0; round < 2000; ++round) {
        std::vector<uint8_t> bytes = full;
        bytes[8 + rng() % (bytes.size() - 8)] ^= static_cast<uint8_t>(1 + rng() % 255);
        os_bstream r(bytes.data(), bytes.size());
        AssertRecorder quiet;
        GrayMorphElem target;
        if (r.ReadValue(target)) {  // a changed weight or hot spot inside the element is still an element
            ASSERT_GE(target.GetElementHotX(), 0);
            ASSERT_LT(target.GetElementHotX(), std::max(target.GetElementWidth(), 1));
            ASSERT_EQ(static_cast<int>(WeightsOf(target).size()),
                      target.GetElementWidth() * target.GetElementHeight());
        }
    }
}

}  // namespace
}  // namespace ombrel
