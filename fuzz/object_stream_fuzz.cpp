// SPDX-License-Identifier: MIT
// Any bytes given to the object stream's reader must read or fail cleanly: never a crash, a hang, a leak, a
// huge allocation or a read outside the bytes. The first input byte picks what the reader asks for; the rest
// is the stream. Built with OMBREL_OBJECT_STREAM_SEEDS instead, this file is a program that writes a valid
// input for every pick into the directory it is given, so the fuzzer starts past the headers.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "ombrel/corr/corr_template.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/hal.h"
#include "ombrel/framework/object_stream.h"
#include "ombrel/framework/roi.h"
#include "ombrel/morph/graymorph.h"

namespace {

using namespace ombrel;

// Reads every pixel byte, every scan and every tile, so a short or stale object shows under AddressSanitizer.
unsigned Touch(const Buffer* b) {
    if (b == nullptr || b->BaseAddr() == nullptr) return 0;
    unsigned sum = 0;
    const int64_t rowBytes = Buffer::RowBytes(b->Width(), b->BitsPerPixel());
    for (int y = 0; y < b->Height(); ++y)
        for (int64_t x = 0; x < rowBytes; ++x) sum += b->Row(y)[x];
    return sum;
}
unsigned Touch(const ROI* roi) {
    if (roi == nullptr) return 0;
    unsigned sum =
        static_cast<unsigned>(roi->Width()) + static_cast<unsigned>(roi->Height()) + Touch(roi->GetSwMask());
    for (int r = 0; r < roi->ScanRows(); ++r) {
        const ROIRowStore& row = roi->GetScans()[r];
        for (int i = 0; i < row.SegCnt(); ++i)
            sum += static_cast<unsigned>(row.scans[i].Start()) + static_cast<unsigned>(row.scans[i].Len());
    }
    return sum;
}
unsigned Touch(const GrayMorphElem* e) {
    if (e == nullptr) return 0;
    unsigned sum = static_cast<unsigned>(e->Members());
    for (int i = 0; i < e->GetMaskSize(); ++i) sum += e->GetMaskByIndex(i);
    return sum;
}

// Scores the template against its own pixels, which reads all of them and every statistic.
unsigned Touch(const CorrTemplate* t) {
    if (t == nullptr) return 0;
    unsigned sum = Touch(&t->GetROI()) + static_cast<unsigned>(t->GetCount()) +
                   static_cast<unsigned>(t->GetHotSpot().x) + static_cast<unsigned>(t->GetSigned());
    Buffer* b = t->GetBuffer();
    if (b == nullptr || b->BaseAddr() == nullptr) return sum;
    CorrPoint pt;
    int pitch = b->Pitch();
    t->FastComputeSums(b->BaseAddr(), &pitch, 0, &pt);
    // (A stored template may hold any statistics; only an in-range sum is folded in, so that converting it
    // is defined.)
    const double sumTI = pt._sumTI >= 0 && pt._sumTI < 4e9 ? pt._sumTI : 0;
    return sum + Touch(b) + static_cast<unsigned>(sumTI);
}

void ReadScript(uint8_t script, os_bstream& r) {
    unsigned sum = 0;
    switch (script % 5) {
        case 0: {
            ROI a, b;
            Buffer *p = nullptr, *q = nullptr;
            if (r.ReadValue(a) && r.ReadValue(b) && r.ReadPointer(p) && r.ReadPointer(q))
                sum += Touch(&a) + Touch(&b) + Touch(p) + Touch(q);
            break;
        }
        case 1: {
            GrayMorphElem e;
            GrayMorphElem* f = nullptr;
            if (r.ReadValue(e) && r.ReadPointer(f)) sum += Touch(&e) + Touch(f);
            break;
        }
        case 2: {
            bool b;
            int32_t i;
            uint32_t u;
            float f;
            double d;
            std::vector<uint8_t> chunk;
            Buffer* p = nullptr;
            if (r.ReadBool(b) && r.ReadInt(i) && r.ReadUnsigned(u) && r.ReadFloat(f) && r.ReadDouble(d) &&
                r.ReadChunk(chunk) && r.ReadPointer(p))
                sum += Touch(p) + static_cast<unsigned>(chunk.size());
            break;
        }
        case 4: {
            // Templates by value and by pointer; a copy of the one read by pointer must stand on its own.
            CorrTemplate t(nullptr, 0);
            CorrTemplate* p = nullptr;
            if (r.ReadValue(t) && r.ReadPointer(p)) {
                sum += Touch(&t) + Touch(p);
                if (p != nullptr) {
                    const CorrTemplate copy(*p);
                    sum += Touch(&copy);
                }
            }
            break;
        }
        default: {
            // Pointers of both kinds until the stream ends or fails; one it hands over is taken and freed.
            for (int n = 0; !r.Failed() && r.Remaining() > 0; ++n) {
                ROI* roi = nullptr;
                GrayMorphElem* e = nullptr;
                if (n % 2 == 0 ? !r.ReadPointer(roi) : !r.ReadPointer(e)) break;
                sum += Touch(roi) + Touch(e);
                if (n == 2 && roi != nullptr && r.TakeOwnership(roi)) delete roi;
            }
            break;
        }
    }
    volatile unsigned keep = sum;
    (void)keep;
}

}  // namespace

#ifndef OMBREL_OBJECT_STREAM_SEEDS

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    ombrel::SetAssertSink([](const char*, int, const char*) {});  // unknown versions report; keep it quiet
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    os_bstream r(data + 1, size - 1);
    ReadScript(data[0], r);
    return 0;
}

#else

namespace {

bool Save(const std::string& path, uint8_t script, const os_bstream& w) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) return false;
    const bool ok = std::fwrite(&script, 1, 1, f) == 1 &&
                    std::fwrite(w.Bytes().data(), 1, w.Bytes().size(), f) == w.Bytes().size();
    return std::fclose(f) == 0 && ok;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    const std::string dir = argv[1];
    Buffer mask(13, 3, ONE), pixels(3, 2, SIXTEEN);
    mask.Row(0)[0] = 0xC3;
    mask.Row(1)[1] = 0x50;
    mask.Row(2)[0] = 0xFF;
    pixels.Row(1)[5] = 9;
    ROI masked(&mask), rect(30, 20);
    GrayMorphElem elem(1, 2, 4, 3, "0110 1111 0110"), square;
    bool ok = true;
    {
        os_bstream w;
        w.WriteValue(masked);
        w.WriteValue(rect);
        w.WritePointer(&pixels);
        w.WritePointer(&pixels);
        ok = Save(dir + "/regions", 0, w) && ok;
    }
    {
        os_bstream w;
        w.WriteValue(elem);
        w.WritePointer(&square);
        ok = Save(dir + "/elements", 1, w) && ok;
    }
    {
        os_bstream w;
        w.WriteBool(true);
        w.WriteInt(-5);
        w.WriteUnsigned(7);
        w.WriteFloat(0.5f);
        w.WriteDouble(-1.25);
        w.WriteChunk("seed", 4);
        w.WritePointer(&mask);
        ok = Save(dir + "/values", 2, w) && ok;
    }
    {
        os_bstream w;
        w.WritePointer(&masked);
        w.WritePointer(&elem);
        w.WritePointer(&masked);
        w.WritePointer(&square);
        w.WritePointer(&rect);
        ok = Save(dir + "/pointers", 3, w) && ok;
    }
    {
        Buffer patch(6, 4, EIGHT);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 6; ++x) patch.Row(y)[x] = static_cast<uint8_t>(x * 40 + y);
        CorrTemplate tpl(&patch, 1), none(nullptr, 0);
        tpl.SetHotSpot(Point{2, 1});
        os_bstream w;
        w.WriteValue(tpl);
        w.WritePointer(&none);
        ok = Save(dir + "/templates", 4, w) && ok;
    }
    return ok ? 0 : 1;
}

#endif
