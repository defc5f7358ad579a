// SPDX-License-Identifier: MIT
// Pixel operations from Python: histogram, arithmetic, mask, projection, frame averaging, decimation and
// transposition.
//
// Several factories of this family keep one buffer role to memory the library allocated itself (the
// histogram's source, the mask's destination, ...); numpy arrays are host memory the caller lends, so the
// module makes the software agent directly: the choice such a factory would make for host memory.
#include <limits>
#include <vector>

#include <ombrel/pixelops/grey_statistics.h>

#include "agent_base.h"

namespace ombrel::python {
namespace {

// ---- Histogram
// ----------------------------------------------------------------------------------------------

class PyHistogram : public PyAgent<HistogramAgent> {
  public:
    PyHistogram(const py::object& image, int bins, const py::object& roi, const py::object& mask)
        : PyAgent("HistogramAgent.go") {
        if (bins < 1 || bins > 256)
            throw py::value_error("bins: expected 1..256, got " + std::to_string(bins));
        Prepare(image, roi, mask);
        _agent = Made(new (std::nothrow) swHistogramAgent(_source->buffer(), _placement.origin,
                                                          _placement.roi, HistRes(bins), &_bins),
                      "HistogramAgent");
    }
    std::vector<int> _bins;
};

// One bin per grey value, from any sequence of counts (a numpy array or a list): at most 256 of them, so
// that a wrong array fails here rather than meaning something else.
std::vector<int> GreyBins(const py::object& bins) {
    const auto counts = py::array_t<int64_t, py::array::c_style | py::array::forcecast>::ensure(bins);
    if (!counts || counts.ndim() != 1 || counts.size() > 256)
        throw py::value_error("bins: expected one count per grey value (at most 256 counts)");
    std::vector<int> out(size_t(counts.size()));
    for (py::ssize_t i = 0; i < counts.size(); ++i) {
        const int64_t c = counts.at(i);
        if (c < 0 || c > std::numeric_limits<int>::max())
            throw py::value_error("bins: counts must lie in 0..2**31-1");
        out[size_t(i)] = int(c);
    }
    return out;
}

void BindGreyStatistics(py::module_& m) {
    m.def(
        "grey_statistics",
        [](const py::object& bins) {
            const GreyStatistics s = StatisticsOfHistogram(GreyBins(bins));
            py::dict d;
            d["count"] = s.count;
            d["mean"] = s.empty ? py::object(py::none()) : py::float_(s.mean);
            d["std"] = s.empty ? py::object(py::none()) : py::float_(s.std);
            d["median"] = s.empty ? py::object(py::none()) : py::float_(s.median);
            d["min"] = s.empty ? py::object(py::none()) : py::int_(s.min);
            d["max"] = s.empty ? py::object(py::none()) : py::int_(s.max);
            return d;
        },
        py::arg("bins"),
        "The figures numpy computes on the pixels a histogram of one bin per grey value counts (bins[v] "
        "pixels of value v): {count (zeros included), mean, std (ddof=0), median (mean of the two middle "
        "values for an even count), min, max}; None for all but count when nothing was counted.");
    m.def(
        "otsu_threshold", [](const py::object& bins) { return OtsuThreshold(GreyBins(bins)); },
        py::arg("bins"),
        "Otsu's threshold t of a histogram of one bin per grey value: the classes v <= t and v > t, as "
        "cv2.threshold with THRESH_OTSU (the first t on a tie); one grey value (or none) gives that value "
        "(0).");
}

void BindHistogram(py::module_& m) {
    py::class_<PyHistogram> cls(m, "HistogramAgent", R"doc(
Histogram of an 8-bit region, for a production loop.

Per pixel v: bins[(v >> s) + bin_offset] += 1 with s such that `bins` bins cover 0..255. The agent's own
figures: pixel_count counts the non-zero pixels only, pixel_sum sums all, mean = pixel_sum // pixel_count (an
integer division), std_dev divides by pixel_count - 1, median is the centre of the bin after the last one
still below half. For numpy's figures over all region pixels and Otsu's threshold use ombrel.histogram(), or
ombrel.grey_statistics(agent.bins) and ombrel.otsu_threshold(agent.bins) with bins=256.

Parameters: image, bins=256 (1..256), roi=None, mask=None.)doc");
    cls.def(py::init<const py::object&, int, const py::object&, const py::object&>(), py::arg("image"),
            py::arg("bins") = 256, py::arg("roi") = py::none(), py::arg("mask") = py::none());
    BindRun(cls,
            "Counts the region (of `image` when given) without holding the interpreter lock; returns 0.");
    cls.def_property_readonly(
           "bins",
           [](py::object self) {
               auto& a = self.cast<PyHistogram&>();
               return py::array_t<int>(py::ssize_t(a._bins.size()), a._bins.data(), self);
           },
           "The counts of the last run (an int32 view, refilled by every go()).")
        .def_property_readonly(
            "pixel_count", [](const PyHistogram& a) { return a.agent()->PixelCount(); },
            "Non-zero pixels of the region (zero pixels are binned but not counted).")
        .def_property_readonly("pixel_sum", [](const PyHistogram& a) { return a.agent()->PixelSum(); })
        .def_property_readonly(
            "mean", [](const PyHistogram& a) { return a.agent()->Mean(); },
            "pixel_sum // pixel_count (integer division), as a float.")
        .def_property_readonly(
            "std_dev", [](const PyHistogram& a) { return a.agent()->StdDev(); },
            "Deviation from `mean` over the bin centres, divided by pixel_count - 1.")
        .def_property_readonly(
            "median", [](const PyHistogram& a) { return a.agent()->Median(); },
            "Centre of the bin after the last one still below half of pixel_count.")
        .def_property(
            "bin_offset", [](const PyHistogram& a) { return a.agent()->BinOffset(); },
            [](PyHistogram& a, int offset) { a.agent()->SetBinOffset(offset); },
            "Added to every bin index (clamped to -256..255); indices outside the bins are skipped.")
        .def_property(
            "signed", [](const PyHistogram& a) { return a.agent()->Signed(); },
            [](PyHistogram& a, bool on) { a.agent()->SetSigned(on); },
            "Sum pixels read as signed bytes (the bin index always reads them unsigned).");
}

// ---- Arithmetic
// ---------------------------------------------------------------------------------------------

const std::initializer_list<NamedCode> kArithOps = {{"not", _ARITH_NOT},
                                                    {"negate", _ARITH_NEGATE},
                                                    {"copy", _ARITH_COPY},
                                                    {"binarize", _ARITH_BINARIZE},
                                                    {"maskshift", _ARITH_MASKSHIFT},
                                                    {"abs", _ARITH_ABS},
                                                    {"passrange", _ARITH_PASSRANGE},
                                                    {"add", _ARITH_ADD},
                                                    {"sub", _ARITH_SUB},
                                                    {"diff", _ARITH_DIFF},
                                                    {"and", _ARITH_AND},
                                                    {"or", _ARITH_OR},
                                                    {"xor", _ARITH_XOR},
                                                    {"min", _ARITH_MIN},
                                                    {"max", _ARITH_MAX},
                                                    {"mult", _ARITH_MULT}};

class PyArith : public PyAgent<ArithAgent> {
  public:
    PyArith(const py::object& op, const py::object& a, const py::object& b, double gain, int offset,
            const py::object& out, const py::object& roi, const py::object& mask)
        : PyAgent("ArithAgent.go") {
        const int code = CodeFromName(op, kArithOps, "op");
        Prepare(a, roi, mask);
        if (!b.is_none()) SetB(b);
        if (code >= _ARITH_ADD && !_b) throw py::value_error("b: the operation needs a second image");
        _output = OutputImage(out, _placement.width, _placement.height, "out");
        _agent =
            Made(ArithFact(_source->buffer(), _placement.origin, _placement.roi, _b ? _b->buffer() : nullptr,
                           ArithOp(code), float(gain), offset, _output->buffer()),
                 "ArithAgent");
    }
    void SetB(const py::object& b) {
        ImagePtr image = Image::From(b);
        image->Require8Bit("b");
        RequireSize(*image, _placement.width, _placement.height, "b");
        _b = std::move(image);
        if (_agent) _agent->SetSrcB(_b->buffer());
    }
    ImagePtr _b;
};

void BindArith(py::module_& m) {
    py::class_<PyArith> cls(m, "ArithAgent", R"doc(
Pixel arithmetic into an output image, for a production loop.

Per pixel: v = op(a) or op(a, b); r = floor((v + P) * m / 2**s) + Q, where m / 2**s ~ gain and P + Q =
offset; r is written clipped or wrapped to 8 bits by the operation's sign and clip rules. Region pixel (x, y)
reads a at the region's corner + (x, y), b at corner_b + (x, y), and writes out[y, x].

Parameters: op (name: not, negate, copy, binarize, maskshift, abs, passrange, add, sub, diff, and, or, xor,
min, max, mult; or its code 0..15), a, b=None (needed from add on), gain=1.0, offset=0, out=None (a new
region-sized image), roi=None, mask=None (a masked region writes only its pixels).)doc");
    cls.def(py::init<const py::object&, const py::object&, const py::object&, double, int, const py::object&,
                     const py::object&, const py::object&>(),
            py::arg("op"), py::arg("a"), py::arg("b") = py::none(), py::arg("gain") = 1.0,
            py::arg("offset") = 0, py::arg("out") = py::none(), py::arg("roi") = py::none(),
            py::arg("mask") = py::none());
    BindRun(cls, "Computes the output (from a new source A `image` when given); returns 0.");
    cls.def("set_b", &PyArith::SetB, py::arg("b"), "A new source B for the next runs.")
        .def(
            "set_norm",
            [](PyArith& a, double gain, int offset) {
                a.agent()->SetNorm(gain, offset);
                FlushReports();
            },
            py::arg("gain"), py::arg("offset"), "Gain (-256..255) and offset (-65536..65791).")
        .def(
            "set_sign_clip",
            [](PyArith& a, bool signedA, bool signedB, bool signedOut, bool clip, bool clamp) {
                a.agent()->SetSignClip(signedA ? _ARITH_SIGNED : _ARITH_UNSIGNED,
                                       signedB ? _ARITH_SIGNED : _ARITH_UNSIGNED,
                                       signedOut ? _ARITH_SIGNED : _ARITH_UNSIGNED, clip, clamp);
                FlushReports();
            },
            py::arg("signed_a") = false, py::arg("signed_b") = false, py::arg("signed_out") = false,
            py::arg("clip") = true, py::arg("clamp") = false,
            "Signs of the sources and the output, the clip flag (overflow to 255, negative to 255) and the "
            "clamp flag (clamp to 0..255, wins). Refused with a LibraryNote for operations whose signs are "
            "fixed.")
        .def(
            "set_band",
            [](PyArith& a, int low, int high) {
                a.agent()->SetBand(low, high);
                FlushReports();
            },
            py::arg("low"), py::arg("high"), "The band of binarize and passrange, both ends included.")
        .def(
            "set_mask_shift",
            [](PyArith& a, const py::object& op, int mask, int shift) {
                a.agent()->SetMaskShift(
                    ArithMaskOp(CodeFromName(op, {{"and", 0}, {"or", 1}, {"xor", 2}}, "mask_op")), mask,
                    shift);
                FlushReports();
            },
            py::arg("op"), py::arg("mask"), py::arg("shift"),
            "maskshift: (a OP mask) << shift (>> for shift < 0).")
        .def(
            "set_corner_b",
            [](PyArith& a, int x, int y) {
                if (a._b) RequireSize(*a._b, x + a.placement().width, y + a.placement().height, "b");
                a.agent()->SetCornerB(x, y);
            },
            py::arg("x"), py::arg("y"), "Where the region's corner falls on source B.")
        .def_property_readonly("gain", [](const PyArith& a) { return a.agent()->Gain(); })
        .def_property_readonly("offset", [](const PyArith& a) { return a.agent()->Offset(); })
        .def_property_readonly(
            "results",
            [](const PyArith& a) {
                ArithResults r;
                a.agent()->GetResults(&r);
                return py::make_tuple(uint32_t(r.word[0]), r.word[1]);
            },
            "(sum of the bytes written modulo 2**32, number of non-zero bytes written) of the last run.");
}

// ---- Mask
// ---------------------------------------------------------------------------------------------------

const std::initializer_list<NamedCode> kMaskOps = {
    {"add", MASK_ADD}, {"sub", MASK_SUB},   {"absdiff", MASK_ABSDIFF},  {"and", MASK_AND},
    {"or", MASK_OR},   {"xor", MASK_XOR},   {"copy", MASK_COPY},        {"min", MASK_MIN},
    {"max", MASK_MAX}, {"band", MASK_BAND}, {"copy_alt", MASK_COPY_ALT}};

class PyMask : public PyAgent<MaskAgent> {
  public:
    PyMask(const py::object& image, const py::object& roi, const py::object& mask, const py::object& op,
           std::pair<int, int> band, const py::object& out)
        : PyAgent("MaskAgent.go") {
        const unsigned code = unsigned(CodeFromName(op, kMaskOps, "op"));
        if (band.first < 0 || band.second > 255 || band.first > band.second)
            throw py::value_error("band: expected (low, high) with 0 <= low <= high <= 255");
        Prepare(image, roi, mask);
        _output = OutputImage(out, _placement.width, _placement.height, "out");
        _agent = Made(new (std::nothrow) swMaskAgent(_source->buffer(), _output->buffer(), _placement.origin,
                                                     _placement.roi, band.first, band.second, code),
                      "MaskAgent");
    }
};

void BindMask(py::module_& m) {
    py::class_<PyMask> cls(m, "MaskAgent", R"doc(
Copies the pixels of a region that lie under its mask into a fresh output image, for a production loop.

The whole output is set to 0, then for every selected pixel s (output d = 0): copy/add/or/xor/max/absdiff/
copy_alt give s, sub gives -s mod 256, and/min give 0, band gives 1 where low <= s <= high.

Parameters: image, roi=None, mask=None (the selected pixels; non-zero selects), op="copy", band=(1, 255),
out=None (a new region-sized image).)doc");
    cls.def(py::init<const py::object&, const py::object&, const py::object&, const py::object&,
                     std::pair<int, int>, const py::object&>(),
            py::arg("image"), py::arg("roi") = py::none(), py::arg("mask") = py::none(),
            py::arg("op") = "copy", py::arg("band") = std::pair<int, int>(1, 255),
            py::arg("out") = py::none());
    BindRun(cls, "Writes the output (from `image` when given); returns 0.");
}

// ---- Projection -----------------------------------------------------------------------------------------

int ZoneCount(int first, int end, int size, int space) {
    int count = 0;
    for (int64_t start = first; start < end; start += space) {
        ++count;
        if (start + size >= end || space <= 0) break;
    }
    return count;
}

class PyProject : public PyAgent<ProjectAgent> {
  public:
    PyProject(const py::object& image, const py::object& type, std::pair<int, int> zones,
              const py::object& roi, const py::object& out)
        : PyAgent("ProjectAgent.go") {
        const int code = CodeFromName(type, {{"columns", HORIZONTAL}, {"rows", VERTICAL}}, "type");
        if (zones.first < 0 || zones.second < 0 || (zones.first > 0) != (zones.second > 0))
            throw py::value_error("zones: expected (size, space), both positive, or (0, 0) for none");
        Prepare(image, roi, py::none());
        const int along = code == HORIZONTAL ? _placement.width : _placement.height;
        const int across = code == HORIZONTAL ? _placement.height : _placement.width;
        int width = along, height = 1;
        if (zones.first > 0) {
            if (zones.first > across) throw py::value_error("zones: the zone size exceeds the region");
            const int count = ZoneCount(0, across, zones.first, zones.second);
            width = code == HORIZONTAL ? along : count;
            height = code == HORIZONTAL ? count : along;
        }
        _output = OutputImage(out, width, height, "out");
        _agent = Made(new (std::nothrow) swProjectAgent(_source->buffer(), _output->buffer(),
                                                        _placement.origin, _placement.roi, ProjectType(code)),
                      "ProjectAgent");
        if (zones.first > 0) _agent->SetZoneSizeSpace(zones.first, zones.second);
    }
};

void BindProject(py::module_& m) {
    py::class_<PyProject> cls(m, "ProjectAgent", R"doc(
Projection profile of a rectangular region, for a production loop.

type="columns": out[0, x] = (sum of column x) >> bitlength(height); type="rows": out[0, y] = (sum of row y)
>> bitlength(width); the shift keeps every value in 8 bits (it lies below the mean by up to a factor 2).
zones=(size, space) gives one profile row per zone of `size` rows (columns) every `space`.

Parameters: image, type="columns", zones=(0, 0), roi=None, out=None.)doc");
    cls.def(py::init<const py::object&, const py::object&, std::pair<int, int>, const py::object&,
                     const py::object&>(),
            py::arg("image"), py::arg("type") = "columns", py::arg("zones") = std::pair<int, int>(0, 0),
            py::arg("roi") = py::none(), py::arg("out") = py::none());
    BindRun(cls, "Writes the profile (of `image` when given); returns 0.");
    cls.def_property_readonly(
        "shift", [](const PyProject& a) { return a.agent()->Shift(); },
        "The right shift applied to every sum of the last run.");
}

// ---- Frame averaging ------------------------------------------------------------------------------------

class PyFrameAverage : public PyAgent<FrameAverageAgent> {
  public:
    PyFrameAverage(const py::object& image, int frames, const py::object& roi, const py::object& out)
        : PyAgent("FrameAverageAgent.go") {
        if (frames < 1) throw py::value_error("frames: expected a positive window size");
        Prepare(image, roi, py::none());
        _output = OutputImage(out, _placement.width, _placement.height, "out");
        _agent = Made(new (std::nothrow) swFrameAverageAgent(_source->buffer(), _output->buffer(), frames,
                                                             _placement.origin, _placement.roi),
                      "FrameAverageAgent");
    }
};

void BindFrameAverage(py::module_& m) {
    py::class_<PyFrameAverage> cls(m, "FrameAverageAgent", R"doc(
Running average of the last `frames` images passed to go(), for a stream of grabbed frames.

While the window fills: out = sum // count; once full: out = low byte of (sum >> s), s = log2(frames) for 2,
4, 8, 16, 32 frames and 0 otherwise (other window sizes are meant for the filling phase).

Parameters: image (the first frame's buffer), frames, roi=None, out=None.)doc");
    cls.def(py::init<const py::object&, int, const py::object&, const py::object&>(), py::arg("image"),
            py::arg("frames"), py::arg("roi") = py::none(), py::arg("out") = py::none());
    BindRun(cls, "Adds the region of `image` (or of the current image) as the next frame; returns 0.");
    cls.def_property_readonly(
        "queue_length", [](const PyFrameAverage& a) { return a.agent()->GetQLength(); },
        "Frames in the window.");
}

// ---- Decimation and transposition
// ---------------------------------------------------------------------------

class PyDecimate : public PyAgent<DecimateAgent> {
  public:
    PyDecimate(const py::object& image, int step, const py::object& roi, const py::object& out)
        : PyAgent("DecimateAgent.go") {
        if (step != 1 && step != 2) throw py::value_error("step: expected 1 or 2");
        Prepare(image, roi, py::none());
        if (_placement.width < step || _placement.height < step)
            throw py::value_error("roi: the region is smaller than one step");
        _output = OutputImage(out, _placement.width / step, _placement.height / step, "out");
        _agent = Made(DecimateFact(_source->buffer(), _output->buffer(), _placement.origin, _placement.roi,
                                   PixelStep(step)),
                      "DecimateAgent");
    }
};

const std::initializer_list<NamedCode> kTransposeOps = {{"rot90_ccw", TRANSPOSE_ROT90_CCW},
                                                        {"rot90_cw", TRANSPOSE_ROT90_CW},
                                                        {"rot180", TRANSPOSE_ROT180},
                                                        {"flip_tb", TRANSPOSE_FLIP_TB},
                                                        {"flip_lr", TRANSPOSE_FLIP_LR}};

class PyTranspose : public PyAgent<TransposeAgent> {
  public:
    PyTranspose(const py::object& image, const py::object& op, const py::object& roi, const py::object& out)
        : PyAgent("TransposeAgent.go") {
        const int code = CodeFromName(op, kTransposeOps, "op");
        Prepare(image, roi, py::none());
        const bool quarter = code == TRANSPOSE_ROT90_CCW || code == TRANSPOSE_ROT90_CW;
        _output = OutputImage(out, quarter ? _placement.height : _placement.width,
                              quarter ? _placement.width : _placement.height, "out");
        _agent =
            Made(new (std::nothrow) swTransposeAgent(_source->buffer(), _output->buffer(), _placement.origin,
                                                     _placement.roi, TransOpType(code)),
                 "TransposeAgent");
    }
};

void BindResampling(py::module_& m) {
    py::class_<PyDecimate> dec(m, "DecimateAgent", R"doc(
Smooths a region with the 3x3 binomial kernel and samples every `step`-th pixel (step 2 halves it).

Per output pixel: (4 * centre + 2 * (left + right + up + down) + diagonals) >> 4 around sample
(x0 + (i + 1) * step - 1, y0 + (j + 1) * step - 1); neighbours before a sample are clamped at the image's
first row/column only, neighbours after it at the region's last.

Parameters: image, step=2, roi=None, out=None.)doc");
    dec.def(py::init<const py::object&, int, const py::object&, const py::object&>(), py::arg("image"),
            py::arg("step") = 2, py::arg("roi") = py::none(), py::arg("out") = py::none());
    BindRun(dec, "Writes the decimated region (of `image` when given); returns 0.");

    py::class_<PyTranspose> tr(m, "TransposeAgent", R"doc(
Turns a region by a quarter or half turn, or mirrors it, into an output image.

op: rot90_ccw (out[W-1-c, r] = src[r, c] as [row, column]), rot90_cw, rot180, flip_tb, flip_lr.

Parameters: image, op="rot90_ccw", roi=None, out=None.)doc");
    tr.def(py::init<const py::object&, const py::object&, const py::object&, const py::object&>(),
           py::arg("image"), py::arg("op") = "rot90_ccw", py::arg("roi") = py::none(),
           py::arg("out") = py::none());
    BindRun(tr, "Writes the turned region (of `image` when given); returns 0.");
}

}  // namespace

void BindPixelOps(py::module_& m) {
    BindHistogram(m);
    BindGreyStatistics(m);
    BindArith(m);
    BindMask(m);
    BindProject(m);
    BindFrameAverage(m);
    BindResampling(m);
}

}  // namespace ombrel::python
