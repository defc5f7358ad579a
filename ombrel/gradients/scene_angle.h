// SPDX-License-Identifier: MIT
/// \file
/// The scene angle agent: the dominant edge direction of a region from the histogram of its strong gradient
/// directions, folded so that directions a quarter turn apart coincide, and the rotation between two scenes.
///
/// Contract (software agent; any board agent gives the same histograms and results):
///   Go: the Sobel agent runs on the region's rectangle (source point to source point + extent, the mask is
///   not used) with QANGLE, shift 2, threshold 15, sparseness 1; the 256-bin histogram of its output gives
///   hist[k] = count of bin 128 + k, k = 0..127 (strong pixels by 7-bit direction, 2.8125 degrees a code).
///   HistBasedAngle, n = number of folded bins (32, 64 or 128 for fold modes 2, 1, 0), w = the weight table:
///     folded[k] = (h[k] (+ h[k+64] in mode 1) (+ h[k+32] + h[k+64] + h[k+96] in mode 2)) * w[k mod 32]
///       (float; the weight only when weights are on);  T = h[0] + ... + h[n-1] (unfolded, first n only);
///     peak: over k = 0..n-1 the run of bins k-4..k (cyclic), whose middle k-2 becomes the peak when it is
///       strictly greater than the best so far (from 0); L2 L1 P R1 R2 the peak's run, k its step;
///     coverage = T * 100 / (width * height) (0 for an empty region), strength = P * 1000 / T (0 when T = 0);
///     sub-bin offset d by a three-point parabola through the best-placed triple (see the source), with the
///       report ("sceneangle", 295, "0") and d = 0 where no triple fits;  angle = -2 pi (k + d) / 128
///       radians.
///   AngleDiff: Pearson correlation r(s) of the two folded sequences at every cyclic shift s, the first s
///   with the largest positive r (0 when none is positive), refined by the three- or five-point fit, times 2
///   pi / 128. Each cyclic sum adds its terms in increasing order, so r(s) = r(-s) exactly when both
///   sequences are equal, and two agents on the same image give exactly 0.
///   pi is the library's 3.14159265358789. foldSpread = sqrt(max(0, n * sumSq - sum^2)).
/// Work is clipped to the part of the region inside the source (the Sobel agent's rule); the intermediate
/// image and sub-agents are kept between runs, so a run after the first allocates nothing.
#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include "ombrel/framework/agent.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"
#include "ombrel/gradients/sobel.h"
#include "ombrel/pixelops/histogram.h"

namespace ombrel {

/// Go's status when the intermediate image cannot be made.
inline constexpr int32_t kSceneAngleNoMemory = -1;

/// The fixed per-bin correction of folded direction histograms, indexed by bin modulo 32.
OMBREL_API const float* SceneAngleWeights();

/// The dominant edge direction of a region and the rotation between two scenes, from the histogram of strong
/// Sobel directions (rules in scene_angle.h). Made by SceneAngleFact.
class OMBREL_API SceneAngleAgent : public Agent {
  public:
    ///@{
    /// The region: the whole source, the rectangle `r`, or `roi` placed at `p`.
    explicit SceneAngleAgent(Buffer* src);
    SceneAngleAgent(Buffer* src, Rect r);
    SceneAngleAgent(Buffer* src, Point p, const ROI& roi);
    ///@}
    /// Frees what the agent made.
    ~SceneAngleAgent() override;

    /// Restores the default settings (fold mode 2, 32 bins, fit mode 2, weights on) and clears the results.
    void Init();
    /// Prepares a run; with `keep` the intermediate parts persist. The base does nothing and returns 0.
    virtual int PreGo(bool keep);
    /// A hook after a run, for subclasses; the base does nothing and returns 0.
    virtual int PostGo();

    /// Rotation of this agent's scene relative to `other`'s, in radians; 0 when either is null, the two fold
    /// differently, or either spread is 0.
    float AngleDiff(SceneAngleAgent* other);

    float Strength() const { return _strength; }  ///< per mille
    float Angle() const { return _angle; }        ///< radians
    float Coverage() const { return _coverage; }  ///< percent
    /// The 128-bin direction histogram of the last run.
    const int32_t* Hist() const { return _hist; }
    /// The folded (and weighted) histogram, NBins() entries.
    const float* Folded() const { return _folded; }
    /// Folded bins: 128, 64 or 32.
    int NBins() const { return _nBins; }
    ///@{
    /// The fold mode, fit mode and weight switch.
    int FoldMode() const { return _foldMode; }
    int FitMode() const { return _fitMode; }
    bool UseWeights() const { return _useWeights != 0; }
    ///@}
    ///@{
    /// Sum, sum of squares and spread of the folded histogram (used by AngleDiff).
    double FoldSum() const { return _foldSum; }
    double FoldSumSq() const { return _foldSumSq; }
    double FoldSpread() const { return _foldSpread; }
    ///@}

    /// Fold mode 0, 1 or 2 also sets the number of bins (128, 64, 32); other values are ignored.
    void SetFoldMode(int mode);
    ///@{
    /// Fit mode of AngleDiff's refinement (3 or 5 points) and the weight switch.
    void SetFitMode(int mode) { _fitMode = mode; }
    void SetUseWeights(bool on) { _useWeights = on ? 1 : 0; }
    ///@}
    /// Replaces the direction histogram (tests and callers with histograms of their own) and recomputes.
    void SetHist(const int32_t (&hist)[128]);

  protected:
    /// Folds the histogram and computes strength, angle and coverage from it.
    void HistBasedAngle();
    ///@{
    /// Sub-bin offset of a peak from three or five neighbouring values.
    static float AngleDiffFit3(float& left, float& centre, float& right);
    static float AngleDiffFit5(float& l2, float& l1, float& centre, float& r1, float& r2);
    ///@}

    float _strength = 0;
    float _angle = 0;
    float _coverage = 0;
    int32_t _hist[128] = {};
    float _folded[128] = {};
    int32_t _nBins = 32;
    double _foldSum = 0;
    double _foldSumSq = 0;
    double _foldSpread = 0;
    int32_t _useWeights = 1;
    int32_t _foldMode = 2;
    int32_t _fitMode = 2;
    int32_t _boardThreshold = 15;
    int32_t _boardShift = 1;
    float _boardGain = 1.5f;
    int32_t _boardLimit = 10;
};

/// The software scene angle agent (host buffers).
class OMBREL_API swSceneAngleAgent : public SceneAngleAgent {
  public:
    /// The constructors of SceneAngleAgent.
    using SceneAngleAgent::SceneAngleAgent;
    /// Frees the intermediate image and sub-agents.
    ~swSceneAngleAgent() override;
    /// Makes the intermediate image and sub-agents now (Go would on its first run); 0 or kSceneAngleNoMemory.
    int PreGo(bool keep) override;
    int Go() override;

  private:
    int Prepare();

    std::unique_ptr<Buffer> _image;
    std::unique_ptr<SobelAgent> _sobel;
    std::unique_ptr<HistogramAgent> _histogram;
    std::vector<int> _counts;
    Rect _prepared{};
};

///@{
/// The software agent for a host source (either host type); null for a board source (no back end in this
/// build) or when memory runs out.
OMBREL_API SceneAngleAgent* SceneAngleFact(Buffer* src);
OMBREL_API SceneAngleAgent* SceneAngleFact(Buffer* src, int left, int top, int right, int bottom);
OMBREL_API SceneAngleAgent* SceneAngleFact(Buffer* src, Point p, const ROI& roi);
OMBREL_API SceneAngleAgent* SceneAngleFact(Buffer* src, Rect r);
///@}

}  // namespace ombrel
