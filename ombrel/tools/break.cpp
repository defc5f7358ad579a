// SPDX-License-Identifier: MIT
#include "ombrel/tools/break.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <new>

#include "ombrel/framework/hal.h"

namespace ombrel {

// Everything PreGo builds, by name.
struct BreakAgent::Named {
    std::map<std::string, std::unique_ptr<Buffer>> buffers;
    std::map<std::string, std::unique_ptr<ArithAgent>> ariths;
    std::map<std::string, std::unique_ptr<BinMorphOperator>> operators;
    std::map<std::string, std::unique_ptr<BinMorphAgent>> morphs;
    std::vector<int> frameTops, frameHeights;
};

namespace {

constexpr const char* kBuffers[] = {"CTsame", "CTdiff", "CTdiffa", "work0", "work1", "breaks"};
constexpr const char* kStrips[] = {"imageStrip", "templateStrip", "dilatedStrip"};

int BufferStatus(const Buffer* b) {
    return b == nullptr ? BUFFER_NO_MEMORY : b->GetError();
}

}  // namespace

BreakAgent::BreakAgent(Buffer* image, Buffer* theTemplate, Buffer* dilatedImage, BMBORDER border,
                       int iterations, int xorMode) {
    Setup(image);  // not Agent(Buffer*), which would clear the caller's refresh callback
    Init(theTemplate, dilatedImage, border, iterations, xorMode);
}

BreakAgent::BreakAgent(Buffer* image, Buffer* theTemplate, Buffer* dilatedImage, Rect r, BMBORDER border,
                       int iterations, int xorMode)
    : Agent(image, r) {
    Init(theTemplate, dilatedImage, border, iterations, xorMode);
}

BreakAgent::BreakAgent(Buffer* image, Buffer* theTemplate, Buffer* dilatedImage, Point p, const ROI& roi,
                       BMBORDER border, int iterations, int xorMode)
    : Agent(image, p, roi) {
    Init(theTemplate, dilatedImage, border, iterations, xorMode);
}

BreakAgent::BreakAgent(std::vector<Buffer*>* images, std::vector<Buffer*>* templates,
                       std::vector<Buffer*>* dilated, BMBORDER border, int iterations, int xorMode) {
    Init(nullptr, nullptr, border, iterations, xorMode);
    _filmStrip = true;
    _srcImage = images, _srcTemplates = templates, _srcDilated = dilated;
    const bool same = images && templates && dilated && images->size() == templates->size() &&
                      templates->size() == dilated->size();
    Check(same, "break", __LINE__,
          "(image->size() == theTemplate->size()) && (theTemplate->size() == DilatedImage->size())");
}

BreakAgent::~BreakAgent() = default;

void BreakAgent::Init(Buffer* templ, Buffer* dilated, BMBORDER border, int iterations, int xorMode) {
    _srcTemplate = templ;
    _srcDilatedBuf = dilated;
    _border = border;
    _iterations = std::max(iterations, 0);
    _xorMode = xorMode;
    _named.reset(new (std::nothrow) Named);  // without it every part counts as missing
}

Buffer* BreakAgent::GetBuffer(const std::string& name) const {
    if (_named == nullptr) return nullptr;
    auto it = _named->buffers.find(name);
    return it == _named->buffers.end() ? nullptr : it->second.get();
}

ArithAgent* BreakAgent::GetArith(const std::string& name) const {
    if (_named == nullptr) return nullptr;
    auto it = _named->ariths.find(name);
    return it == _named->ariths.end() ? nullptr : it->second.get();
}

BinMorphAgent* BreakAgent::GetMorph(const std::string& name) const {
    if (_named == nullptr) return nullptr;
    auto it = _named->morphs.find(name);
    return it == _named->morphs.end() ? nullptr : it->second.get();
}

BinMorphOperator* BreakAgent::GetOperator(const std::string& name) const {
    if (_named == nullptr) return nullptr;
    auto it = _named->operators.find(name);
    return it == _named->operators.end() ? nullptr : it->second.get();
}

// Stacks each frame vector into one strip: the widest frame's width, the heights summed, frames at the left.
int BreakAgent::FilmStripPreGo() {
    if (!_srcImage || !_srcTemplates || !_srcDilated || _srcImage->empty() ||
        _srcImage->size() != _srcTemplates->size() || _srcTemplates->size() != _srcDilated->size())
        return 0;  // reported by the constructor's assertion; CheckBuilt names what is missing
    int64_t width = 0, height = 0;
    for (const Buffer* frame : *_srcImage) {
        if (frame == nullptr) return 0;
        _named->frameTops.push_back(static_cast<int>(height));
        _named->frameHeights.push_back(frame->Height());
        width = std::max<int64_t>(width, frame->Width());
        height += frame->Height();
    }
    if (height > INT32_MAX) return kBreakStripBase - std::abs(BUFFER_BAD_SIZE);
    for (const char* name : kStrips) {
        auto strip = std::unique_ptr<Buffer>(
            new (std::nothrow) Buffer(static_cast<int>(width), static_cast<int>(height), EIGHT));
        const int status = BufferStatus(strip.get());
        if (status != 0) return kBreakStripBase - std::abs(status);
        _named->buffers[name] = std::move(strip);
    }
    _srcBuf = GetBuffer("imageStrip");
    _srcTemplate = GetBuffer("templateStrip");
    _srcDilatedBuf = GetBuffer("dilatedStrip");
    Setup(_srcBuf);
    return 0;
}

// The three strip copies: each frame into its band.
int BreakAgent::FilmStripGo() {
    const std::vector<Buffer*>* frames[] = {_srcImage, _srcTemplates, _srcDilated};
    for (int s = 0; s < 3; ++s) {
        Buffer* strip = GetBuffer(kStrips[s]);
        if (strip == nullptr) return kBreakMissing;
        for (size_t f = 0; f < frames[s]->size() && f < _named->frameTops.size(); ++f) {
            const Buffer* frame = (*frames[s])[f];
            if (frame == nullptr) continue;
            strip->CopyFrom(frame, Rect{0, 0, frame->Width(), frame->Height()},
                            Point{0, _named->frameTops[f]});
        }
    }
    return 0;
}

void BreakAgent::GetCounts() {
    const Buffer* breaks = Breaks();
    _counts.assign(_named->frameTops.size(), 0);
    if (breaks == nullptr) return;
    for (size_t f = 0; f < _counts.size(); ++f)
        for (int y = _named->frameTops[f];
             y < _named->frameTops[f] + _named->frameHeights[f] && y < breaks->Height(); ++y)
            for (int x = 0; x < breaks->Width(); ++x) _counts[f] += breaks->Row(y)[x] & 1;
}

int BreakAgent::MakeBuffers() {
    const int w = _srcBuf->Width(), h = _srcBuf->Height();
    std::vector<const char*> names(std::begin(kBuffers), std::end(kBuffers));
    if (Converging()) names.push_back("savebuf");
    for (const char* name : names) {
        auto buffer = std::unique_ptr<Buffer>(new (std::nothrow) Buffer(w, h, EIGHT));
        const int status = BufferStatus(buffer.get());
        if (status != 0) return kBreakBufferBase - std::abs(status);  // savebuf: deleted here too
        _named->buffers[name] = std::move(buffer);
    }
    return 0;
}

int BreakAgent::PreGo(bool) {
    if (_built) return 0;
    if (_named == nullptr) return CheckBuilt();
    // The name tables need memory as well as the buffers: a part whose entry could not be made is missing,
    // and the next Go tries again.
    try {
        return Build();
    } catch (const std::bad_alloc&) {
        return CheckBuilt();
    }
}

int BreakAgent::Build() {
    if (_filmStrip) {
        const int status = FilmStripPreGo();
        if (status < 0) return status;
    }
    if (_srcBuf != nullptr) {
        const int status = MakeBuffers();
        if (status < 0) return status;
    }
    auto B = [&](const char* name) { return GetBuffer(name); };
    auto& ariths = _named->ariths;
    const Point origin{0, 0};
    if (_srcBuf && _srcTemplate && _srcDilatedBuf && B("CTsame")) {
        ariths["arith2"].reset(
            ArithFact(_srcDilatedBuf, _sPt, _sRoi, _srcTemplate, _ARITH_AND, 3.0f, 0, B("CTsame")));
        if (_xorMode) {
            ariths["arith3"].reset(
                ArithFact(_srcBuf, _sPt, _sRoi, _srcTemplate, _ARITH_XOR, 1.0f, 0, B("CTdiff")));
        } else {
            ariths["arith3"].reset(
                ArithFact(_srcBuf, _sPt, _sRoi, nullptr, _ARITH_BINARIZE, 1.0f, 0, B("CTdiffa")));
            if (ariths["arith3"]) ariths["arith3"]->SetBand(0, 0);
            ariths["arith3a"].reset(
                ArithFact(B("CTdiffa"), origin, _sRoi, _srcTemplate, _ARITH_AND, 1.0f, 0, B("CTdiff")));
        }
        // The template is read at the region's corner by the agents that take it as source B; the binarize
        // step of binarize-and-mask mode has no source B, and setting a corner there only reports.
        for (const char* name : {"arith2", _xorMode ? "arith3" : "arith3a"})
            if (ariths.count(name) && ariths[name]) ariths[name]->SetCornerB(_sPt);
        ariths["arith4"].reset(ArithFact(B("CTsame"), B("CTdiff"), _ARITH_OR, 1.0f, 0, B("work0")));
        ariths["arith"].reset(ArithFact(B("work1"), nullptr, _ARITH_BINARIZE, 1.0f, 0, B("breaks")));
        if (ariths["arith"]) ariths["arith"]->SetBand(1, 1);
    }
    const std::pair<const char*, BinMorphOpCode> operators[] = {
        {"bmopUp", Up},       {"bmopDown", Down},   {"bmopLeft", Left}, {"bmopRight", Right},
        {"bmopETPTL", ETPTL}, {"bmopETPBR", ETPBR}, {"bmopTFP", TFP}};
    for (const auto& [name, code] : operators)
        _named->operators[name].reset(new (std::nothrow) BinMorphOperator(code));
    struct MorphPlan {
        const char *name, *from, *to, *op;
    };
    const MorphPlan morphs[] = {
        {"bmaLeft", "work0", "work1", "bmopLeft"},   {"bmaUp", "work1", "work0", "bmopUp"},
        {"bmaRight", "work0", "work1", "bmopRight"}, {"bmaDown", "work1", "work0", "bmopDown"},
        {"bmaTFP", "work0", "work1", "bmopTFP"},     {"bmaTLPt", "breaks", "work1", "bmopETPTL"},
        {"bmaBRPt", "work1", "breaks", "bmopETPBR"}};
    for (const MorphPlan& m : morphs)
        if (B(m.from) && B(m.to))
            _named->morphs[m.name].reset(BinMorphFact(B(m.from), B(m.to), _border, GetOperator(m.op), 1));
    if (_filmStrip) _counts.assign(_named->frameTops.size(), 0);  // the per-frame counts, ready for GetCounts
    _built = true;
    return CheckBuilt();
}

// Every buffer and agent the run needs, each reported by its name when missing.
int BreakAgent::CheckBuilt() {
    // Allocates nothing (it also runs when memory has run out); the names fit std::string's own storage.
    bool ok = Check(_srcBuf != nullptr || _srcImage != nullptr, "break", __LINE__, "_srcBuf || _srcImage");
    for (const char* name : kBuffers) ok &= Check(GetBuffer(name) != nullptr, "break", __LINE__, name);
    if (Converging()) ok &= Check(GetBuffer("savebuf") != nullptr, "break", __LINE__, "savebuf");
    for (const char* name : {"arith2", "arith3", "arith4", "arith"})
        ok &= Check(GetArith(name) != nullptr, "break", __LINE__, name);
    if (!_xorMode) ok &= Check(GetArith("arith3a") != nullptr, "break", __LINE__, "arith3a");
    for (const char* name :
         {"bmopUp", "bmopDown", "bmopLeft", "bmopRight", "bmopETPTL", "bmopETPBR", "bmopTFP"})
        ok &= Check(GetOperator(name) != nullptr, "break", __LINE__, name);
    for (const char* name : {"bmaLeft", "bmaUp", "bmaRight", "bmaDown", "bmaTFP", "bmaTLPt", "bmaBRPt"})
        ok &= Check(GetMorph(name) != nullptr, "break", __LINE__, name);
    return ok ? 0 : kBreakMissing;
}

int BreakAgent::RunDirectional(int times) {
    for (int i = 0; i < times; ++i)
        for (const char* name : {"bmaLeft", "bmaUp", "bmaRight", "bmaDown"}) {
            const int status = GetMorph(name)->Go();
            if (status < 0) return status;
        }
    return 0;
}

int BreakAgent::RunEndPoints(int times) {
    for (int i = 0; i < times; ++i)
        for (const char* name : {"bmaTLPt", "bmaBRPt"}) {
            const int status = GetMorph(name)->Go();
            if (status < 0) return status;
        }
    return 0;
}

int BreakAgent::Go() {
    if (!_built) {
        const int status = PreGo(false);
        if (status < 0) return status;
    }
    if (CheckBuilt() != 0) return kBreakMissing;
    if (_filmStrip) {
        const int status = FilmStripGo();
        if (status < 0) return status;
    }
    for (const char* name : {"arith2", "arith3", "arith3a", "arith4"}) {
        ArithAgent* agent = GetArith(name);
        if (agent == nullptr) continue;  // arith3a exists in binarize-and-mask mode only
        const int status = agent->Go();
        if (status < 0) return status;
    }
    const int passes = Converging() ? 4 : _iterations;
    int status = RunDirectional(passes);
    if (status < 0) return status;
    if ((status = GetMorph("bmaTFP")->Go()) < 0) return status;
    if (Converging()) GetBuffer("savebuf")->CopyFrom(GetBuffer("work1"));
    if ((status = GetArith("arith")->Go()) < 0) return status;
    if ((status = RunEndPoints(passes)) < 0) return status;
    if (_filmStrip) GetCounts();
    return 0;
}

int BreakAgent::PostGo() {
    if (!Converging() || !_built || CheckBuilt() != 0) return 0;
    const Buffer* work0 = GetBuffer("work0");
    const int64_t cap = int64_t{work0->Width()} * work0->Height() + 1;
    GetBuffer("work0")->CopyFrom(GetBuffer("savebuf"));
    for (int64_t round = 0; round < cap; ++round) {
        const int status = RunDirectional(1);
        if (status < 0) return status;
        bool changed = false;
        for (const char* name : {"bmaLeft", "bmaUp", "bmaRight", "bmaDown"})
            changed |= GetMorph(name)->Changed() != 0;
        if (!changed) break;
    }
    int status = GetArith("arith")->Go();
    if (status < 0) return status;
    BinMorphAgent* tl = GetMorph("bmaTLPt");
    BinMorphAgent* br = GetMorph("bmaBRPt");
    if ((status = tl->Go()) < 0) return status;
    for (int64_t round = 0; round < cap; ++round) {
        if ((status = br->Go()) < 0) return status;
        if (tl->SetPixelCount() == br->SetPixelCount()) break;
        if ((status = tl->Go()) < 0) return status;
    }
    if (_filmStrip) GetCounts();
    return 0;
}

}  // namespace ombrel
