// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ombrel/corr/corr_template.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/object_stream.h"
#include "ombrel/framework/roi.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::AssertRecorder;

std::unique_ptr<Buffer> Patch(int w, int h, uint32_t seed) {
    auto b = std::make_unique<Buffer>(w, h, EIGHT);
    std::mt19937 rng(seed);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) b->Row(y)[x] = static_cast<uint8_t>(rng());
    return b;
}

std::vector<uint8_t> PixelsOf(const Buffer& b) {
    std::vector<uint8_t> out;
    for (int y = 0; y < b.Height(); ++y) out.insert(out.end(), b.Row(y), b.Row(y) + b.Width());
    return out;
}

void PutU32(std::vector<uint8_t>& out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

// The fields of one template body, as a writer of any version put them.
struct Fields {
    const Buffer* buf = nullptr;
    ROI roi;
    int32_t hotX = 0, hotY = 0, count = 0;
    double sum = 0, sumSq = 0, variance = 0;
    int32_t mask = 0, isSigned = 0;
};

// A whole stream by hand: one "(CorrTemplate*)" object of `version` holding `f` (plus, for the oldest form,
// an int and two training records), then the int 77 that tells whether a reader stayed in step.
std::vector<uint8_t> HandStream(uint32_t version, const Fields& f, bool trailing) {
    os_bstream body;
    body.WritePointer(f.buf);
    body.WriteValue(f.roi);
    body.WriteInt(f.hotX);
    body.WriteInt(f.hotY);
    body.WriteInt(f.count);
    body.WriteDouble(f.sum);
    body.WriteDouble(f.sumSq);
    body.WriteDouble(f.variance);
    body.WriteInt(f.mask);
    body.WriteInt(f.isSigned);
    if (trailing) {
        CorrTrainVector a, b;
        a._first = {1, -2, 3};
        a._integer = 9;
        a._value = 0.25f;
        a._second = {4};
        b._integer = -1;
        body.WriteInt(555);
        body.WriteValue(a);
        body.WriteValue(b);
    }
    const std::vector<uint8_t>& all = body.Bytes();
    const std::vector<uint8_t> content(all.begin() + 8, all.end());  // past the writer's own stream header
    std::vector<uint8_t> out = {'O', 'M', 'B', 'S'};
    PutU32(out, 1);
    const std::string name = "(CorrTemplate*)";
    PutU32(out, static_cast<uint32_t>(name.size()));
    out.insert(out.end(), name.begin(), name.end());
    PutU32(out, version);
    PutU32(out, static_cast<uint32_t>(content.size()));
    out.insert(out.end(), content.begin(), content.end());
    PutU32(out, 77);
    return out;
}

void ExpectSameTemplate(const CorrTemplate& a, const CorrTemplate& b) {
    ASSERT_NE(a.GetBuffer(), nullptr);
    ASSERT_NE(b.GetBuffer(), nullptr);
    EXPECT_NE(a.GetBuffer(), b.GetBuffer());  // each owns its copy
    EXPECT_EQ(PixelsOf(*a.GetBuffer()), PixelsOf(*b.GetBuffer()));
    EXPECT_EQ(a.GetROI().Width(), b.GetROI().Width());
    EXPECT_EQ(a.GetROI().Height(), b.GetROI().Height());
    EXPECT_EQ(a.GetHotSpot().x, b.GetHotSpot().x);
    EXPECT_EQ(a.GetHotSpot().y, b.GetHotSpot().y);
    EXPECT_EQ(a.GetCount(), b.GetCount());
    EXPECT_EQ(a.GetSum(), b.GetSum());
    EXPECT_EQ(a.GetSumSq(), b.GetSumSq());
    EXPECT_EQ(a.GetVariance(), b.GetVariance());
    EXPECT_EQ(a.GetMask(), b.GetMask());
    EXPECT_EQ(a.GetSigned(), b.GetSigned());
    EXPECT_EQ(a.GetError(), b.GetError());
}

TEST(CorrTemplateStream, ARoundTripKeepsBufferFlagsHotSpotAndSums) {
    auto src = Patch(9, 6, 3);
    src->Row(2)[4] = 0;  // a masked-out pixel
    CorrTemplate stored(src.get(), 1);
    stored.SetHotSpot(Point{4, -3});
    stored.Recompute(1);
    ASSERT_EQ(stored.GetError(), 0);
    os_bstream w;
    w.WriteValue(stored);
    w.WritePointer(&stored);

    os_bstream r(w.Bytes().data(), w.Bytes().size());
    auto other = Patch(3, 3, 8);
    CorrTemplate read(other.get(), 0);
    CorrTemplate* viaPointer = nullptr;
    ASSERT_TRUE(r.ReadValue(read)) << r.Error();
    ASSERT_TRUE(r.ReadPointer(viaPointer)) << r.Error();
    EXPECT_EQ(r.Remaining(), 0u);
    ExpectSameTemplate(stored, read);
    ASSERT_NE(viaPointer, nullptr);
    ExpectSameTemplate(stored, *viaPointer);
    EXPECT_EQ(read.GetSigned(), 1);
    EXPECT_EQ(read.GetMask(), 1);

    // The read template scores exactly as the stored one.
    auto image = Patch(9, 6, 11);
    int pitch = image->Pitch();
    CorrPoint a, b;
    stored.FastComputeSums(image->BaseAddr(), &pitch, 1, &a);
    read.FastComputeSums(image->BaseAddr(), &pitch, 1, &b);
    EXPECT_EQ(a._sumTI, b._sumTI);
    EXPECT_EQ(a._score, b._score);
}

TEST(CorrTemplateStream, ATemplateWithoutABufferComesBackWithoutOneAndRefusesToRun) {
    CorrTemplate broken(nullptr, 0);
    os_bstream w;
    w.WriteValue(broken);
    os_bstream r(w.Bytes().data(), w.Bytes().size());
    auto src = Patch(4, 4, 1);
    CorrTemplate read(src.get(), 0);
    ASSERT_TRUE(r.ReadValue(read)) << r.Error();
    EXPECT_EQ(read.GetBuffer(), nullptr);
    EXPECT_NE(read.GetError(), 0);
}

TEST(CorrTemplateStream, EveryKnownVersionReadsTheFieldsAsStoredNotRecomputed) {
    auto patch = Patch(5, 4, 21);
    Fields f;
    f.buf = patch.get();
    f.roi = ROI(5, 4);
    f.hotX = 2;
    f.hotY = 1;
    f.count = 17;  // not what the patch would give: the stream is taken as it is
    f.sum = 1234.5;
    f.sumSq = 99999.25;
    f.variance = -3.0;
    f.mask = 0;
    f.isSigned = 1;
    for (uint32_t version : {100200000u, 100300000u, 100400000u, 1u}) {
        SCOPED_TRACE(version);
        const std::vector<uint8_t> bytes = HandStream(version, f, version == 1);
        os_bstream r(bytes.data(), bytes.size());
        AssertRecorder asserts;
        CorrTemplate read(nullptr, 0);
        uint32_t next = 0;
        ASSERT_TRUE(r.ReadValue(read)) << r.Error();
        ASSERT_TRUE(r.ReadUnsigned(next)) << r.Error();
        EXPECT_EQ(next, 77u);  // the oldest form's trailing records were consumed
        EXPECT_EQ(asserts.Count(), 0u);
        ASSERT_NE(read.GetBuffer(), nullptr);
        EXPECT_EQ(PixelsOf(*read.GetBuffer()), PixelsOf(*patch));
        EXPECT_EQ(read.GetError(), 0);
        EXPECT_EQ(read.GetHotSpot().x, 2);
        EXPECT_EQ(read.GetHotSpot().y, 1);
        EXPECT_EQ(read.GetCount(), 17);
        EXPECT_EQ(read.GetSum(), 1234.5);
        EXPECT_EQ(read.GetSumSq(), 99999.25);
        EXPECT_EQ(read.GetVariance(), -3.0);
        EXPECT_EQ(read.GetSigned(), 1);
    }
}

TEST(CorrTemplateStream, TheCurrentWriterIsVersion100400000UnderItsTypeName) {
    const os_class& cls = StreamClassOf(static_cast<const CorrTemplate*>(nullptr));
    EXPECT_EQ(cls.Version(), 100400000u);
    EXPECT_EQ(os_class::Find("(CorrTemplate*)"), &cls);
    EXPECT_EQ(os_class::Find("(CorrTrainVector*)"),
              &StreamClassOf(static_cast<const CorrTrainVector*>(nullptr)));
}

TEST(CorrTemplateStream, AnUnknownVersionAssertsAndLeavesTheTemplateUnreadButTheStreamInStep) {
    auto patch = Patch(5, 4, 2);
    Fields f;
    f.buf = patch.get();
    f.roi = ROI(5, 4);
    f.count = 20;
    f.sum = 7;
    for (uint32_t version : {0u, 2u, 100100000u, 100500000u}) {
        SCOPED_TRACE(version);
        const std::vector<uint8_t> bytes = HandStream(version, f, true);
        os_bstream r(bytes.data(), bytes.size());
        AssertRecorder asserts;
        auto own = Patch(3, 2, 9);
        CorrTemplate target(own.get(), 0);
        target.SetHotSpot(Point{1, 1});
        const CorrTemplate before(target);
        uint32_t next = 0;
        EXPECT_TRUE(r.ReadValue(target));
        ASSERT_EQ(asserts.Count(), 1u);
        EXPECT_TRUE(asserts.Has("lscorrtemplate", 129, "0"));
        ExpectSameTemplate(before, target);
        ASSERT_TRUE(r.ReadUnsigned(next)) << r.Error();
        EXPECT_EQ(next, 77u);
    }
}

TEST(CorrTemplateStream, BodiesNoWriterProducesAreRejectedAndLeaveTheTemplateAlone) {
    auto patch = Patch(5, 4, 2);
    Buffer wide(5, 4, SIXTEEN);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    auto make = [&](auto change) {
        Fields f;
        f.buf = patch.get();
        f.roi = ROI(5, 4);
        f.count = 20;
        change(f);
        return HandStream(100400000u, f, false);
    };
    const std::vector<std::vector<uint8_t>> hostile = {
        make([&](Fields& f) { f.buf = &wide; }),     make([](Fields& f) { f.count = -1; }),
        make([&](Fields& f) { f.sum = nan; }),       make([&](Fields& f) { f.sumSq = inf; }),
        make([&](Fields& f) { f.variance = -inf; }),
    };
    for (size_t i = 0; i < hostile.size(); ++i) {
        SCOPED_TRACE(i);
        os_bstream r(hostile[i].data(), hostile[i].size());
        auto own = Patch(3, 2, 9);
        CorrTemplate target(own.get(), 1);
        const CorrTemplate before(target);
        EXPECT_FALSE(r.ReadValue(target));
        EXPECT_TRUE(r.Failed());
        ExpectSameTemplate(before, target);
    }
}

TEST(CorrTemplateStream, EveryTruncationOfTheOldestFormFailsCleanly) {
    auto patch = Patch(6, 3, 5);
    Fields f;
    f.buf = patch.get();
    f.roi = ROI(6, 3);
    f.count = 18;
    const std::vector<uint8_t> full = HandStream(1, f, true);
    for (size_t n = 8; n + 4 < full.size(); ++n) {  // every cut inside the object
        os_bstream r(full.data(), n);
        AssertRecorder quiet;
        auto own = Patch(2, 2, 4);
        CorrTemplate target(own.get(), 0);
        const CorrTemplate before(target);
        EXPECT_FALSE(r.ReadValue(target)) << "prefix " << n;
        EXPECT_TRUE(r.Failed());
        ExpectSameTemplate(before, target);
    }
}

TEST(CorrTemplateStream, RandomCorruptionsNeverCrashOrLeak) {
    auto patch = Patch(7, 5, 6);
    Fields f;
    f.buf = patch.get();
    f.roi = ROI(7, 5);
    f.count = 35;
    const std::vector<uint8_t> full = HandStream(1, f, true);
    std::mt19937 rng(777);
    int rejected = 0;
    for (int round = 0; round < 3000; ++round) {
        std::vector<uint8_t> bytes = full;
        const int flips = 1 + static_cast<int>(rng() % 4);
        for (int i = 0; i < flips; ++i)
            bytes[8 + rng() % (bytes.size() - 8)] ^= static_cast<uint8_t>(1 + rng() % 255);
        os_bstream r(bytes.data(), bytes.size());
        AssertRecorder quiet;
        CorrTemplate target(nullptr, 0);
        uint32_t next = 0;
        if (!(r.ReadValue(target) && r.ReadUnsigned(next))) ++rejected;
        if (target.GetBuffer() != nullptr) {
            // Whatever was accepted is a usable 8-bit template.
            EXPECT_EQ(target.GetBuffer()->BitsPerPixel(), EIGHT);
            EXPECT_NE(target.GetBuffer()->BaseAddr(), nullptr);
        }
    }
    // The body is mostly pixels, which may change freely; but lengths, names, tags and versions must be
    // caught.
    EXPECT_GT(rejected, 600);
}

TEST(CorrTrainVectorStream, ListsRoundTripAndAreEmptiedBeforeReadingAndHostileCountsFail) {
    CorrTrainVector v;
    v._first = {7, -8, 9};
    v._integer = -42;
    v._value = 1.5f;
    v._second = {100, 200};
    CorrTrainVector empty;
    os_bstream w;
    w.WriteValue(v);
    w.WriteValue(empty);
    os_bstream r(w.Bytes().data(), w.Bytes().size());
    CorrTrainVector a, b;
    b._first = {1, 2};
    b._second = {3};
    ASSERT_TRUE(r.ReadValue(a) && r.ReadValue(b)) << r.Error();
    EXPECT_EQ(a._first, v._first);
    EXPECT_EQ(a._integer, -42);
    EXPECT_EQ(a._value, 1.5f);
    EXPECT_EQ(a._second, v._second);
    EXPECT_TRUE(b._first.empty());
    EXPECT_TRUE(b._second.empty());

    // A count far beyond the body fails before anything is allocated.
    std::vector<uint8_t> bytes = w.Bytes();
    const std::string name = "(CorrTrainVector*)";
    const size_t countAt = 8 + 4 + name.size() + 4 + 4;
    bytes[countAt + 3] = 0x7F;
    os_bstream h(bytes.data(), bytes.size());
    CorrTrainVector c;
    EXPECT_FALSE(h.ReadValue(c));
    EXPECT_TRUE(h.Failed());
}

}  // namespace
}  // namespace ombrel
