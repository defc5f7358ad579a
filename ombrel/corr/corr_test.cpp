// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#ifdef OMBREL_TEST_WITH_OPENCV
#include <opencv2/imgproc.hpp>
#endif

#include "ombrel/corr/corr.h"
#include "ombrel/corr/corr_kernels.h"
#include "ombrel/framework/kernel_family.h"
#include "testing/images.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::AssertRecorder;
using testing::TextRecorder;

// Texture: a few waves plus noise, so that windows differ and none is flat.
std::unique_ptr<Buffer> Textured(int w, int h, uint32_t seed) {
    auto b = std::make_unique<Buffer>(w, h, EIGHT);
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> noise(-20, 20);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double v = 128 + 50 * std::sin(x * 0.31 + y * 0.07) + 40 * std::cos(y * 0.23 - x * 0.11);
            b->Row(y)[x] = static_cast<uint8_t>(std::clamp<int>(static_cast<int>(v) + noise(rng), 0, 255));
        }
    return b;
}

void Paste(Buffer& dst, const Buffer& src, int x0, int y0, bool invert = false) {
    for (int y = 0; y < src.Height(); ++y)
        for (int x = 0; x < src.Width(); ++x)
            dst.Row(y0 + y)[x0 + x] = invert ? 255 - src.Row(y)[x] : src.Row(y)[x];
}

// The three sums of a position from exact integers, and the score in double straight from its definition.
struct Exact {
    int64_t sI = 0, sI2 = 0, sTI = 0;
};
Exact ExactSums(const CorrTemplate& t, const Buffer& img, int ix, int iy, bool imgSigned) {
    Exact e;
    const Buffer& b = *t.GetBuffer();
    for (int y = 0; y < b.Height(); ++y)
        for (int x = 0; x < b.Width(); ++x) {
            const int64_t tv =
                t.GetSigned() ? int64_t{static_cast<int8_t>(b.Row(y)[x])} : int64_t{b.Row(y)[x]};
            if (t.GetMask() && tv == 0) continue;
            const uint8_t ib = img.Row(iy + y)[ix + x];
            const int64_t iv = imgSigned ? int64_t{static_cast<int8_t>(ib)} : int64_t{ib};
            e.sI += iv, e.sI2 += iv * iv, e.sTI += tv * iv;
        }
    return e;
}
double Correlation(const CorrTemplate& t, const Exact& e) {
    const double n = t.GetCount();
    const double num = n * double(e.sTI) - t.GetSum() * double(e.sI);
    const double den = (n * double(e.sI2) - double(e.sI) * double(e.sI)) * t.GetVariance();
    return den > 0 ? num / std::sqrt(den) : 0.0;
}

TEST(CorrTemplate, StatisticsFollowRegionMaskAndSignedFlag) {
    Buffer src(3, 2, EIGHT);
    const uint8_t px[6] = {0, 1, 2, 255, 4, 0};
    for (int k = 0; k < 6; ++k) src.Row(k / 3)[k % 3] = px[k];
    CorrTemplate t(&src, 0);
    ASSERT_EQ(t.GetError(), 0);
    EXPECT_EQ(t.GetCount(), 6);
    EXPECT_EQ(t.GetSum(), 262);
    EXPECT_EQ(t.GetSumSq(), 1 + 4 + 65025 + 16);
    EXPECT_EQ(t.GetVariance(), 6.0 * 65046 - 262.0 * 262);
    t.Recompute(1);  // 0xFF reads -1
    EXPECT_EQ(t.GetSum(), 6);
    EXPECT_EQ(t.GetSumSq(), 22);
    CorrTemplate masked(&src, 1);  // zeros count nowhere
    EXPECT_EQ(masked.GetCount(), 4);
    EXPECT_EQ(masked.GetSum(), 262);
    EXPECT_EQ(masked.GetHotSpot(), (Point{0, 0}));
}

TEST(CorrTemplate, RectangleAtTheEdgeCopiesOneColumnAndRowLess) {
    auto src = testing::RandomImage(10, 8, 3);
    ROI roi(4, 3);
    CorrTemplate t(src.get(), Point{6, 5}, &roi, 0);
    ASSERT_EQ(t.GetError(), 0);
    EXPECT_EQ(t.GetBuffer()->Width(), 4);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x) {
            const bool copied = x < 3 && y < 2;  // right 10 -> 9, bottom 8 -> 7
            EXPECT_EQ(t.GetBuffer()->Row(y)[x], copied ? src->Row(5 + y)[6 + x] : 0) << x << "," << y;
        }
    ROI inner(2, 2);
    CorrTemplate u(src.get(), Point{1, 1}, &inner, 0);
    EXPECT_EQ(u.GetBuffer()->Row(1)[1], src->Row(2)[2]);

    CorrTemplate none(nullptr, 0), noRoi(src.get(), Point{0, 0}, nullptr, 0);
    EXPECT_NE(none.GetError(), 0);
    EXPECT_NE(noRoi.GetError(), 0);
}

TEST(CorrTemplate, CopiesOwnTheirBufferAndAssignmentKeepsItsState) {
    auto src = testing::RandomImage(5, 4, 9);
    CorrTemplate a(src.get(), 0);
    a.SetHotSpot(Point{2, 1});
    a.Recompute(1);
    CorrTemplate b(a);
    EXPECT_NE(b.GetBuffer(), a.GetBuffer());
    EXPECT_EQ(testing::Pixels(*b.GetBuffer()), testing::Pixels(*a.GetBuffer()));
    EXPECT_EQ(b.GetHotSpot(), (Point{2, 1}));
    EXPECT_EQ(b.GetSigned(), 1);
    EXPECT_EQ(b.GetSum(), a.GetSum());
    auto other = testing::FilledImage(2, 2, 7);
    CorrTemplate c(other.get(), 1);
    c = a;
    EXPECT_EQ(c.GetBuffer()->Width(), 5);
    EXPECT_EQ(c.GetMask(), 0);
    EXPECT_EQ(c.GetCount(), 20);
    c = c;
    EXPECT_EQ(c.GetError(), 0);
}

TEST(CorrPoint, AssignmentSkipsTheFirstFurtherInteger) {
    CorrPoint a, b;
    a._user0 = 7, a._user1 = 8, a._user2 = 9, a._score = 0.5, a._pos = Point{3, 4};
    b._user0 = 1;
    b = a;
    EXPECT_EQ(b._user0, 1);
    EXPECT_EQ(b._user1, 8);
    EXPECT_EQ(b._user2, 9);
    EXPECT_EQ(b._score, 0.5);
    EXPECT_EQ(b._pos, (Point{3, 4}));
    EXPECT_EQ(CorrPoint()._user1, 0);
    EXPECT_EQ(CorrPoint()._positionOnly, 0);
}

TEST(CorrScore, EqualAndInvertedPatchesScoreOneFlatOnesZero) {
    auto pattern = Textured(12, 9, 5);
    auto img = Textured(60, 40, 6);
    Paste(*img, *pattern, 10, 7);
    Paste(*img, *pattern, 30, 20, true);
    CorrTemplate t(pattern.get(), 0);
    int pitch = img->Pitch();
    CorrPoint p;
    t.FastComputeSums(img->Row(7) + 10, &pitch, 0, &p);
    EXPECT_NEAR(p._score, 1.0, 1e-12);
    t.FastComputeSums(img->Row(20) + 30, &pitch, 0, &p);
    EXPECT_NEAR(p._score, 1.0, 1e-12);  // |r|
    p._positionOnly = 1;
    t.FastComputeSums(img->Row(20) + 30, &pitch, 0, &p);
    EXPECT_NEAR(p._score, 1.0, 1e-12);  // r^2

    auto flat = testing::FilledImage(12, 9, 77);
    CorrTemplate f(flat.get(), 0);
    f.FastComputeSums(img->Row(0), &pitch, 0, &p);
    EXPECT_EQ(p._score, 0.0);
    auto flatImg = testing::FilledImage(20, 20, 200);
    int fp = flatImg->Pitch();
    p._positionOnly = 0;
    t.FastComputeSums(flatImg->Row(0), &fp, 0, &p);
    EXPECT_EQ(p._score, 0.0);
    EXPECT_EQ(CorrScore(0, 0, 0, 0, 0, 0, 0), 0.0);  // no pixel counted: 0, not NaN
}

TEST(CorrScore, MaskedZeroTemplatePixelsIgnoreTheImageUnderThem) {
    auto pattern = Textured(8, 8, 1);
    for (int y = 0; y < 8; ++y) pattern->Row(y)[y] = 0;
    CorrTemplate t(pattern.get(), 1);
    auto a = Textured(8, 8, 2);
    auto b = std::make_unique<Buffer>(*a);
    for (int y = 0; y < 8; ++y) b->Row(y)[y] = static_cast<uint8_t>(y * 31 + 1);
    int pa = a->Pitch(), pb = b->Pitch();
    CorrPoint x, y;
    t.FastComputeSums(a->BaseAddr(), &pa, 0, &x);
    t.FastComputeSums(b->BaseAddr(), &pb, 0, &y);
    EXPECT_EQ(x._sumI, y._sumI);
    EXPECT_EQ(x._sumI2, y._sumI2);
    EXPECT_EQ(x._score, y._score);
}

// Every score of a match equals the definition's from exact integer sums, the sums exactly.
void ExpectExact(const CorrResult& r, const CorrTemplate& t, const Buffer& img, bool imgSigned,
                 bool squared) {
    const Point hot = t.GetHotSpot();
    for (int k = 0; k < r.Count(); ++k) {
        const CorrPoint& p = r.At(k);
        const Exact e = ExactSums(t, img, p._pos.x - hot.x, p._pos.y - hot.y, imgSigned);
        ASSERT_EQ(p._sumI, double(e.sI));
        ASSERT_EQ(p._sumI2, double(e.sI2));
        ASSERT_EQ(p._sumTI, double(e.sTI));
        const double c = Correlation(t, e);
        ASSERT_NEAR(p._score, squared ? c * c : std::fabs(c), 1e-12) << k;
    }
}

class CorrMatchIsa : public testing::IsaLevelTest {};

// The fast paths (column sums, vector cross sums) against FastComputeSums, bit for bit, over random
// templates, signed flags, steps, hot spots and awkward widths.
TEST_P(CorrMatchIsa, EveryPositionEqualsThePlainLoopBitForBit) {
    std::mt19937 rng(11);
    for (int trial = 0; trial < 24; ++trial) {
        const int tw = std::vector<int>{1, 7, 15, 16, 17, 31, 32, 33, 63, 64, 65, 3}[trial % 12];
        const int th = 1 + rng() % 9;
        auto tplImg = testing::RandomImage(tw, th, rng());
        auto img = testing::RandomImage(tw + 20 + rng() % 50, th + 5 + rng() % 20, rng());
        CorrTemplate t(tplImg.get(), 0);
        t.SetHotSpot(Point{static_cast<int>(rng() % 5), static_cast<int>(rng() % 5)});
        const int imgSigned = rng() % 2, tplSigned = rng() % 2;
        const int xs = 1 + rng() % 3, ys = 1 + rng() % 3;
        CorrResult r;
        swCorrMatchAgent agent(img.get(), Rect{1, 1, img->Width() - 1, img->Height() - 1}, &t, &r, imgSigned,
                               tplSigned, xs, ys);
        ASSERT_EQ(agent.GetError(), 0);
        ASSERT_EQ(agent.Go(), 0);
        ASSERT_GT(r.Count(), 0);
        EXPECT_EQ(t.GetSigned(), tplSigned);
        int pitch = img->Pitch();
        const Point hot = t.GetHotSpot();
        for (int k = 0; k < r.Count(); ++k) {
            const CorrPoint& p = r.At(k);
            CorrPoint q;
            t.FastComputeSums(img->Row(p._pos.y - hot.y) + (p._pos.x - hot.x), &pitch, imgSigned, &q);
            ASSERT_EQ(p._sumI, q._sumI) << trial << " " << k;
            ASSERT_EQ(p._sumI2, q._sumI2);
            ASSERT_EQ(p._sumTI, q._sumTI);
            ASSERT_EQ(p._score, q._score);
        }
        ExpectExact(r, t, *img, imgSigned, false);
        testing::ExpectPaddingIs(*img);
    }
}

TEST_P(CorrMatchIsa, EachVectorLevelHandlesTheWholeVectorsOfASpan) {
    if (!corr::kDotKernels.HasOwnKernel(Level())) GTEST_SKIP() << "no kernel of its own at this level";
    auto a = testing::RandomImage(200, 3, 4), b = testing::RandomImage(200, 3, 5);
    for (int signs = 0; signs < 4; ++signs) {
        corr::DotJob job, ref;
        job.t = ref.t = a->Row(0);
        job.img = ref.img = b->Row(0);
        job.tPitch = ref.tPitch = a->Pitch();
        job.imgPitch = ref.imgPitch = b->Pitch();
        job.rows = ref.rows = 3;
        job.tSigned = ref.tSigned = signs & 1;
        job.imgSigned = ref.imgSigned = signs >> 1;
        const int handled = corr::kDotKernels.At(Level())(0, 200, job);
        EXPECT_GT(handled, 200 - 32);
        EXPECT_LE(handled, 200);
        corr::kDotKernels.Scalar()(0, handled, ref);
        EXPECT_EQ(job.sum, ref.sum) << signs;
    }
    // Extreme bytes everywhere: a saturating 16-bit path or an unfolded 32-bit lane would show here.
    std::vector<uint8_t> hi(70000, 255), lo(70000, 0x80);
    for (const auto* img : {&hi, &lo}) {
        corr::DotJob job, ref;
        job.t = ref.t = hi.data();
        job.img = ref.img = img->data();
        job.imgSigned = ref.imgSigned = img == &lo;
        job.rows = ref.rows = 4;  // the same row four times: past 2^31 in a 32-bit lane unless folded
        corr::kDotKernels.Run(Level(), 0, 70000, job);
        corr::kDotKernels.Scalar()(0, 70000, ref);
        EXPECT_EQ(job.sum, ref.sum);
    }
}

// The cross-row kernels against the reference over several output rows, row steps, signed images,
// awkward widths, template bytes at both ends, and a template too large for 32-bit lanes in one pass.
TEST_P(CorrMatchIsa, CrossRowKernelsEqualTheReference) {
    std::mt19937 rng(5);
    struct Shape {
        int tw, th, outRows, rowStep;
    };
    const std::vector<Shape> shapes = {{1, 1, 1, 1},  {3, 2, 5, 1},  {16, 16, 4, 1}, {17, 5, 3, 2},
                                       {33, 9, 6, 3}, {64, 7, 2, 1}, {65, 3, 4, 9},  {300, 230, 2, 1}};
    for (const Shape& sh : shapes) {
        for (int variant = 0; variant < 3; ++variant) {
            const int stride = (sh.tw + 15) / 16 * 16, span = 1 + rng() % 150;
            const int imgW = span - 1 + sh.tw + static_cast<int>(rng() % 3);
            const int imgH = (sh.outRows - 1) * sh.rowStep + sh.th;
            std::vector<int8_t> t(static_cast<size_t>(stride) * sh.th, 0);
            std::vector<uint8_t> img(static_cast<size_t>(imgW) * imgH);
            int64_t tSum = 0;
            for (int r = 0; r < sh.th; ++r)
                for (int k = 0; k < sh.tw; ++k) {
                    // Variant 2: the largest products (-128 against 255), past 2^31 for the big template.
                    const int8_t v = variant == 2 ? int8_t{-128} : static_cast<int8_t>(rng());
                    t[static_cast<size_t>(r) * stride + k] = v;
                    tSum += v;
                }
            for (auto& b : img) b = variant == 2 ? 255 : static_cast<uint8_t>(rng());
            corr::CrossRowJob job;
            job.t = t.data();
            job.tw = sh.tw;
            job.th = sh.th;
            job.tStride = stride;
            job.tSum = tSum;
            job.img = img.data();
            job.imgPitch = imgW;
            job.readable = imgW;
            job.imgSigned = variant == 1;
            job.outRows = sh.outRows;
            job.rowStep = sh.rowStep;
            job.outStride = span + 3;
            std::vector<int64_t> out(static_cast<size_t>(job.outStride) * sh.outRows, -7), ref(out);
            job.out = ref.data();
            corr::kCrossRowKernels.Scalar()(0, span, job);
            job.out = out.data();
            EXPECT_EQ(corr::kCrossRowKernels.Run(Level(), 0, span, job), span);
            ASSERT_EQ(out, ref) << sh.tw << "x" << sh.th << " variant " << variant;
            if (Level() != Isa::Scalar && corr::kCrossRowKernels.HasOwnKernel(Level())) {
                std::fill(out.begin(), out.end(), -7);
                EXPECT_EQ(corr::kCrossRowKernels.At(Level())(0, span, job), span);  // no row left to others
                ASSERT_EQ(out, ref);
            }
        }
    }
}

// Rows whose last block of 64 positions holds only a few (1, 2, 15, 16, 17, 63) or none: the few may be
// taken one position at a time, with image rows ending exactly where the last position needs them. A tall
// template with the largest products also checks that 32-bit lanes are folded in time on that path.
TEST_P(CorrMatchIsa, CrossRowTailsEqualTheReference) {
    std::mt19937 rng(11);
    struct Shape {
        int tw, th, outRows, rowStep;
    };
    const std::vector<Shape> shapes = {{16, 16, 4, 1}, {32, 9, 3, 2}, {64, 64, 4, 1},
                                       {48, 5, 1, 1},  {65, 3, 2, 4}, {16, 20000, 1, 1}};
    for (const Shape& sh : shapes) {
        const bool tall = sh.th > 1000;
        for (int left : {1, 2, 15, 16, 17, 63, 64}) {
            if (tall && left > 2) continue;
            const int span = (tall ? 0 : 64 * (1 + static_cast<int>(rng() % 3))) + left;
            for (int variant = 0; variant < (tall ? 1 : 2); ++variant) {
                const int stride = (sh.tw + 15) / 16 * 16;
                const int imgW = span - 1 + sh.tw;
                const int imgH = (sh.outRows - 1) * sh.rowStep + sh.th;
                std::vector<int8_t> t(static_cast<size_t>(stride) * sh.th, 0);
                std::vector<uint8_t> img(static_cast<size_t>(imgW) * imgH);
                int64_t tSum = 0;
                for (int r = 0; r < sh.th; ++r)
                    for (int k = 0; k < sh.tw; ++k) {
                        const int8_t v = tall ? int8_t{-128} : static_cast<int8_t>(rng());
                        t[static_cast<size_t>(r) * stride + k] = v;
                        tSum += v;
                    }
                for (auto& b : img) b = tall ? 255 : static_cast<uint8_t>(rng());
                corr::CrossRowJob job;
                job.t = t.data();
                job.tw = sh.tw;
                job.th = sh.th;
                job.tStride = stride;
                job.tSum = tSum;
                job.img = img.data();
                job.imgPitch = imgW;
                job.readable = imgW;
                job.imgSigned = variant == 1;
                job.outRows = sh.outRows;
                job.rowStep = sh.rowStep;
                job.outStride = span + 1;
                std::vector<int64_t> out(static_cast<size_t>(job.outStride) * sh.outRows, -7), ref(out);
                job.out = ref.data();
                corr::kCrossRowKernels.Scalar()(0, span, job);
                job.out = out.data();
                EXPECT_EQ(corr::kCrossRowKernels.Run(Level(), 0, span, job), span);
                ASSERT_EQ(out, ref) << sh.tw << "x" << sh.th << " span " << span << " variant " << variant;
            }
        }
    }
}

// The score kernels give CorrScore's doubles bit for bit: power-of-two counts and others, flat windows,
// both score forms.
TEST_P(CorrMatchIsa, ScoreKernelsGiveCorrScoreBitForBit) {
    std::mt19937 rng(9);
    for (const int32_t count : {256, 1024, 4096, 300, 1, 7}) {
        for (int positionOnly = 0; positionOnly < 2; ++positionOnly) {
            const int n = 37;
            std::vector<int64_t> sI(n), sI2(n), sTI(n);
            for (int x = 0; x < n; ++x) {
                const int64_t flatValue = rng() % 256;
                const bool flat = x % 5 == 0;
                int64_t a = 0, a2 = 0, ti = 0;
                for (int k = 0; k < count; ++k) {
                    const int64_t v = flat ? flatValue : rng() % 256, tv = rng() % 256;
                    a += v, a2 += v * v, ti += v * tv;
                }
                sI[x] = a, sI2[x] = a2, sTI[x] = ti;
            }
            corr::ScoreJob job;
            job.sumI = sI.data();
            job.sumI2 = sI2.data();
            job.sumTI = sTI.data();
            job.count = count;
            job.sum = 127.5 * count + 3;
            job.sumSq = 21000.0 * count;
            job.positionOnly = positionOnly;
            std::vector<double> got(n, -1.0);
            job.score = got.data();
            EXPECT_EQ(corr::kScoreKernels.Run(Level(), 0, n, job), n);
            for (int x = 0; x < n; ++x) {
                const double want = CorrScore(double(sI[x]), double(sI2[x]), double(sTI[x]), count, job.sum,
                                              job.sumSq, positionOnly);
                uint64_t a, b;
                std::memcpy(&a, &got[x], 8);
                std::memcpy(&b, &want, 8);
                ASSERT_EQ(a, b) << count << " " << positionOnly << " " << x;
            }
        }
    }
}

// A larger template over rows enough for several cross-row batches, every ISA level against the plain loop.
TEST_P(CorrMatchIsa, LargeTemplateMatchEqualsThePlainLoop) {
    auto img = testing::RandomImage(150, 75, 31);
    auto tplImg = testing::RandomImage(70, 40, 32);
    for (int flags = 0; flags < 4; ++flags) {
        CorrTemplate t(tplImg.get(), 0);
        CorrResult r;
        swCorrMatchAgent agent(img.get(), &t, &r, flags & 1, flags >> 1, 1, 1 + flags % 2);
        ASSERT_EQ(agent.Go(), 0);
        int pitch = img->Pitch();
        for (int k = 0; k < r.Count(); ++k) {
            const CorrPoint& p = r.At(k);
            CorrPoint q;
            t.FastComputeSums(img->Row(p._pos.y) + p._pos.x, &pitch, flags & 1, &q);
            ASSERT_EQ(p._sumTI, q._sumTI) << k;
            ASSERT_EQ(p._score, q._score);
        }
    }
}

// Single-point mode keeps the best by the visiting rule, row by row or not: flat parts (every score 0, the
// latest kept), a flat start followed by a pattern, and two equal copies (the first kept).
TEST_P(CorrMatchIsa, SinglePointBestFollowsTheVisitingRule) {
    auto pattern = testing::RandomImage(9, 7, 41);
    for (int scene = 0; scene < 3; ++scene) {
        auto img = testing::FilledImage(80, 50, 90);
        if (scene > 0) Paste(*img, *pattern, 30, 20);
        if (scene > 1) Paste(*img, *pattern, 60, 35);
        CorrTemplate t(pattern.get(), 0);
        for (int xs = 1; xs <= 2; ++xs) {
            CorrPoint best;
            swCorrMatchAgent agent(img.get(), &t, &best, 0, 0, xs, 1);
            ASSERT_EQ(agent.Go(), 0);
            CorrPoint want;
            want._score = 0.0;
            int pitch = img->Pitch();
            const Rect range = agent.SearchRange();
            for (int iy = range.top; iy < range.bottom; ++iy)
                for (int ix = range.left; ix < range.right; ix += xs) {
                    CorrPoint q;
                    q._positionOnly = 1;
                    t.FastComputeSums(img->Row(iy) + ix, &pitch, 0, &q);
                    if ((q._score == 0.0 && want._score == 0.0) || want._score < q._score) {
                        want._pos = Point{ix, iy};
                        want._score = q._score;
                    }
                }
            EXPECT_EQ(best._pos, want._pos) << scene << " " << xs;
            EXPECT_EQ(best._score, want._score);
        }
    }
}

OMBREL_INSTANTIATE_ISA_LEVELS(CorrMatchIsa);

TEST(Isa, TheByteDotProductLevelParsesAndRunsAvx512KernelsOfOtherFamilies) {
    Isa isa = Isa::Scalar;
    ASSERT_TRUE(ParseIsa("avx512vnni", &isa));
    EXPECT_EQ(isa, Isa::Avx512Vnni);
    EXPECT_STREQ(IsaName(Isa::Avx512Vnni), "avx512vnni");
    EXPECT_EQ(corr::kDotKernels.At(Isa::Avx512Vnni), corr::kDotKernels.At(Isa::Avx512));
    EXPECT_FALSE(corr::kDotKernels.HasOwnKernel(Isa::Avx512Vnni));
    EXPECT_TRUE(corr::kCrossRowKernels.HasOwnKernel(Isa::Avx512Vnni));
}

// The sort gives qsort's order here: descending scores, equal ones (and -0 with +0) in list order, over
// short and long runs of equal and nearly equal scores; a null entry leaves the order to qsort itself.
TEST(CorrResult, SortGivesTheOrderOfQsort) {
    std::mt19937 rng(3);
    for (const int n : {1, 2, 31, 40, 5000}) {
        std::vector<CorrPoint> points(n);
        const double near = 0.5;
        for (int k = 0; k < n; ++k) {
            const int kind = rng() % 5;
            points[k]._score = kind == 0   ? 0.0
                               : kind == 1 ? -0.0
                               : kind == 2 ? std::nextafter(near, double(rng() % 3))  // low bits differ
                               : kind == 3 ? double(rng() % 4) / 4
                                           : std::ldexp(double(rng()), -32);
        }
        CorrResult r;
        r._count = n;
        r._sortedCorrPtList = static_cast<CorrPoint**>(std::malloc(n * sizeof(CorrPoint*)));
        std::vector<CorrPoint*> want(n);
        for (int k = 0; k < n; ++k)
            r._sortedCorrPtList[k] = want[k] = &points[(k * 7919) % n];  // a shuffled list
        std::qsort(want.data(), n, sizeof(CorrPoint*), CorrResultCompare);
        r.Sort();
        for (int k = 0; k < n; ++k) ASSERT_EQ(r._sortedCorrPtList[k], want[k]) << n << " " << k;
        if (n > 2) {
            r._sortedCorrPtList[1] = nullptr;
            want.assign(r._sortedCorrPtList, r._sortedCorrPtList + n);
            std::qsort(want.data(), n, sizeof(CorrPoint*), CorrResultCompare);
            r.Sort();
            for (int k = 0; k < n; ++k) ASSERT_EQ(r._sortedCorrPtList[k], want[k]);
        }
    }
}

// Scores that differ only in their lowest mantissa bits, many of them equal: the sort keeps only the key
// bits the list index leaves free, so most neighbours tie there and are told apart by their whole keys.
TEST(CorrResult, SortOrdersScoresDifferingOnlyInLowBitsAsQsort) {
    std::mt19937 rng(11);
    for (const int n : {70000, 131073}) {
        std::vector<CorrPoint> points(n);
        const double ulp = std::nextafter(0.3, 1.0) - 0.3;
        for (int k = 0; k < n; ++k) points[k]._score = 0.3 + ulp * double(rng() % (1u << 20) / (k % 3 + 1));
        CorrResult r;
        r._count = n;
        r._sortedCorrPtList = static_cast<CorrPoint**>(std::malloc(n * sizeof(CorrPoint*)));
        std::vector<CorrPoint*> want(n);
        for (int k = 0; k < n; ++k) r._sortedCorrPtList[k] = want[k] = &points[k];
        std::qsort(want.data(), n, sizeof(CorrPoint*), CorrResultCompare);
        r.Sort();
        for (int k = 0; k < n; ++k) ASSERT_EQ(r._sortedCorrPtList[k], want[k]) << n << " " << k;
    }
}

// A match's sorted list is qsort's order of its raster list, on an image with many equal scores.
TEST(CorrMatch, SortedListIsTheOrderOfQsort) {
    auto img = testing::FilledImage(90, 60, 40);
    auto noise = testing::RandomImage(30, 20, 8);
    Paste(*img, *noise, 10, 10);
    Paste(*img, *noise, 50, 35);
    auto tplImg = testing::RandomImage(12, 9, 8);
    CorrTemplate t(tplImg.get(), 0);
    CorrResult r;
    swCorrMatchAgent agent(img.get(), &t, &r, 0, 0, 1, 1);
    ASSERT_EQ(agent.Go(), 0);
    std::vector<CorrPoint*> want(r.Count());
    for (int k = 0; k < r.Count(); ++k) want[k] = &r._corrPtList[k];
    std::qsort(want.data(), want.size(), sizeof(CorrPoint*), CorrResultCompare);
    for (int k = 0; k < r.Count(); ++k) ASSERT_EQ(r._sortedCorrPtList[k], want[k]) << k;
}

TEST(CorrMatch, FindsPastedPatternsAndListsEveryPositionSorted) {
    auto pattern = Textured(16, 12, 21);
    auto img = Textured(120, 90, 22);
    Paste(*img, *pattern, 40, 30);
    Paste(*img, *pattern, 90, 70);  // the same sums, so exactly the same score
    CorrTemplate t(pattern.get(), 0);
    t.SetHotSpot(Point{8, 6});
    CorrResult r;
    std::unique_ptr<CorrMatchAgent> agent(CorrMatchFact(img.get(), 0, 0, 120, 90, &t, &r, 0, 0, 1, 1));
    ASSERT_NE(agent, nullptr);
    ASSERT_EQ(agent->Go(), 0);
    // Hot spots 0..119 with top-left from -8: clipped to 0..104 across, 0..78 down.
    EXPECT_EQ(agent->SearchRange(), (Rect{0, 0, 105, 79}));
    EXPECT_EQ(r.Count(), 105 * 79);
    EXPECT_EQ(r.Sorted(0)._score, r.Sorted(1)._score);
    EXPECT_NEAR(r.Sorted(0)._score, 1.0, 1e-12);
    EXPECT_EQ(r.Sorted(0)._pos.x + r.Sorted(1)._pos.x, 48 + 98);  // qsort need not keep their order
    EXPECT_EQ(agent->GetBest()->_pos, (Point{48, 36}));           // the first in raster order
    for (int k = 1; k < r.Count(); ++k) ASSERT_GE(r.Sorted(k - 1)._score, r.Sorted(k)._score);
    EXPECT_EQ(r.At(1)._pos, (Point{9, 6}));  // raster order kept
    ExpectExact(r, t, *img, false, false);

    const auto top = CorrTopN(r, 3, 10.0);
    ASSERT_EQ(top.size(), 3u);
    EXPECT_EQ(top[0]._pos.x + top[1]._pos.x, 48 + 98);
    EXPECT_GE(std::hypot(top[2]._pos.x - 48, top[2]._pos.y - 36), 10.0);
}

TEST(CorrMatch, SinglePointModeReportsTheSquareOfTheBest) {
    auto pattern = Textured(10, 10, 31);
    auto img = Textured(50, 40, 32);
    Paste(*img, *pattern, 25, 20, true);
    CorrTemplate t(pattern.get(), 0);
    CorrPoint best;
    best._user0 = 5;
    std::unique_ptr<CorrMatchAgent> agent(CorrMatchFact(img.get(), &t, &best, 0, 0, 1, 1));
    ASSERT_EQ(agent->Go(), 0);
    EXPECT_EQ(best._pos, (Point{25, 20}));
    EXPECT_NEAR(best._score, 1.0, 1e-12);
    // A partial match: r^2 here against |r| in list mode at the same place.
    Paste(*img, *Textured(5, 10, 33), 25, 20);
    CorrResult r;
    swCorrMatchAgent list(img.get(), Rect{25, 20, 26, 21}, &t, &r, 0, 0, 1, 1);
    ASSERT_EQ(list.Go(), 0);
    ASSERT_EQ(agent->Go(), 0);
    ASSERT_EQ(r.Count(), 1);
    EXPECT_EQ(best._user0, 5);
    const double rr = r.At(0)._score;
    EXPECT_GT(best._score, rr * rr - 1e-12);  // the best over the image is at least this position's
    swCorrMatchAgent one(img.get(), Rect{25, 20, 26, 21}, &t, &best, 0, 0, 1, 1);
    ASSERT_EQ(one.Go(), 0);
    EXPECT_DOUBLE_EQ(best._score, rr * rr);
}

TEST(CorrMatch, BestPointRulesForZeroAndEqualScores) {
    auto flat = testing::FilledImage(20, 10, 9);
    auto pattern = Textured(4, 4, 41);
    CorrTemplate t(pattern.get(), 0);
    CorrResult r;
    swCorrMatchAgent zeros(flat.get(), &t, &r, 0, 0, 1, 1);
    ASSERT_EQ(zeros.Go(), 0);
    EXPECT_EQ(zeros.GetBest()->_pos, (Point{16, 6}));  // the last position visited

    // xStep beyond the range: one position per row.
    CorrResult s;
    swCorrMatchAgent wide(flat.get(), &t, &s, 0, 0, 100, 2);
    ASSERT_EQ(wide.Go(), 0);
    EXPECT_EQ(s.Count(), 4);  // rows 0, 2, 4, 6
    for (int k = 0; k < 4; ++k) EXPECT_EQ(s.At(k)._pos.x, 0);
}

TEST(CorrMatch, EmptyRangeWarnsAndAssertionsCarryTheirLines) {
    auto img = Textured(20, 20, 51);
    auto big = Textured(30, 5, 52);
    CorrTemplate t(big.get(), 0);
    CorrResult r;
    AssertRecorder asserts;
    TextRecorder text;
    swCorrMatchAgent agent(img.get(), &t, &r, 0, 0, 1, 1);
    EXPECT_EQ(agent.GetError(), -1);
    EXPECT_TRUE(asserts.Has("corr", 453, "!(ix_stop < ix_start)"));
    EXPECT_NE(text.Text().find("WARNING invalid corr specified - no correlation will be performed\n"),
              std::string::npos);
    EXPECT_EQ(agent.Go(), 1);
    EXPECT_EQ(r.Count(), 0);

    auto small = Textured(4, 4, 53);
    CorrTemplate u(small.get(), 0);
    swCorrMatchAgent bad(img.get(), Rect{18, -1, 25, 3}, &u, &r, 0, 0, 0, -2);
    EXPECT_TRUE(asserts.Has("corr", 502, "_xStep > 0"));
    EXPECT_TRUE(asserts.Has("corr", 503, "_yStep > 0"));
    EXPECT_TRUE(asserts.Has("corr", 506, "_sPt.y >= 0 && _sPt.y < _srcBuf->Height()"));
    EXPECT_TRUE(asserts.Has("corr", 509, "_sPt.x + _sRoi.Width() <= _srcBuf->Width()"));
    EXPECT_EQ(bad.Go(), 1);

    CorrTemplate broken(nullptr, 0);
    swCorrMatchAgent refused(img.get(), &broken, &r, 0, 0, 1, 1);
    EXPECT_TRUE(asserts.Has("corr", 504, "_corrTemplate->GetBuffer()"));
    EXPECT_EQ(refused.GetStatus(), -13500 - std::abs(broken.GetError()));
    EXPECT_EQ(refused.Go(), 1);
    swCorrMatchAgent noSource(nullptr, &u, &r, 0, 0, 1, 1);
    EXPECT_TRUE(asserts.Has("corr", 501, "_srcBuf"));
    EXPECT_EQ(noSource.Go(), 1);
    EXPECT_EQ(CorrMatchFact(nullptr, &u, &r, 0, 0, 1, 1), nullptr);

    swCorrMatchAgent moved(img.get(), &u, &r, 0, 0, 1, 1);
    moved.SetSrcPt(Point{2, 2});
    EXPECT_EQ(moved.Go(), 0);
    EXPECT_TRUE(asserts.Has("swcorr", 14, "!_dirty"));
    EXPECT_EQ(moved.SearchRange(), (Rect{2, 2, 17, 17}));
}

TEST(CorrMatch, SubpixelPeakOfAShiftedBlobIsWithinATenthOfAPixel) {
    const auto blob = [](Buffer& b, double cx, double cy) {
        for (int y = 0; y < b.Height(); ++y)
            for (int x = 0; x < b.Width(); ++x) {
                const double d2 = (x - cx) * (x - cx) + (y - cy) * (y - cy);
                b.Row(y)[x] = static_cast<uint8_t>(std::lround(30 + 200 * std::exp(-d2 / (2 * 3.0 * 3.0))));
            }
    };
    Buffer pattern(21, 21, EIGHT);
    blob(pattern, 10, 10);
    CorrTemplate t(&pattern, 0);
    t.SetHotSpot(Point{10, 10});
    for (const auto& shift : {std::pair{0.3, -0.2}, std::pair{-0.45, 0.4}, std::pair{0.1, 0.0}}) {
        Buffer img(64, 64, EIGHT);
        blob(img, 32 + shift.first, 30 + shift.second);
        CorrResult r;
        swCorrMatchAgent agent(&img, &t, &r, 0, 0, 1, 1);
        ASSERT_EQ(agent.Go(), 0);
        const CorrPoint& best = *agent.GetBest();
        int index = -1;  // the best point is a copy: find its list entry
        for (int j = 0; j < r.Count(); ++j)
            if (r.At(j)._pos == best._pos) index = j;
        CorrSubpixel sub;
        ASSERT_TRUE(agent.RefinePeak(index, &sub));
        EXPECT_NEAR(sub.position.x, 32 + shift.first, 0.1);
        EXPECT_NEAR(sub.position.y, 30 + shift.second, 0.1);
        EXPECT_GE(sub.score, best._score);
        EXPECT_LE(sub.score, 1.0 + 1e-9);
    }
}

TEST(CorrSums, IntegerRoutinesAndCandidateScores) {
    auto img = testing::RandomImage(40, 30, 61);
    auto tb = testing::RandomImage(9, 7, 62);
    for (int y = 0; y < 7; ++y) tb->Row(y)[y] = 0;
    const int iskip = img->Pitch() - 9, tskip = tb->Pitch() - 9;
    for (int mask = 0; mask < 2; ++mask) {
        int64_t eI = 0, eI2 = 0, eTI = 0, eTIs = 0;
        for (int y = 0; y < 7; ++y)
            for (int x = 0; x < 9; ++x) {
                const int t = tb->Row(y)[x], i = img->Row(y)[x];
                if (mask && t == 0) continue;
                eI += i, eI2 += i * i, eTI += t * i, eTIs += static_cast<int8_t>(t) * i;
            }
        uint32_t i = 0, i2 = 0, ti = 0, l2 = 0, h2 = 0, lt = 0, ht = 0;
        (mask ? CORR_SUM_MASK : CORR_SUM_NO_MASK)(i, i2, ti, img->BaseAddr(), tb->BaseAddr(), iskip, tskip, 7,
                                                  9);
        EXPECT_EQ(i, eI);
        EXPECT_EQ(i2, eI2);
        EXPECT_EQ(ti, eTI);
        const char* st = reinterpret_cast<const char*>(tb->BaseAddr());
        if (mask)
            OA_CORR_SUM_MASK(i, l2, lt, ht, h2, img->BaseAddr(), st, iskip, tskip, 7, 9);
        else
            OA_CORR_SUM_NO_MASK(i, l2, lt, ht, h2, img->BaseAddr(), st, iskip, tskip, 7, 9);
        EXPECT_EQ(static_cast<int64_t>((uint64_t{ht} << 32) | lt), eTIs);
        EXPECT_EQ((uint64_t{h2} << 32) | l2, static_cast<uint64_t>(eI2));
    }
    uint32_t i = 1, i2 = 1, ti = 1;
    CORR_SUM_NO_MASK(i, i2, ti, img->BaseAddr(), tb->BaseAddr(), 0, 0, 0, 9);
    EXPECT_EQ(i + i2 + ti, 0u);

    CorrTemplate t(tb.get(), 0);
    CorrTempl st = CorrTempl::From(t);
    std::vector<Point> at{{3, 4}, {31, 0}, {30, 2}, {0, 23}, {0, 22}, {-1, 0}};
    std::vector<float> scores;
    swComputeScores(&st, img.get(), at, scores, -1, false, true);
    ASSERT_EQ(scores.size(), at.size());
    EXPECT_EQ(scores[1], 0.0f);  // touches the last column
    EXPECT_EQ(scores[3], 0.0f);  // touches the last row
    EXPECT_EQ(scores[5], 0.0f);
    for (int k : {0, 2, 4}) {
        const double r = Correlation(t, ExactSums(t, *img, at[k].x, at[k].y, false));
        EXPECT_NEAR(scores[k], r, 1e-6) << k;
    }
    std::vector<float> squared;
    const CorrPoint last = swComputeScores(&st, img.get(), at, squared, 1, true, false);
    ASSERT_EQ(squared.size(), 1u);
    EXPECT_NEAR(squared[0], scores[0] * std::fabs(scores[0]), 1e-6);
    EXPECT_EQ(last._sumI, double(ExactSums(t, *img, 3, 4, false).sI));
}

#ifdef OMBREL_TEST_WITH_OPENCV
TEST(CorrMatch, AbsoluteCorrelationAgreesWithOpenCv) {
    auto pattern = Textured(24, 18, 71);
    auto img = Textured(160, 120, 72);
    Paste(*img, *pattern, 70, 50);
    CorrTemplate t(pattern.get(), 0);
    CorrResult r;
    swCorrMatchAgent agent(img.get(), &t, &r, 0, 0, 1, 1);
    ASSERT_EQ(agent.Go(), 0);
    cv::Mat I(img->Height(), img->Width(), CV_8U, img->BaseAddr(), img->Pitch());
    cv::Mat T(pattern->Height(), pattern->Width(), CV_8U, pattern->BaseAddr(), pattern->Pitch());
    cv::Mat out;
    cv::matchTemplate(I, T, out, cv::TM_CCOEFF_NORMED);
    ASSERT_EQ(out.cols * out.rows, r.Count());
    for (int k = 0; k < r.Count(); ++k) {
        const CorrPoint& p = r.At(k);
        const double n = t.GetCount();
        const double spread = p._sumI2 - p._sumI * p._sumI / n;  // the window's spread
        const double tol = 1e-4 + 1e-2 / std::sqrt(std::max(spread, 1.0));
        ASSERT_NEAR(p._score, std::fabs(out.at<float>(p._pos.y, p._pos.x)), tol)
            << p._pos.x << "," << p._pos.y;
    }
}
#endif

}  // namespace
}  // namespace ombrel
