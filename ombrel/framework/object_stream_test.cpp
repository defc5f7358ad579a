// SPDX-License-Identifier: MIT
#include "ombrel/framework/object_stream.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "ombrel/framework/buffer.h"
#include "ombrel/framework/roi.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::AssertRecorder;

std::unique_ptr<Buffer> MaskFrom(const std::vector<std::string>& rows) {
    auto mask =
        std::make_unique<Buffer>(static_cast<int>(rows[0].size()), static_cast<int>(rows.size()), ONE);
    for (size_t y = 0; y < rows.size(); ++y)
        for (size_t x = 0; x < rows[y].size(); ++x)
            if (rows[y][x] == '#')
                mask->Row(static_cast<int>(y))[x >> 3] |= static_cast<uint8_t>(0x80 >> (x & 7));
    return mask;
}

// The scan list as "row:start+len" strings, one per span.
std::vector<std::string> Scans(const ROI& roi) {
    std::vector<std::string> out;
    for (int r = 0; r < roi.ScanRows(); ++r) {
        const ROIRowStore& row = roi.GetScans()[r];
        for (int i = 0; i < row.SegCnt(); ++i)
            out.push_back(std::to_string(row.row) + ":" + std::to_string(row.scans[i].Start()) + "+" +
                          std::to_string(row.scans[i].Len()));
    }
    return out;
}

std::vector<uint8_t> Pixels(const Buffer& b) {
    std::vector<uint8_t> out;
    const int64_t rowBytes = Buffer::RowBytes(b.Width(), b.BitsPerPixel());
    for (int y = 0; y < b.Height(); ++y) out.insert(out.end(), b.Row(y), b.Row(y) + rowBytes);
    return out;
}

os_bstream ReaderOf(const os_bstream& writer) {
    return os_bstream(writer.Bytes().data(), writer.Bytes().size());
}

TEST(ObjectStream, ValuesAndChunksComeBackBitForBit) {
    os_bstream w;
    w.WriteBool(true);
    w.WriteBool(false);
    w.WriteInt(std::numeric_limits<int32_t>::min());
    w.WriteInt(-1);
    w.WriteUnsigned(0xFFFFFFFFu);
    w.WriteFloat(-0.0f);
    w.WriteFloat(std::numeric_limits<float>::infinity());
    w.WriteDouble(3.14159265358789);
    w.WriteDouble(std::numeric_limits<double>::denorm_min());
    const char text[] = "chunk\0with zero";
    w.WriteChunk(text, sizeof text);
    w.WriteChunk(nullptr, 0);
    ASSERT_FALSE(w.Failed());

    os_bstream r = ReaderOf(w);
    bool b1 = false, b2 = true;
    int32_t i1 = 0, i2 = 0;
    uint32_t u = 0;
    float f1 = 1, f2 = 0;
    double d1 = 0, d2 = 0;
    std::vector<uint8_t> c1, c2{1};
    ASSERT_TRUE(r.ReadBool(b1) && r.ReadBool(b2) && r.ReadInt(i1) && r.ReadInt(i2) && r.ReadUnsigned(u) &&
                r.ReadFloat(f1) && r.ReadFloat(f2) && r.ReadDouble(d1) && r.ReadDouble(d2) &&
                r.ReadChunk(c1) && r.ReadChunk(c2))
        << r.Error();
    EXPECT_TRUE(b1);
    EXPECT_FALSE(b2);
    EXPECT_EQ(i1, std::numeric_limits<int32_t>::min());
    EXPECT_EQ(i2, -1);
    EXPECT_EQ(u, 0xFFFFFFFFu);
    EXPECT_TRUE(std::signbit(f1) && f1 == 0.0f);
    EXPECT_EQ(f2, std::numeric_limits<float>::infinity());
    EXPECT_EQ(d1, 3.14159265358789);
    EXPECT_EQ(d2, std::numeric_limits<double>::denorm_min());
    EXPECT_EQ(std::string(c1.begin(), c1.end()), std::string(text, sizeof text));
    EXPECT_TRUE(c2.empty());
    EXPECT_EQ(r.Remaining(), 0u);
    // Past the end: a clean failure that leaves the output alone.
    int32_t untouched = 77;
    EXPECT_FALSE(r.ReadInt(untouched));
    EXPECT_EQ(untouched, 77);
    EXPECT_TRUE(r.Failed());
}

TEST(ObjectStream, ByteLayoutIsLittleEndianAndPinned) {
    os_bstream w;
    w.WriteBool(true);
    w.WriteInt(-2);
    w.WriteFloat(1.0f);
    w.WriteChunk("ab", 2);
    Buffer px(2, 1, EIGHT);
    px.Row(0)[0] = 7;
    px.Row(0)[1] = 9;
    w.WritePointer(&px);
    w.WritePointer(&px);
    w.WritePointer<Buffer>(nullptr);
    const std::vector<uint8_t> expected = {
        'O',  'M',  'B',  'S',  1,   0,   0,   0,                             // header, format 1
        1,                                                                    // bool
        0xFE, 0xFF, 0xFF, 0xFF,                                               // int -2
        0x00, 0x00, 0x80, 0x3F,                                               // float 1.0
        2,    0,    0,    0,    'a', 'b',                                     // chunk
        1,    1,    0,    0,    0,                                            // new object, id 1
        9,    0,    0,    0,    '(', 'B', 'u', 'f', 'f', 'e', 'r', '*', ')',  // class name
        0xA0, 0x67, 0xF7, 0x05,                                               // version 100100000
        18,   0,    0,    0,                                                  // body length
        2,    0,    0,    0,    1,   0,   0,   0,   8,   0,   0,   0,         // width, height, depth
        2,    0,    0,    0,    7,   9,                                       // pixels
        2,    1,    0,    0,    0,                                            // the same object again
        0};                                                                   // null pointer
    EXPECT_EQ(w.Bytes(), expected);
}

TEST(ObjectStream, APointerWrittenTwiceIsReadAsOneObjectTheReaderOwns) {
    Buffer shared(5, 3, SIXTEEN), other(3, 2, THIRTYTWO);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 10; ++x) shared.Row(y)[x] = static_cast<uint8_t>(y * 10 + x);
    other.Row(1)[11] = 0xAB;
    os_bstream w;
    w.WritePointer(&shared);
    w.WritePointer(&other);
    w.WritePointer(&shared);
    os_bstream r = ReaderOf(w);
    Buffer *a = nullptr, *b = nullptr, *c = nullptr;
    ASSERT_TRUE(r.ReadPointer(a) && r.ReadPointer(b) && r.ReadPointer(c)) << r.Error();
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a, c);
    EXPECT_NE(a, b);
    EXPECT_EQ(a->Width(), 5);
    EXPECT_EQ(a->BitsPerPixel(), SIXTEEN);
    EXPECT_EQ(Pixels(*a), Pixels(shared));
    EXPECT_EQ(Pixels(*b), Pixels(other));
    // Once taken, the object is the caller's, and the reader no longer hands it out.
    EXPECT_TRUE(r.TakeOwnership(b));
    EXPECT_FALSE(r.TakeOwnership(b));
    delete b;
}

TEST(ObjectStream, OneBitBuffersDropThePaddingBitsPastTheWidth) {
    Buffer mask(11, 2, ONE);
    mask.Row(0)[0] = 0xA5;
    mask.Row(0)[1] = 0xFF;  // only its first three bits are pixels
    mask.Row(1)[1] = 0x1F;
    os_bstream w;
    w.WritePointer(&mask);
    os_bstream r = ReaderOf(w);
    Buffer* back = nullptr;
    ASSERT_TRUE(r.ReadPointer(back));
    EXPECT_EQ(Pixels(*back), (std::vector<uint8_t>{0xA5, 0xE0, 0x00, 0x00}));
}

TEST(ObjectStream, ClassesAreRegisteredAtStartUpUnderTheirTypeNames) {
    const os_class& roi = StreamClassOf(static_cast<const ROI*>(nullptr));
    EXPECT_EQ(os_class::Find("(ROI*)"), &roi);
    EXPECT_EQ(roi.Name(), ROI().get_class());
    EXPECT_EQ(roi.Version(), 100100000u);
    EXPECT_EQ(os_class::Find("(Buffer*)"), &StreamClassOf(static_cast<const Buffer*>(nullptr)));
    EXPECT_EQ(os_class::Find("(ROI*"), nullptr);
}

TEST(ObjectStreamRoi, RectanglesAndMasksComeBackWithTheirScans) {
    auto mask = MaskFrom({"##..###.#", ".........", "#########", "..#...#.."});
    ROI rect(40, 30), masked(mask.get()), empty, wider(mask.get());
    wider.SetExtent(20, 4);  // an extent of its own beside the mask's
    os_bstream w;
    w.WriteValue(rect);
    w.WriteValue(masked);
    w.WriteValue(empty);
    w.WriteValue(wider);
    ASSERT_FALSE(w.Failed());

    os_bstream r = ReaderOf(w);
    ROI rect2(1, 1), masked2, empty2(mask.get()), wider2;
    ASSERT_TRUE(r.ReadValue(rect2) && r.ReadValue(masked2) && r.ReadValue(empty2) && r.ReadValue(wider2))
        << r.Error();
    EXPECT_EQ(rect2.Width(), 40);
    EXPECT_EQ(rect2.Height(), 30);
    EXPECT_FALSE(rect2.IsMasked());
    EXPECT_EQ(rect2.GetMaskbits(), nullptr);

    EXPECT_EQ(masked2.Width(), 9);
    EXPECT_EQ(masked2.Height(), 4);
    ASSERT_TRUE(masked2.IsMasked());
    EXPECT_EQ(Scans(masked2),
              (std::vector<std::string>{"0:0+2", "0:4+3", "0:8+1", "2:0+9", "3:2+1", "3:6+1"}));
    EXPECT_EQ(Scans(masked2), Scans(masked));
    EXPECT_TRUE(masked2.OwnsMask());
    EXPECT_NE(masked2.GetMaskbits(), mask.get());
    EXPECT_EQ(Pixels(*masked2.GetMaskbits()), Pixels(*mask));

    EXPECT_EQ(empty2.Width(), 0);
    EXPECT_FALSE(empty2.IsMasked());
    EXPECT_EQ(empty2.GetMaskbits(), nullptr);  // reading replaces the whole region, mask pointer too

    EXPECT_EQ(wider2.Width(), 20);
    EXPECT_EQ(wider2.Height(), 4);
    EXPECT_EQ(Scans(wider2), Scans(masked));
}

TEST(ObjectStreamRoi, RegionsSharingAMaskEachOwnACopyAndADetachedMaskIsNotWritten) {
    auto mask = MaskFrom({"#.#", ".#."});
    ROI a(mask.get()), b(mask.get()), detached(mask.get());
    detached.DeleteMaskbits();  // the caller's mask is no longer read through this region
    os_bstream w;
    w.WriteValue(a);
    w.WriteValue(b);
    w.WriteValue(detached);
    os_bstream r = ReaderOf(w);
    ROI a2, b2, detached2;
    ASSERT_TRUE(r.ReadValue(a2) && r.ReadValue(b2) && r.ReadValue(detached2)) << r.Error();
    EXPECT_NE(a2.GetMaskbits(), b2.GetMaskbits());
    EXPECT_EQ(Scans(a2), Scans(b2));
    EXPECT_EQ(Scans(a2), (std::vector<std::string>{"0:0+1", "0:2+1", "1:1+1"}));
    EXPECT_EQ(detached2.GetMaskbits(), nullptr);
    EXPECT_FALSE(detached2.IsMasked());
    // The copies outlive the stream that made them.
    { os_bstream gone = std::move(r); }
    EXPECT_EQ(Pixels(*a2.GetMaskbits()), Pixels(*mask));
}

// Finds the stored version of the first object in `bytes` and replaces it.
void PatchFirstVersion(std::vector<uint8_t>& bytes, uint32_t version) {
    const uint32_t nameLength = bytes[8];
    const size_t at = 8 + 4 + nameLength;
    for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<uint8_t>(version >> (8 * i));
}

TEST(ObjectStreamRoi, AnUnknownVersionAssertsAndLeavesTheRegionUnreadButTheStreamInStep) {
    auto mask = MaskFrom({"##", "#."});
    ROI stored(mask.get());
    os_bstream w;
    w.WriteValue(stored);
    w.WriteInt(1234);
    for (uint32_t version : {1u, 100200000u, 0u}) {
        std::vector<uint8_t> bytes = w.Bytes();
        PatchFirstVersion(bytes, version);
        os_bstream r(bytes.data(), bytes.size());
        AssertRecorder asserts;
        ROI target(7, 5);
        int32_t next = 0;
        EXPECT_TRUE(r.ReadValue(target));
        ASSERT_EQ(asserts.Count(), 1u);
        EXPECT_EQ(asserts.Reports()[0].module, "lsroi");
        EXPECT_EQ(asserts.Reports()[0].expression, "0");
        EXPECT_EQ(target.Width(), 7);
        EXPECT_EQ(target.Height(), 5);
        EXPECT_FALSE(target.IsMasked());
        EXPECT_TRUE(r.ReadInt(next));
        EXPECT_EQ(next, 1234);
    }
}

// A stream holding a bit of everything, and the reader for it; the reader checks what it gets.
os_bstream RichStream() {
    static auto mask = MaskFrom({"#..#####.", ".##......", "########."});
    static Buffer pixels(4, 3, EIGHT);
    pixels.Row(2)[3] = 200;
    os_bstream w;
    w.WriteUnsigned(0xC0FFEEu);
    ROI masked(mask.get()), rect(12, 9);
    w.WriteValue(masked);
    w.WritePointer(&pixels);
    w.WriteValue(rect);
    w.WritePointer(&pixels);
    w.WriteDouble(-2.5);
    w.WriteChunk("xyz", 3);
    return w;
}

// With `check`, also what the values must be (a corrupted stream may still be well formed).
bool ReadRich(os_bstream& r, bool check = true) {
    uint32_t tag = 0;
    ROI masked, rect;
    Buffer *p1 = nullptr, *p2 = nullptr;
    double d = 0;
    std::vector<uint8_t> chunk;
    const bool ok = r.ReadUnsigned(tag) && r.ReadValue(masked) && r.ReadPointer(p1) && r.ReadValue(rect) &&
                    r.ReadPointer(p2) && r.ReadDouble(d) && r.ReadChunk(chunk);
    if (ok && check) {
        EXPECT_EQ(tag, 0xC0FFEEu);
        EXPECT_EQ(masked.ScanRows(), 3);
        EXPECT_EQ(p1, p2);
    }
    return ok;
}

TEST(ObjectStreamHostile, EveryTruncationFailsCleanly) {
    const os_bstream full = RichStream();
    {
        os_bstream r = ReaderOf(full);
        ASSERT_TRUE(ReadRich(r)) << r.Error();
        EXPECT_EQ(r.Remaining(), 0u);
    }
    for (size_t n = 0; n < full.Bytes().size(); ++n) {
        os_bstream r(full.Bytes().data(), n);
        EXPECT_FALSE(ReadRich(r)) << "prefix " << n;
        EXPECT_TRUE(r.Failed());
    }
}

TEST(ObjectStreamHostile, RandomCorruptionsNeverCrashOrLeak) {
    const os_bstream full = RichStream();
    std::mt19937 rng(12345);
    int rejected = 0;
    for (int round = 0; round < 3000; ++round) {
        std::vector<uint8_t> bytes = full.Bytes();
        const int flips = 1 + static_cast<int>(rng() % 4);
        for (int i = 0; i < flips; ++i)
            bytes[8 + rng() % (bytes.size() - 8)] ^= static_cast<uint8_t>(1 + rng() % 255);
        os_bstream r(bytes.data(), bytes.size());
        AssertRecorder quiet;  // a corrupted version is reported, not fatal
        if (!ReadRich(r, false)) ++rejected;
    }
    // Most single-byte changes hit a length, a tag, a name or a version and must be caught.
    EXPECT_GT(rejected, 1500);
}

// Builds stream bytes by hand: header then `body`.
std::vector<uint8_t> Stream(const std::vector<uint8_t>& body) {
    static constexpr uint8_t kHeader[8] = {'O', 'M', 'B', 'S', 1, 0, 0, 0};
    std::vector<uint8_t> bytes(sizeof kHeader + body.size());
    std::copy(std::begin(kHeader), std::end(kHeader), bytes.begin());
    std::copy(body.begin(), body.end(), bytes.begin() + sizeof kHeader);
    return bytes;
}

TEST(ObjectStreamHostile, HostileLengthsReferencesAndNamesAreRejected) {
    auto expectRejected = [](const std::vector<uint8_t>& bytes, const char* what) {
        os_bstream r(bytes.data(), bytes.size());
        Buffer* p = nullptr;
        const bool ok = r.ReadPointer(p);
        EXPECT_FALSE(ok) << what;
        EXPECT_TRUE(r.Failed()) << what;
        EXPECT_EQ(p, nullptr) << what;
    };
    expectRejected(Stream({2, 1, 0, 0, 0}), "reference to an object never read");
    expectRejected(Stream({1, 5, 0, 0, 0}), "first object with id 5");
    expectRejected(Stream({7}), "unknown pointer tag");
    expectRejected(Stream({1, 1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}), "4 GiB type name");
    expectRejected(Stream({1, 1, 0, 0, 0, 5, 0, 0, 0, '(', 'R', 'O', 'I', '*'}), "unregistered name");
    expectRejected(
        Stream({1, 1, 0, 0, 0, 6, 0, 0, 0, '(', 'R', 'O', 'I', '*', ')', 0xA0, 0x67, 0xF7, 0x05, 0, 0, 0, 0}),
        "a region where a buffer was asked for");
    // A buffer claiming 65535 x 65535 pixels with a four-byte chunk: refused before any allocation.
    expectRejected(Stream({1,   1,   0,    0,    0,    9,    0,  0, 0, '(', 'B',  'u',  'f', 'f', 'e',  'r',
                           '*', ')', 0xA0, 0x67, 0xF7, 0x05, 20, 0, 0, 0,   0xFF, 0xFF, 0,   0,   0xFF, 0xFF,
                           0,   0,   8,    0,    0,    0,    4,  0, 0, 0,   1,    2,    3,   4}),
                   "huge buffer");
    expectRejected(
        Stream({1,    1,  0, 0, 0, 9, 0, 0, 0, '(', 'B', 'u', 'f', 'f', 'e', 'r', '*', ')', 0xA0, 0x67, 0xF7,
                0x05, 16, 0, 0, 0, 1, 0, 0, 0, 1,   0,   0,   0,   3,   0,   0,   0,   0,   0,    0,    0}),
        "three bits per pixel");
    {
        const std::vector<uint8_t> bytes = Stream({0xFF, 0xFF, 0xFF, 0x7F});
        os_bstream r(bytes.data(), bytes.size());
        std::vector<uint8_t> chunk{9};
        EXPECT_FALSE(r.ReadChunk(chunk));
        EXPECT_EQ(chunk, std::vector<uint8_t>{9});
    }
    {
        const std::vector<uint8_t> bytes = Stream({2});
        os_bstream r(bytes.data(), bytes.size());
        bool b = false;
        EXPECT_FALSE(r.ReadBool(b));
    }
    {
        const std::vector<uint8_t> notAStream = {'P', '5', '\n', '1'};
        os_bstream r(notAStream.data(), notAStream.size());
        EXPECT_TRUE(r.Failed());
        EXPECT_EQ(r.Error(), "not an object stream");
    }
}

TEST(ObjectStreamHostile, AReferenceToATakenObjectIsRejected) {
    Buffer b(2, 2, EIGHT);
    os_bstream w;
    w.WritePointer(&b);
    w.WritePointer(&b);
    os_bstream r = ReaderOf(w);
    Buffer *first = nullptr, *second = nullptr;
    ASSERT_TRUE(r.ReadPointer(first));
    std::unique_ptr<Buffer> kept(first);
    ASSERT_TRUE(r.TakeOwnership(first));
    EXPECT_FALSE(r.ReadPointer(second));
    EXPECT_EQ(second, nullptr);
}

TEST(ObjectStreamFiles, StreamsGoThroughFilesAndIostreams) {
    const os_bstream w = RichStream();
    const std::string path = ::testing::TempDir() + "object_stream_test.bin";
    {
        std::ofstream out(path, std::ios::binary);
        ASSERT_TRUE(w.WriteTo(out));
    }
    {
        std::ifstream in(path, std::ios::binary);
        os_bstream r = os_bstream::ReadFrom(in);
        EXPECT_EQ(r.Bytes(), w.Bytes());
        EXPECT_TRUE(ReadRich(r)) << r.Error();
    }
    {
        std::ifstream in(path, std::ios::binary);
        os_bstream r = os_bstream::ReadFrom(in, w.Bytes().size() - 1);
        EXPECT_TRUE(r.Failed());
        EXPECT_EQ(r.Error(), "stream too long");
    }
    std::remove(path.c_str());
    std::stringstream text;
    ASSERT_TRUE(w.WriteTo(text));
    os_bstream r = os_bstream::ReadFrom(text);
    EXPECT_TRUE(ReadRich(r));
}

}  // namespace
}  // namespace ombrel
