// SPDX-License-Identifier: MIT
/// \file
/// Normalised correlation match: a CorrTemplate slid over a search region, every visited position scored.
///
/// Positions. The search region (_sPt, _sRoi) names hot-spot positions; the template's top-left then runs
/// over ix in [ix_start, ix_stop) by _xStep and iy in [iy_start, iy_stop) by _yStep, with
///     ix_start = max(_sPt.x - hot.x, 0), ix_stop = min(_sPt.x - hot.x + region width, source width + 1 - tw)
/// (the stop from the unclipped start) and the same for y, so the whole template always lies inside the
/// source: the work is clipped to the part inside the buffer. An empty range prints the warning, PreGo
/// returns -1 and Go returns 1 without writing anything. The region's mask, if any, is not used.
///
/// Score of a position: CorrTemplate::FastComputeSums on the source pixel (ix, iy), image bytes signed with
/// the image-signed setting, template bytes signed per the template-signed setting (PreGo recomputes the
/// template for it, and unmasks it: a match always runs unmasked). List mode scores |r|, single-point mode
/// r^2. Every path (integral column sums for sumI and sumI2, SIMD multiply-add for sumTI) yields exactly the
/// integer sums of the plain loop, and the score comes from the one formula CorrScore, so all paths give
/// identical doubles.
///
/// Best point: replaced when (score == 0 and best == 0) or best < score: the first of equal positive scores
/// in raster order wins; while all scores are 0 the latest position is kept.
///
/// Codes: PreGo -13500 - |error word| (template error), -13505 no memory for the lists, -1 empty range; they
/// are ORed into the error word and Go then returns 1. Ours, for safety: a null source or template, a source
/// that is not 8-bit or a step below 1 also give an empty range (-1) after their assertions; a Go after a
/// setter changed the agent (_dirty) reports "!_dirty" and then prepares the run again before it goes on.
///
/// Extensions of ours, never changing a score: RefinePeak (sub-pixel peak from the 3x3 neighbourhood of list
/// scores, one parabola per axis) and CorrTopN (the best N scores at least a minimum distance apart).
#pragma once
#include <cstdint>
#include <vector>

#include "ombrel/corr/corr_template.h"
#include "ombrel/framework/agent.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"

namespace ombrel {

/// The positions a match scored. The lists are the result's, allocated with malloc and released with free.
class OMBREL_API CorrResult {
  public:
    ///@{
    /// An empty result (lists allocated by the match); not copyable; frees its lists.
    CorrResult() = default;
    CorrResult(const CorrResult&) = delete;
    CorrResult& operator=(const CorrResult&) = delete;
    ~CorrResult() { FreeLists(); }
    ///@}

    void Sort();  ///< _sortedCorrPtList by descending score (qsort with CorrResultCompare)
    /// Frees both lists; the result is empty again.
    void FreeLists();
    /// Positions scored by the last list-mode run: At(k) in raster order, Sorted(k) best first.
    int Count() const { return _count; }
    const CorrPoint& At(int k) const { return _corrPtList[k]; }             ///< raster order
    const CorrPoint& Sorted(int k) const { return *_sortedCorrPtList[k]; }  ///< best first

    CorrPoint* _corrPtList = nullptr;  ///< one per position, plus the best point at the end
    CorrPoint** _sortedCorrPtList = nullptr;
    void* _reserved = nullptr;  ///< not used
    int32_t _count = 0;
};

/// qsort comparison: null -> 0; a.score < b.score -> 1; equal -> 0; else -1 (descending).
OMBREL_API int CorrResultCompare(const void* a, const void* b);

/// A sub-pixel peak (ours): the hot-spot position and the interpolated score.
struct CorrSubpixel {
    /// hot-spot position, sub-pixel
    Fpoint position;
    /// interpolated score
    double score = 0.0;
};

/// Normalised grey-level correlation of a CorrTemplate over a search region: list mode scores every position
/// into a CorrResult, single-point mode keeps the best in a CorrPoint (rules in corr_match.h). Made by
/// CorrMatchFact.
class OMBREL_API CorrMatchAgent : public Agent {
  public:
    ///@{
    /// List mode.
    CorrMatchAgent(Buffer* src, CorrTemplate* tpl, CorrResult* result, int imgSigned, int tplSigned,
                   int xStep, int yStep);
    CorrMatchAgent(Buffer* src, Rect r, CorrTemplate* tpl, CorrResult* result, int imgSigned, int tplSigned,
                   int xStep, int yStep);
    CorrMatchAgent(Buffer* src, Point* p, ROI* roi, CorrTemplate* tpl, CorrResult* result, int imgSigned,
                   int tplSigned, int xStep, int yStep);
    ///@}
    ///@{
    /// Single-point mode.
    CorrMatchAgent(Buffer* src, CorrTemplate* tpl, CorrPoint* best, int imgSigned, int tplSigned, int xStep,
                   int yStep);
    CorrMatchAgent(Buffer* src, Rect r, CorrTemplate* tpl, CorrPoint* best, int imgSigned, int tplSigned,
                   int xStep, int yStep);
    CorrMatchAgent(Buffer* src, Point* p, ROI* roi, CorrTemplate* tpl, CorrPoint* best, int imgSigned,
                   int tplSigned, int xStep, int yStep);
    ///@}
    ~CorrMatchAgent() override = default;

    ///@{
    /// As the base class's; the next Go prepares the run again.
    void SetSrcBuf(Buffer* src) override;
    void SetSrcPt(const Point& p) override;
    void SetExtent(const double& w, const double& h) override;
    void SetExtent(int w, int h) override;
    void SetSrcROI(const ROI& roi) override;
    ///@}

    /// Works out the search range and allocates the lists; 0, or a negative code (see above).
    int PreGo();
    /// 1 scores r^2 (no root), 0 scores |r|; the constructors pick it by mode.
    void SetPositionOnly(int on) { _positionOnly = on; }
    /// The error word (codes ORed in by PreGo).
    int GetError() const { return _error; }
    /// Status of the last Go.
    int GetStatus() const { return _status; }
    /// The best point of the last run.
    const CorrPoint* GetBest() const { return _best; }
    /// The template top-left range PreGo worked out (stops exclusive).
    Rect SearchRange() const { return Rect{_ixStart, _iyStart, _ixStop, _iyStop}; }
    ///@{
    /// Positions per row and rows of a list-mode run.
    int Columns() const;
    int Rows() const;
    ///@}

    /// Ours: refines list entry k (raster index) from its 3x3 neighbourhood of scores; an axis at the edge of
    /// the grid, or without a peak along it, keeps its integer position. False when there is no list entry k.
    bool RefinePeak(int k, CorrSubpixel* out) const;

  protected:
    /// The shared part of the constructors.
    void Init(CorrTemplate* tpl, CorrResult* result, CorrPoint* best, int imgSigned, int tplSigned, int xStep,
              int yStep, int mode);

    CorrTemplate* _corrTemplate = nullptr;
    CorrResult* _corrResults = nullptr;
    CorrPoint* _best = nullptr;
    int32_t _xStep = 1, _yStep = 1;
    int32_t _imgSigned = 0;
    int32_t _tplSigned = 0;
    int32_t _maskSetting = 0;
    int32_t _mode = 0;
    int32_t _dirty = 1;
    int32_t _positionOnly = 0;
    int32_t _status = 0;
    int32_t _tw = 0, _th = 0;
    uint8_t* _tplBase = nullptr;
    uint8_t* _srcBase = nullptr;
    int32_t _ixStart = 0, _ixStop = 0, _iyStart = 0, _iyStop = 0;
    int32_t _error = 0;
    bool _prepared = false;  ///< ours: PreGo left a range and lists Go may use
};

/// The software correlation agent (host buffers).
class OMBREL_API swCorrMatchAgent : public CorrMatchAgent {
  public:
    /// The constructors of CorrMatchAgent.
    using CorrMatchAgent::CorrMatchAgent;
    int Go() override;

  private:
    bool RunFast();
    bool Reserve(int width, int span, int cols);
    int64_t PrepareTemplate();
    void WindowSums(const int64_t* col, const int64_t* col2, int tw, int span, int cols);
    void CrossSpans(int iy, int rows, int span);
    void CrossSums(int iy, int cols, int span, int j);
    void KeepRow(int iy, int cols, int64_t* k);
    void KeepBestOfRow(int hotX, int y, int cols);
    void RunPlain();
    void Score(CorrPoint* pt, int ix, int iy);
    void Visit(CorrPoint* pt, int ix, int iy, double score);
    CorrPoint* NextPoint(int64_t k);

    // Working rows of the fast path, grown on the first Go that needs them and reused after.
    std::vector<int8_t> _tplPrepared;  // template bytes as the cross-row kernels take them
    std::vector<int64_t> _col, _col2, _winI, _winI2, _spanTI, _rowI, _rowI2, _rowTI;
    std::vector<double> _rowScore;
    std::vector<uint64_t> _sortKeys, _sortA, _sortB;  // list mode: the scores' sort keys and sort space
    int64_t _tplSum = 0;                              // sum of the prepared template bytes
};

///@{
/// The list-mode agent for a host source; null for a board source (no back end in this build).
OMBREL_API CorrMatchAgent* CorrMatchFact(Buffer* src, CorrTemplate* tpl, CorrResult* result, int imgSigned,
                                         int tplSigned, int xStep, int yStep);
OMBREL_API CorrMatchAgent* CorrMatchFact(Buffer* src, Rect r, CorrTemplate* tpl, CorrResult* result,
                                         int imgSigned, int tplSigned, int xStep, int yStep);
OMBREL_API CorrMatchAgent* CorrMatchFact(Buffer* src, int left, int top, int right, int bottom,
                                         CorrTemplate* tpl, CorrResult* result, int imgSigned, int tplSigned,
                                         int xStep, int yStep);
OMBREL_API CorrMatchAgent* CorrMatchFact(Buffer* src, Point* p, ROI* roi, CorrTemplate* tpl,
                                         CorrResult* result, int imgSigned, int tplSigned, int xStep,
                                         int yStep);
///@}
///@{
/// The single-point agent for a host source; null for a board source (no back end in this build).
OMBREL_API CorrMatchAgent* CorrMatchFact(Buffer* src, CorrTemplate* tpl, CorrPoint* best, int imgSigned,
                                         int tplSigned, int xStep, int yStep);
OMBREL_API CorrMatchAgent* CorrMatchFact(Buffer* src, Rect r, CorrTemplate* tpl, CorrPoint* best,
                                         int imgSigned, int tplSigned, int xStep, int yStep);
OMBREL_API CorrMatchAgent* CorrMatchFact(Buffer* src, int left, int top, int right, int bottom,
                                         CorrTemplate* tpl, CorrPoint* best, int imgSigned, int tplSigned,
                                         int xStep, int yStep);
OMBREL_API CorrMatchAgent* CorrMatchFact(Buffer* src, Point* p, ROI* roi, CorrTemplate* tpl, CorrPoint* best,
                                         int imgSigned, int tplSigned, int xStep, int yStep);
///@}

/// Ours: up to n list entries, best first, each at least minDistance (pixels, Euclidean) from every one kept
/// before it. Needs a sorted result (Go sorts).
OMBREL_API std::vector<CorrPoint> CorrTopN(const CorrResult& result, int n, double minDistance);

///@{
/// The integer correlation sums over rows x cols pixels; skips (pitch - width) are added after each row.
/// Rows < 1 gives all outputs 0. Template bytes 0 are left out in the MASK forms.
OMBREL_API void CORR_SUM_NO_MASK(uint32_t& sumI, uint32_t& sumI2, uint32_t& sumTI, const unsigned char* img,
                                 const unsigned char* tpl, int imgSkip, int tplSkip, int rows, int cols);
OMBREL_API void CORR_SUM_MASK(uint32_t& sumI, uint32_t& sumI2, uint32_t& sumTI, const unsigned char* img,
                              const unsigned char* tpl, int imgSkip, int tplSkip, int rows, int cols);
///@}
///@{
/// 64-bit forms: sumI2 and sumTI come back as low and high 32-bit words (sumTI two's complement with a
/// signed template).
OMBREL_API void OA_CORR_SUM_NO_MASK(uint32_t& sumI, uint32_t& sumI2Lo, uint32_t& sumTILo, uint32_t& sumTIHi,
                                    uint32_t& sumI2Hi, const unsigned char* img, const unsigned char* tpl,
                                    int imgSkip, int tplSkip, int rows, int cols);
OMBREL_API void OA_CORR_SUM_NO_MASK(uint32_t& sumI, uint32_t& sumI2Lo, uint32_t& sumTILo, uint32_t& sumTIHi,
                                    uint32_t& sumI2Hi, const unsigned char* img, const char* tpl, int imgSkip,
                                    int tplSkip, int rows, int cols);
OMBREL_API void OA_CORR_SUM_MASK(uint32_t& sumI, uint32_t& sumI2Lo, uint32_t& sumTILo, uint32_t& sumTIHi,
                                 uint32_t& sumI2Hi, const unsigned char* img, const unsigned char* tpl,
                                 int imgSkip, int tplSkip, int rows, int cols);
OMBREL_API void OA_CORR_SUM_MASK(uint32_t& sumI, uint32_t& sumI2Lo, uint32_t& sumTILo, uint32_t& sumTIHi,
                                 uint32_t& sumI2Hi, const unsigned char* img, const char* tpl, int imgSkip,
                                 int tplSkip, int rows, int cols);
///@}

/// What swComputeScores needs of a search template: its 8-bit buffer, signed and mask flags, the integer sum
/// of its bytes and its variance per pixel (sum t^2 / N - (sum t / N)^2), N = width x height.
struct OMBREL_API CorrTempl {
    /// the template's 8-bit buffer
    Buffer* buffer = nullptr;
    /// template bytes signed
    int32_t isSigned = 0;
    /// template bytes 0 left out
    int32_t mask = 0;
    /// integer sum of the template bytes
    int32_t sum = 0;
    /// variance per pixel
    double variance = 0.0;
    /// Ours: the fields from a trained template, N = width x height whatever its region or mask.
    static CorrTempl From(const CorrTemplate& t);
};

/// Scores the first n positions (template top-left; n = -1: all; capped at their number) into scores (grown
/// to n entries if shorter): 0 where the template would touch or pass the last column or row, and (ours, for
/// safety) where a position is negative or the buffers have no 8-bit pixels. root: r; else r*|r|. Returns a
/// point at (0, 0) with the score and sums of the last position computed. `unused` is ignored.
OMBREL_API CorrPoint swComputeScores(CorrTempl* tpl, Buffer* img, const std::vector<Point>& positions,
                                     std::vector<float>& scores, int n, bool unused, bool root);

}  // namespace ombrel
