// SPDX-License-Identifier: MIT
/// \file
/// Break detection: compares a binary image (bit value 1 set) with a binary template and a dilated copy of
/// the image, and leaves in the buffer `breaks` the pixels the pipeline below marks as breaks.
///
/// Pipeline (PreGo builds it once; Go runs it; every step's negative status ends the run with it):
///   arith2   CTsame  = (dilated AND template) x 3       the common pixels, frozen (byte 3)
///   arith3   CTdiff  = image XOR template               (exclusive-or mode), or
///   arith3   CTdiffa = BINARIZE(image, 0..0)             (binarize-and-mask mode: the clear image pixels)
///   arith3a  CTdiff  = CTdiffa AND template
///   arith4   work0   = CTsame OR CTdiff
///   n times: bmaLeft work0->work1, bmaUp work1->work0, bmaRight work0->work1, bmaDown work1->work0
///   bmaTFP   work0->work1; (converging mode: savebuf = work1); arith  breaks = BINARIZE(work1, 1..1)
///   n times: bmaTLPt breaks->work1 (ETPTL), bmaBRPt work1->breaks (ETPBR)
/// Every morphology agent makes one pass with the agent's border mode. n is the iteration count; 0 selects 4
/// passes and the converging mode, in which PostGo refines: savebuf copied to work0, the four directional
/// passes repeated until none of their changed flags is set, arith; then bmaTLPt, and bmaBRPt / bmaTLPt in
/// turn until their set-pixel counts agree. (Every one of these passes only clears pixels, so the rounds end;
/// they are also capped at one per pixel.)
///
/// Regions: the region (at the agent's origin) selects what arith2 and arith3 read from the image, the
/// template and the dilated image; their results, and everything after them, lie in the intermediate buffers
/// from (0, 0). Each intermediate buffer has the image's size.
///
/// Film strip: three vectors of frames of equal length are stacked top to bottom into one strip each (width
/// the widest frame, height the sum of heights, frames at the left); a copy agent per strip refreshes it at
/// the start of every Go, and after the run FrameCounts() holds the set pixels of `breaks` in each frame's
/// band.
///
/// Statuses: a strip buffer without memory -22500 - |status|; an intermediate buffer without memory
/// -23500 - |status| (savebuf is deleted first). A missing buffer or agent is reported by an assertion
/// (module break) whose text is its name, and the run returns kBreakMissing.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ombrel/framework/agent.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"
#include "ombrel/morph/binmorph.h"
#include "ombrel/pixelops/arith.h"

namespace ombrel {

/// Status base of a strip buffer without memory (see the statuses above).
constexpr int kBreakStripBase = -22500;
/// Status base of an intermediate buffer without memory (see the statuses above).
constexpr int kBreakBufferBase = -23500;
/// PreGo or Go found a buffer or agent missing (after its assertion).
constexpr int kBreakMissing = -23400;

/// Break detection on binary images against a template, as the pipeline in break.h describes; the breaks
/// found are the set pixels of Breaks() after Go. Constructed directly (there is no factory).
class OMBREL_API BreakAgent : public Agent {
  public:
    ///@{
    /// Image `image` (the agent's source) against `theTemplate` and `dilatedImage`, with `border` for the
    /// morphology passes, `iterations` passes (0: converging mode) and `xorMode` (1: exclusive-or, 0:
    /// binarize-and-mask), over the whole image, the rectangle `r`, or `roi` placed at `p`.
    BreakAgent(Buffer* image, Buffer* theTemplate, Buffer* dilatedImage, BMBORDER border, int iterations,
               int xorMode);
    BreakAgent(Buffer* image, Buffer* theTemplate, Buffer* dilatedImage, Rect r, BMBORDER border,
               int iterations, int xorMode);
    BreakAgent(Buffer* image, Buffer* theTemplate, Buffer* dilatedImage, Point p, const ROI& roi,
               BMBORDER border, int iterations, int xorMode);
    ///@}
    /// Film-strip mode; asserts "(image->size() == theTemplate->size()) && (theTemplate->size() ==
    /// DilatedImage->size())" (module break).
    BreakAgent(std::vector<Buffer*>* images, std::vector<Buffer*>* templates, std::vector<Buffer*>* dilated,
               BMBORDER border, int iterations, int xorMode);
    ~BreakAgent() override;

    /// Builds buffers and sub-agents (once; a second call returns 0 at once). The flag is kept for callers
    /// that pass one; it changes nothing.
    int PreGo(bool rebuild = false);
    /// Runs PreGo first when it has not run.
    int Go() override;
    /// The converging mode's refinement (see above); 0 when not converging.
    int PostGo();

    /// True when the iteration count is 0.
    bool Converging() const { return _iterations == 0; }
    /// True once PreGo has built the pipeline.
    bool Built() const { return _built; }
    ///@{
    /// The intermediate buffers and sub-agents by their names ("CTsame", "work0", "breaks", "savebuf",
    /// "arith3a", "bmaTFP", "bmopETPTL", ...); null when absent.
    Buffer* GetBuffer(const std::string& name) const;
    ArithAgent* GetArith(const std::string& name) const;
    BinMorphAgent* GetMorph(const std::string& name) const;
    BinMorphOperator* GetOperator(const std::string& name) const;
    ///@}
    /// The buffer whose set pixels are the breaks (8-bit, bit value 1).
    Buffer* Breaks() const { return GetBuffer("breaks"); }
    /// Film strip: set pixels of `breaks` per frame after Go.
    const std::vector<int>& FrameCounts() const { return _counts; }

  private:
    struct Named;
    void Init(Buffer* templ, Buffer* dilated, BMBORDER border, int iterations, int xorMode);
    int FilmStripPreGo();
    int FilmStripGo();
    void GetCounts();
    int MakeBuffers();
    int Build();
    int CheckBuilt();
    int RunDirectional(int times);
    int RunEndPoints(int times);

    Buffer* _srcTemplate = nullptr;
    Buffer* _srcDilatedBuf = nullptr;
    std::vector<Buffer*>* _srcImage = nullptr;
    std::vector<Buffer*>* _srcTemplates = nullptr;
    std::vector<Buffer*>* _srcDilated = nullptr;
    BMBORDER _border = BMBORDER_CLEAR;
    int32_t _iterations = 0;
    int32_t _xorMode = 1;
    bool _built = false;
    bool _filmStrip = false;
    std::vector<int> _counts;
    std::unique_ptr<Named> _named;
};

}  // namespace ombrel
