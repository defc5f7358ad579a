// SPDX-License-Identifier: MIT
// Library-wide contracts that cut across modules: the exact words every assertion reports, and how every
// factory treats a buffer it needs but was not given.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ombrel/blob/blob.h"
#include "ombrel/framework/event_logger.h"
#include "ombrel/framework/roi.h"
#include "ombrel/pixelops/arith.h"
#include "ombrel/pixelops/histogram.h"
#include "ombrel/pixelops/mask.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::AssertRecorder;
using testing::TextRecorder;

// A line of 0 means none is prescribed: the report then carries a real source line.
struct Expected {
    const char* module;
    int line;
    const char* text;
    std::function<void()> trigger;
};

constexpr const char* kSignClipText =
    "!(mOpCode == _ARITH_NOT || mOpCode == _ARITH_NEGATE || mOpCode == _ARITH_BINARIZE || mOpCode == "
    "_ARITH_MASKSHIFT || mOpCode == _ARITH_PASSRANGE || mOpCode == _ARITH_AND || mOpCode == _ARITH_OR || "
    "mOpCode == _ARITH_XOR || mOpCode == _ARITH_MIN || mOpCode == _ARITH_MAX)";

// Each trigger reaches its assertion through the public interface only, as a caller would.
std::vector<Expected> EveryReportableAssertion() {
    static Buffer grey(16, 8, EIGHT), grey2(16, 8, EIGHT), words(16, 8, SIXTEEN);
    static Buffer noPixels(0, 0, EIGHT);
    static Buffer bank0(nullptr, MONSTER_ALLOC_DEFAULT, BANK_0, 8, 8, ONE);
    static std::vector<int> bins;
    auto arith = [](ArithOp op) { return std::make_unique<swArithAgent>(&grey, &grey2, op, 1.0, 0, &grey2); };
    auto histo = [](Buffer* src, Rect r, HistRes res, std::vector<int>* out) {
        swHistogramAgent(src, r, res, out).Go();
    };
    auto blob = [](int stepX, int stepY, bool withResult) {
        BlobResult result;
        swBlobAgent agent(&grey, Rect{0, 0, 4, 4}, withResult ? &result : nullptr, 0, 255);
        agent.SetStep(stepX, stepY);
        agent.Go();
    };
    return {
        {"roi", 108, "(newbits->BitsPerPixel() == ONE) || (newbits->BitsPerPixel() == EIGHT)",
         [] { ROI r(&words); }},
        {"roi", 111, "_maskbits->BaseAddr() != 0", [] { ROI r(&noPixels); }},
        {"roi", 137, "newbits->BitsPerPixel() == ONE", [] { ROI().SetSwMask(&grey, false); }},
        {"roi", 159, "buf0->Bank() != buf1->Bank()", [] { ROI(8, 8).SetMonstMasks(&bank0, &bank0); }},

        {"arith", 224, "srcA != NULL", [] { swArithAgent(nullptr, nullptr, _ARITH_COPY, 1.0, 0, &grey); }},
        {"arith", 226, "dest != NULL", [] { swArithAgent(&grey, nullptr, _ARITH_COPY, 1.0, 0, nullptr); }},
        {"arith", 227, "srcA->BitsPerPixel() == dest->BitsPerPixel()",
         [] { swArithAgent(&grey, nullptr, _ARITH_COPY, 1.0, 0, &words); }},
        {"arith", 229, "srcB != NULL", [] { swArithAgent(&grey, nullptr, _ARITH_ADD, 1.0, 0, &grey2); }},
        {"arith", 230, "srcA->BitsPerPixel() == srcB->BitsPerPixel()",
         [] { swArithAgent(&grey, &words, _ARITH_ADD, 1.0, 0, &grey2); }},
        {"arith", 313, "DBLT_N_256 <= mGain && mGain <= DBLT_255",
         [=] { arith(_ARITH_COPY)->SetNorm(-257, 0); }},
        {"arith", 314, "-(256*255+256) <= mOffset && mOffset <= (256*256+255)",
         [=] { arith(_ARITH_COPY)->SetNorm(1, 65792); }},
        {"arith", 387, kSignClipText,
         [=] {
             TextRecorder note;
             arith(_ARITH_AND)->SetSignClip(_ARITH_SIGNED, _ARITH_SIGNED, _ARITH_SIGNED, true, true);
         }},
        {"arith", 268, "abs(shift) <= 7",
         [=] { arith(_ARITH_MASKSHIFT)->SetMaskShift(_ARITH_MASK_AND, 1, -8); }},
        {"arith", 280, "(x & 3) == 0", [=] { arith(_ARITH_ADD)->SetCornerB(2, 0); }},
        {"arith", 282, "x + _sRoi.Width() <= mSrcB->Width() && y + _sRoi.Height() <= mSrcB->Height()",
         [=] { arith(_ARITH_ADD)->SetCornerB(4, 0); }},
        {"arith", 0, "(cornerB.x & 3) == 0",
         [=] {
             arith(_ARITH_ADD)->SetCornerB(Point{2, 0});
         }},
        {"arith", 0,
         "cornerB.x + _sRoi.Width() <= mSrcB->Width() && cornerB.y + _sRoi.Height() <= mSrcB->Height()",
         [=] {
             arith(_ARITH_ADD)->SetCornerB(Point{0, 1});
         }},
        {"arith", 0, "srcB->Type() == _srcBuf->Type()", [=] { arith(_ARITH_ADD)->SetSrcB(&bank0); }},
        {"arith", 0, "mSrcB != NULL",
         [] {
             std::unique_ptr<swArithAgent> agent;
             {
                 AssertRecorder setup;  // the constructor's own report is not the one under test
                 agent = std::make_unique<swArithAgent>(&grey, nullptr, _ARITH_SUB, 1.0, 0, &grey2);
             }
             agent->Go();
         }},
        {"lfarith", 34, "srcA && dest", [] { ArithFact(&grey, nullptr, _ARITH_COPY, 1.0f, 0, nullptr); }},

        {"lfhisto", 0, "aBuf && aHistogram", [] { delete HistogramFact(&grey, HISTRES_256, nullptr); }},
        {"histo", 101, "_srcBuf",
         [=] {
             histo(nullptr, Rect{0, 0, 4, 4}, HISTRES_256, &bins);
         }},
        {"histo", 102, "_sPt.x >= 0 && _sPt.x < _srcBuf->Width()",
         [=] {
             histo(&grey, Rect{-1, 0, 4, 4}, HISTRES_256, &bins);
         }},
        {"histo", 103, "_sPt.y >= 0 && _sPt.y < _srcBuf->Height()",
         [=] {
             histo(&grey, Rect{0, 8, 4, 9}, HISTRES_256, &bins);
         }},
        {"histo", 104, "_sRoi.Width()",
         [=] {
             histo(&grey, Rect{1, 1, 1, 4}, HISTRES_256, &bins);
         }},
        {"histo", 105, "_sRoi.Height()",
         [=] {
             histo(&grey, Rect{1, 1, 4, 1}, HISTRES_256, &bins);
         }},
        {"histo", 106, "_sPt.x + _sRoi.Width() <= _srcBuf->Width()",
         [=] {
             histo(&grey, Rect{8, 0, 17, 4}, HISTRES_256, &bins);
         }},
        {"histo", 107, "_sPt.y + _sRoi.Height() <= _srcBuf->Height()",
         [=] {
             histo(&grey, Rect{0, 4, 4, 9}, HISTRES_256, &bins);
         }},
        {"histo", 108, "_resolution",
         [=] {
             histo(&grey, Rect{0, 0, 4, 4}, HistRes(0), &bins);
         }},
        {"histo", 109, "_results",
         [=] {
             histo(&grey, Rect{0, 0, 4, 4}, HISTRES_256, nullptr);
         }},

        {"lfblob", 0,
         "(src != NULL) && (res != NULL) && (highThr >= lowThr) && (lowThr >= 0) && (highThr <= 255)",
         [] {
             BlobResult result;
             delete BlobFact(&grey, &result, 200, 100);
         }},
        {"swblob", 0, "_sRoi.Width() > _StepX", [=] { blob(4, 1, true); }},
        {"swblob", 0, "_pres", [=] { blob(1, 1, false); }},
        {"swblob", 0, "(_StepX > 0) && (_StepY > 0)", [=] { blob(1, 0, true); }},
        {"blob", 0, "_res", [] { Blob().GetFeat(1); }},
        {"blob", 0, "featno > 0 && featno < NUMFEAT", [] { Blob().GetFeat(0); }},

        // Front and Back of an empty log: the library's own wording, where no text is prescribed.
        {"eventlogger", 0, "!_log.empty()",
         [] {
             GetEventLogger().ClearEvents();
             GetEventLogger().Front();
         }},
    };
}

// Every text is compared whole with the system's wording, so a re-spaced or re-worded text fails here.
TEST(AssertionTexts, EveryReportIsTheSystemsOwnWordsAtItsModuleAndLine) {
    for (const Expected& e : EveryReportableAssertion()) {
        AssertRecorder recorder;
        e.trigger();
        const std::vector<testing::AssertReport> reports = recorder.Reports();
        ASSERT_FALSE(reports.empty()) << "nothing reported for " << e.module << " \"" << e.text << "\"";
        bool found = false;
        for (const testing::AssertReport& r : reports)
            found = found ||
                    (r.module == e.module && r.expression == e.text && (e.line == 0 || r.line == e.line));
        EXPECT_TRUE(found) << e.module << " " << e.line << " \"" << e.text
                           << "\"; first report: " << reports[0].module << " " << reports[0].line << " \""
                           << reports[0].expression << "\"";
        for (const testing::AssertReport& r : reports) EXPECT_GT(r.line, 0) << r.expression;
    }
}

// ---- Factories given null buffers ----------------------------------------------------------------------

// A buffer a factory needs and was not given is no host buffer: the factory reports what it checks and
// returns null rather than an agent that could only fail. Source B of ArithFact is optional.
TEST(Factories, NullRequiredBuffersGiveNoAgentAndAnOptionalSourceBMayBeNull) {
    AssertRecorder asserts;
    Buffer a(8, 8, EIGHT), b(8, 8, EIGHT), d(8, 8, EIGHT);
    const ROI roi(8, 8);
    std::vector<int> bins;

    EXPECT_EQ(ArithFact(nullptr, &b, _ARITH_ADD, 1.0f, 0, &d), nullptr);
    EXPECT_EQ(ArithFact(&a, Rect{0, 0, 8, 8}, &b, _ARITH_ADD, 1.0f, 0, nullptr), nullptr);
    EXPECT_EQ(ArithFact(&a, Point{0, 0}, roi, nullptr, _ARITH_COPY, 1.0f, 0, nullptr), nullptr);
    EXPECT_EQ(ArithFact(nullptr, 0, 0, 8, 8, nullptr, _ARITH_NOT, 1.0f, 0, nullptr), nullptr);
    EXPECT_EQ(asserts.Count(), 4u) << "each call still reports \"srcA && dest\"";
    std::unique_ptr<ArithAgent> unary(ArithFact(&a, nullptr, _ARITH_NOT, 1.0f, 0, &d));
    ASSERT_NE(unary, nullptr) << "source B is optional";
    EXPECT_EQ(unary->Go(), 0);

    EXPECT_EQ(MaskFact(nullptr, &d, Point{0, 0}, roi, MASK_COPY), nullptr);
    EXPECT_EQ(MaskFact(&a, nullptr, Point{0, 0}, roi, 1, 9, MASK_BAND), nullptr);
    EXPECT_EQ(MaskFact(nullptr, nullptr, 0, 0, nullptr, 1, 9), nullptr);
    std::unique_ptr<MaskAgent> mask(MaskFact(&a, &d, Point{0, 0}, roi, MASK_COPY));
    EXPECT_NE(mask, nullptr);

    asserts.Clear();
    EXPECT_EQ(HistogramFact(nullptr, HISTRES_256, &bins), nullptr);
    EXPECT_EQ(HistogramFact(nullptr, HISTRES_256, Rect{0, 0, 4, 4}, &bins), nullptr);
    EXPECT_EQ(HistogramFact(nullptr, HISTRES_256, Point{0, 0}, roi, &bins), nullptr);
    EXPECT_EQ(HistogramFact(nullptr, HISTRES_256, 0, 0, 4, 4, nullptr), nullptr);
    EXPECT_EQ(asserts.Count(), 4u);
    EXPECT_EQ(asserts.Reports()[0].module, "lfhisto");
    EXPECT_EQ(asserts.Reports()[0].expression, "aBuf && aHistogram");

    BlobResult result;
    EXPECT_EQ(BlobFact(nullptr, Rect{0, 0, 4, 4}, &result, 0, 10), nullptr);
}

}  // namespace
}  // namespace ombrel
