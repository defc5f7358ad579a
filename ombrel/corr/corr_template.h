// SPDX-License-Identifier: MIT
/// \file
/// The trained pattern of normalised grey-level correlation, and one scored position.
///
/// A CorrTemplate keeps a private 8-bit copy of a patch, the region of it whose pixels count, a hot spot and
/// the statistics every score needs: N (pixels counted), S = sum t, Q = sum t^2 and the variance term
/// N*Q - S^2, all over the region (Recompute). Template bytes are unsigned (0..255) or, with the signed flag,
/// signed (-128..127); with the mask flag, template bytes equal to 0 take no part anywhere.
///
/// FastComputeSums scores one position: over the whole template buffer (width x height, not the region),
/// sumI += i, sumI2 += i*i, sumTI += t*i (each product in 32-bit integers, summed in double, hence exactly),
/// skipping t == 0 with the mask flag; image bytes are signed with the image-signed flag. Then
///     mI = sumI/N, mT = S/N, c = sumTI/N - mT*mI, v = (sumI2/N - mI^2) * (Q/N - mT^2)
///     score = |c| / sqrt(v)   (position-only flag 0; an inverted patch also scores 1)
///     score = c^2 / v         (position-only flag 1; no root is taken)
/// and 0 where the formula divides by zero. Ours, never changing a defined score: N == 0 and v <= 0
/// (a rounding residue of a flat patch) also score 0, so no score is ever NaN or infinite.
///
/// Safety: the template is always 8-bit; a source that is null, not 8-bit or without pixels gives a template
/// with a nonzero error (BufferError) that no agent runs with. The caller guarantees that the image pointer
/// given to FastComputeSums has width x height pixels readable at its pitch (the match agent clips for it).
///
/// Persistence: "(CorrTemplate*)" writes the template buffer (by pointer, null when there is none), the
/// region (by value), hot spot x and y and the pixel count (ints), sum, sum of squares and variance term
/// (doubles), then the mask and signed flags (ints). Versions 100200000, 100300000 and 100400000 read exactly
/// that; version 1 also carries one int and two CorrTrainVector values, read and thrown away; any other
/// version reports assertion "0" at lscorrtemplate line 129 and leaves the template as it was. Statistics
/// come from the stream as stored, not recomputed. A reader refuses (fails the stream, template unchanged)
/// what no writer can produce: a buffer that is not 8-bit or has no pixels, a negative pixel count, a
/// statistic that is NaN or infinite. A template read with a null buffer carries the error BUFFER_BAD_SIZE.
#pragma once
#include <cstdint>
#include <vector>

#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"

namespace ombrel {

class os_bstream;
class os_class;

/// One scored position. Assignment copies every field but the first further integer (_user0), which the
/// default constructor leaves unset as well; the score is left unset too, since every producer writes it.
/// Copy construction copies everything. Its public fields: `_pos` (image position of the template's hot
/// spot), `_score`, the image sums `_sumI`, `_sumI2` and `_sumTI`, `_user0`..`_user2` (kept for callers) and
/// `_positionOnly` (1 selects the squared score).
class OMBREL_API CorrPoint {
  public:
    /// Position (0, 0), sums 0; the score is written by whoever scores it.
    CorrPoint() : _pos{0, 0}, _sumI(0), _sumI2(0), _sumTI(0), _user1(0), _user2(0), _positionOnly(0) {}
    /// Copies every field.
    CorrPoint(const CorrPoint& other) = default;
    /// Copies every field but `_user0` (see above).
    CorrPoint& operator=(const CorrPoint& other) {
        if (this != &other) CopyFields(other);
        return *this;
    }

    Point _pos;  ///< image position of the template's hot spot
    double _score;
    double _sumI;
    double _sumI2;
    double _sumTI;
    int32_t _user0;  ///< three further integers, kept for callers; meaning not fixed here
    int32_t _user1;
    int32_t _user2;
    int32_t _positionOnly;  ///< 1 selects the squared score

  private:
    void CopyFields(const CorrPoint& o) {
        _pos = o._pos;
        _score = o._score;
        _sumI = o._sumI;
        _sumI2 = o._sumI2;
        _sumTI = o._sumTI;
        _user1 = o._user1;
        _user2 = o._user2;
        _positionOnly = o._positionOnly;
    }
};

/// The score from the three exact image sums and the template statistics: the one formula every path of
/// the library uses, so that they all give the same doubles.
OMBREL_API double CorrScore(double sumI, double sumI2, double sumTI, int32_t count, double sum, double sumSq,
                            int32_t positionOnly);

/// A trained correlation pattern: a private 8-bit copy of a patch, its region, hot spot and statistics (see
/// corr_template.h). Matched by CorrMatchAgent and used as a convolution kernel by ConvAgent.
class OMBREL_API CorrTemplate {
  public:
    /// Trains on the whole of `src`; `mask` non-zero leaves template bytes 0 out of every sum.
    CorrTemplate(Buffer* src, int mask);
    /// Trains on `roi` placed at `p` on `src`.
    CorrTemplate(Buffer* src, Point p, ROI* roi, int mask);
    ///@{
    /// Copies: the copy has its own patch buffer.
    CorrTemplate(const CorrTemplate& other);
    CorrTemplate& operator=(const CorrTemplate& other);
    ///@}
    /// Frees the patch copy.
    virtual ~CorrTemplate();

    /// Stream class operations (the object stream itself lives elsewhere).
    virtual const char* get_class() const { return "(CorrTemplate*)"; }
    /// The object's address, which identifies it in a stream.
    virtual const void* get_address() const { return this; }

    /// The template's own 8-bit patch.
    Buffer* GetBuffer() const { return _buf; }
    /// The region whose pixels count.
    const ROI& GetROI() const { return _roi; }
    /// The hot spot, in template coordinates (default (0, 0)).
    Point GetHotSpot() const { return _hotSpot; }
    /// Sets the hot spot: the point of the template whose image position a match reports.
    void SetHotSpot(Point p) { _hotSpot = p; }
    /// N, the pixels counted.
    int32_t GetCount() const { return _count; }
    /// S, the sum of the template bytes.
    double GetSum() const { return _sum; }
    /// Q, the sum of their squares.
    double GetSumSq() const { return _sumSq; }
    /// The variance term N*Q - S^2.
    double GetVariance() const { return _variance; }
    /// The mask flag.
    int32_t GetMask() const { return _mask; }
    void SetMask(int mask) { _mask = mask ? 1 : 0; }  ///< call Recompute afterwards
    /// The signed flag.
    int32_t GetSigned() const { return _signed; }
    /// 0, or the BufferError of a template trained on an unusable source.
    int32_t GetError() const { return _error; }

    /// Recomputes N, S, Q and the variance term, reading template bytes signed when `isSigned` is non-zero.
    void Recompute(int isSigned);
    /// Scores the position whose top-left image pixel is at `img` (rows `*pitch` bytes apart) into `pt` (see
    /// above).
    void FastComputeSums(unsigned char* img, int* pitch, int imgSigned, CorrPoint* pt) const;

    /// The stream class of templates, "(CorrTemplate*)" (form above).
    friend OMBREL_API const os_class& StreamClassOf(const CorrTemplate*);

  private:
    void CopyStatistics(const CorrTemplate& other);
    static void WriteStream(os_bstream& s, const CorrTemplate& t);
    static bool ReadStream(os_bstream& s, CorrTemplate& t, uint32_t version);
    static const os_class kStreamClass;

    /// Field order is the persisted order.
    Buffer* _buf = nullptr;
    ROI _roi;
    Point _hotSpot{0, 0};
    int32_t _count = 0;
    double _sum = 0.0;
    double _sumSq = 0.0;
    double _variance = 0.0;
    int32_t _mask = 0;
    int32_t _signed = 0;
    int32_t _error = 0;
};

/// The stream class of templates, "(CorrTemplate*)" (form above).
OMBREL_API const os_class& StreamClassOf(const CorrTemplate*);

/// A training record of the oldest template streams, kept only so that such streams still read: nothing
/// builds one now. Stream form "(CorrTrainVector*)": the first list's count (unsigned) and elements (ints),
/// the integer, the value (float), the second list's count and elements. Reading empties both lists first;
/// the form never changed, so every stored version reads the same way.
class OMBREL_API CorrTrainVector {
  public:
    std::vector<int32_t> _first;
    int32_t _integer = 0;
    float _value = 0.0f;
    std::vector<int32_t> _second;
};

/// The stream class of training records, "(CorrTrainVector*)".
OMBREL_API const os_class& StreamClassOf(const CorrTrainVector*);

}  // namespace ombrel
