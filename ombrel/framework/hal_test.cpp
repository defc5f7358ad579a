// SPDX-License-Identifier: MIT
#include "ombrel/framework/hal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::AssertRecorder;
using testing::TextRecorder;

TEST(HandleAssert, ReportsModuleLineAndLiteralTextToTheInstalledSink) {
    AssertRecorder recorder;
    int width = 3;
    // The text is reported exactly as written, whatever spacing the condition itself has.
    EXPECT_FALSE(OMBREL_ASSERT("arith", 313, width > 4 && width != 3, "width>4 && width != 3"));
    EXPECT_TRUE(OMBREL_ASSERT("arith", 314, width == 3, "width == 3"));
    ASSERT_EQ(recorder.Count(), 1u);
    EXPECT_EQ(recorder.Reports()[0].module, "arith");
    EXPECT_EQ(recorder.Reports()[0].line, 313);
    EXPECT_EQ(recorder.Reports()[0].expression, "width>4 && width != 3");
}

TEST(TextSinks, EveryPrintfFormsItsTextAndTheDebugWindowKeepsTheClass) {
    TextRecorder recorder;
    aprintf("\nNOTE: %d of %s", 3, "four");
    logPrintf("[%05.1f]", 2.5);
    debugPrintf("%c", 'x');
    DebugWndMsg(0x10004, "Image Too Complex -- Change Threshold");
    EXPECT_EQ(recorder.Text(), "\nNOTE: 3 of four[002.5]x");
    ASSERT_EQ(recorder.DebugWindow().size(), 1u);
    EXPECT_EQ(recorder.DebugWindow()[0].first, 0x10004u);
    EXPECT_EQ(recorder.DebugWindow()[0].second, "Image Too Complex -- Change Threshold");
}

TEST(FixDouble, RoundsHalvesAwayFromZeroAndTruncatesTowardZero) {
    EXPECT_EQ(iround(FixDouble(2.5, 16)), 3);
    EXPECT_EQ(iround(FixDouble(-2.5, 16)), -3);
    EXPECT_EQ(iround(FixDouble(2.49998, 16)), 2);
    EXPECT_EQ(iround(FixDouble(-0.4, 16)), 0);
    EXPECT_EQ(itrunc(FixDouble(2.9, 16)), 2);
    EXPECT_EQ(itrunc(FixDouble(-2.9, 16)), -2);
    EXPECT_EQ(itrunc(FixDouble(-3.0, 16)), -3);
    // The value is held at 16 fraction bits: anything finer is gone before rounding.
    EXPECT_EQ(iround(FixDouble(0.5 - 1.0 / 131072.0, 16)), 0);
    EXPECT_EQ(FixDouble(1.75, 16).Raw(), 114688);
}

TEST(FixDouble, ExtremeAndNonFiniteValuesSaturateInsteadOfOverflowing) {
    EXPECT_EQ(iround(FixDouble(1e300, 16)), std::numeric_limits<int32_t>::max());
    EXPECT_EQ(iround(FixDouble(-1e300, 16)), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(itrunc(FixDouble(-1e300, 16)), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(iround(FixDouble(std::nan(""), 16)), 0);
    EXPECT_EQ(iround(FixDouble(INFINITY, 16)), std::numeric_limits<int32_t>::max());
    EXPECT_EQ(iround(FixDouble(3e9, 16)), std::numeric_limits<int32_t>::max());
}

TEST(HalGetClock, BothFormsReadOneMonotonicPositiveClock) {
    INT_TIME_UNIT first;
    HalGetClock(&first);
    double seconds = 0;
    HalGetClock(&seconds);
    INT_TIME_UNIT last;
    HalGetClock(&last);
    const double a = first.seconds + first.microseconds * 1e-6;
    const double b = last.seconds + last.microseconds * 1e-6;
    EXPECT_GT(a, 0.0);
    EXPECT_LE(a, seconds + 1e-6);
    EXPECT_LE(seconds, b + 1e-6);
    EXPECT_GE(first.microseconds, 0);
    EXPECT_LT(first.microseconds, 1000000);
}

TEST(RCSStringToNumber, TurnsRevisionTextIntoAVersionNumber) {
    EXPECT_EQ(RCSStringToNumber("$Revision: 1.4 $"), 100400000);
    EXPECT_EQ(RCSStringToNumber("$Revision: 2.13 $"), 201300000);
    EXPECT_EQ(RCSStringToNumber("$Revision: 1.4.2 $"), 100400200);
    EXPECT_EQ(RCSStringToNumber("$Revision$"), 0);
    EXPECT_EQ(RCSStringToNumber(nullptr), 0);
    EXPECT_EQ(RCSStringToNumber("$Revision: 1.99999999999999999999 $"), 0);
}

TEST(MemAvail, ReportsSomeMemoryOnLinux) {
    EXPECT_GT(memAvail(), 0u);
}

}  // namespace
}  // namespace ombrel
