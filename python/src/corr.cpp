// SPDX-License-Identifier: MIT
// Normalised grey-level correlation from Python: a template trained from a patch, a match agent scoring
// every position of a search region.
#include <algorithm>
#include <vector>

#include "agent_base.h"

namespace ombrel::python {
namespace {

struct PyTemplate {
    std::unique_ptr<CorrTemplate> tpl;
};

PyTemplate MakeTemplate(const py::object& image, const py::object& roi, const py::object& hot, bool masked) {
    ImagePtr source = Image::From(image);
    source->Require8Bit("image");
    Placement p = MakePlacement(*source, roi, py::none());
    PyTemplate t;
    // The template keeps its own copy of the patch; the image is not needed afterwards.
    if (roi.is_none())
        t.tpl.reset(new (std::nothrow) CorrTemplate(source->buffer(), masked ? 1 : 0));
    else
        t.tpl.reset(new (std::nothrow) CorrTemplate(source->buffer(), p.origin, &p.roi, masked ? 1 : 0));
    FlushReports();
    if (!t.tpl || t.tpl->GetError() != 0)
        RaiseError(t.tpl ? t.tpl->GetError() : -1, "CorrTemplate: training failed");
    if (!hot.is_none()) {
        auto h = hot.cast<std::pair<int, int>>();
        t.tpl->SetHotSpot(Point{h.first, h.second});
    }
    return t;
}

class PyMatch : public PyAgent<CorrMatchAgent> {
  public:
    PyMatch(const py::object& image, py::object tpl, const py::object& roi, std::pair<int, int> step,
            bool imageSigned, bool templateSigned)
        : PyAgent("CorrMatchAgent.go"), _tplObject(std::move(tpl)) {
        if (step.first < 1 || step.second < 1) throw py::value_error("step: expected positive (x, y) steps");
        Prepare(image, roi, py::none());
        CorrTemplate* t = _tplObject.cast<PyTemplate&>().tpl.get();
        Buffer* patch = t->GetBuffer();
        if (patch->Width() > _source->width() || patch->Height() > _source->height())
            throw py::value_error("template: larger than the image");
        _origin = _placement.origin;
        _agent = Made(CorrMatchFact(_source->buffer(), &_origin, &_placement.roi, t, &_result,
                                    imageSigned ? 1 : 0, templateSigned ? 1 : 0, step.first, step.second),
                      "CorrMatchAgent");
    }
    py::array_t<double> Scores() const {
        const int cols = _agent->Columns(), rows = _agent->Rows();
        if (cols <= 0 || rows <= 0 || _result.Count() < cols * rows) return py::array_t<double>(0);
        py::array_t<double> out({rows, cols});
        auto o = out.mutable_unchecked<2>();
        for (int k = 0; k < cols * rows; ++k) o(k / cols, k % cols) = _result.At(k)._score;
        return out;
    }
    py::list Top(int n, double minDistance) const {
        py::list out;
        if (_result.Count() == 0) return out;
        for (const CorrPoint& p : CorrTopN(_result, n, minDistance))
            out.append(py::make_tuple(p._pos.x, p._pos.y, p._score));
        return out;
    }
    py::object Best() const {
        if (_result.Count() == 0) return py::none();
        const CorrPoint& p = _result.Sorted(0);
        return py::make_tuple(p._pos.x, p._pos.y, p._score);
    }

  private:
    py::object _tplObject;  // keeps the template alive while the agent uses it
    Point _origin;
    CorrResult _result;
};

// Convolution (correlation form) with a kernel held in a CorrTemplate.
class PyConv : public PyAgent<ConvAgent> {
  public:
    PyConv(const py::object& image, py::object tpl, bool imageSigned, bool kernelSigned,
           std::pair<int, int> step, const py::object& roi, const py::object& out)
        : PyAgent("ConvAgent.go"), _tplObject(std::move(tpl)) {
        if (step.first < 1 || step.second < 1) throw py::value_error("step: expected positive (x, y) steps");
        Prepare(image, roi, py::none());
        CorrTemplate* t = _tplObject.cast<PyTemplate&>().tpl.get();
        const Point hot = t->GetHotSpot();
        const int kw = t->GetBuffer()->Width(), kh = t->GetBuffer()->Height();
        // The samples the agent visits: the kernel's top-left runs from the region's corner less the hot spot
        // over the region's extent, cut so that the kernel stays inside the image.
        auto samples = [](int64_t origin, int64_t hotSpot, int64_t extent, int64_t kernel, int64_t size,
                          int64_t stepSize) {
            const int64_t start = std::max<int64_t>(origin - hotSpot, 0);
            const int64_t stop = std::min(origin - hotSpot + extent, size + 1 - kernel);
            return stop > start ? int((stop - start + stepSize - 1) / stepSize) : 0;
        };
        const int cols =
            samples(_placement.origin.x, hot.x, _placement.width, kw, _source->width(), step.first);
        const int rows =
            samples(_placement.origin.y, hot.y, _placement.height, kh, _source->height(), step.second);
        if (cols == 0 || rows == 0) throw py::value_error("kernel: no position of it fits inside the image");
        // The agent asks for an output as large as the region; the samples fill its top-left part.
        _output =
            OutputImage(out, std::max(cols, _placement.width), std::max(rows, _placement.height), "out");
        _samples = {cols, rows};
        _origin = _placement.origin;
        const Rect region{_placement.origin.x, _placement.origin.y, _placement.origin.x + _placement.width,
                          _placement.origin.y + _placement.height};
        _agent = Made(ConvFact(_source->buffer(), _output->buffer(), region, t, imageSigned ? 1 : 0,
                               kernelSigned ? 1 : 0, step.first, step.second),
                      "ConvAgent");
    }

    std::pair<int, int> _samples;

  private:
    py::object _tplObject;
    Point _origin;
};

}  // namespace

void BindCorr(py::module_& m) {
    py::class_<PyTemplate>(m, "CorrTemplate", R"doc(
A pattern for normalised correlation, trained from a region of an 8-bit image (the template keeps its own
copy). hot_spot (default (0, 0), the patch's top-left) is the point a match reports; masked=True leaves
template pixels of value 0 out of every score.

Parameters: image, roi=None (the patch: (x, y, width, height) or a Region), hot_spot=None, masked=False.)doc")
        .def(py::init(&MakeTemplate), py::arg("image"), py::arg("roi") = py::none(),
             py::arg("hot_spot") = py::none(), py::arg("masked") = false)
        .def_property_readonly("width", [](const PyTemplate& t) { return t.tpl->GetBuffer()->Width(); })
        .def_property_readonly("height", [](const PyTemplate& t) { return t.tpl->GetBuffer()->Height(); })
        .def_property_readonly(
            "hot_spot",
            [](const PyTemplate& t) { return py::make_tuple(t.tpl->GetHotSpot().x, t.tpl->GetHotSpot().y); })
        .def_property_readonly(
            "count", [](const PyTemplate& t) { return t.tpl->GetCount(); }, "Pixels scored.");

    py::class_<PyMatch> cls(m, "CorrMatchAgent", R"doc(
Normalised correlation of a template at every position of a search region (positions of its hot spot; the
template always lies wholly inside the image).

Per position: with sums over the template's pixels t and the image pixels i under them, c = sum(t*i)/N -
mean(t) mean(i), v = var(t) var(i), score = |c| / sqrt(v) (OpenCV's TM_CCOEFF_NORMED up to its sign); 0 where
v is 0.

Parameters: image, template (CorrTemplate), roi=None (hot-spot positions; None: every position),
step=(1, 1), image_signed=False, template_signed=False.
Results after go(): scores (rows x columns of visited positions), best (x, y, score), top(n, min_distance).)doc");
    cls.def(py::init<const py::object&, py::object, const py::object&, std::pair<int, int>, bool, bool>(),
            py::arg("image"), py::arg("template"), py::arg("roi") = py::none(),
            py::arg("step") = std::pair<int, int>(1, 1), py::arg("image_signed") = false,
            py::arg("template_signed") = false);
    BindRun(cls,
            "Scores every position (of `image` when given); returns 0. Raises ombrel.Error when no "
            "position fits.");
    cls.def_property_readonly("scores", &PyMatch::Scores, "Scores of the visited positions, row by row.")
        .def_property_readonly("best", &PyMatch::Best, "(x, y, score) of the best position, or None.")
        .def("top", &PyMatch::Top, py::arg("n"), py::arg("min_distance") = 0.0,
             "Up to n (x, y, score), best first, each at least min_distance pixels from those before it.");

    py::class_<PyConv> conv(m, "ConvAgent", R"doc(
Filters an 8-bit image with a kernel held in a CorrTemplate (correlation form: the kernel is not mirrored),
sampling every step pixels.

Per output pixel (n, m): acc = sum K[ky, kx] * I[iy + ky, ix + kx] over the kernel (32-bit, wrapping), with
(ix, iy) the n-th sampled column and m-th sampled row of the kernel's top-left (from the region's corner less
the hot spot, kept inside the image); out = low 8 bits of acc >> shift, shift = bit length of
trunc(sqrt(sum K^2)) (no saturation: results above 255 wrap, on purpose).

Parameters: image, template (CorrTemplate; kernel_signed=True reads its bytes as int8), image_signed=False,
kernel_signed=False, step=(1, 1), roi=None, out=None.)doc");
    conv.def(py::init<const py::object&, py::object, bool, bool, std::pair<int, int>, const py::object&,
                      const py::object&>(),
             py::arg("image"), py::arg("template"), py::arg("image_signed") = false,
             py::arg("kernel_signed") = false, py::arg("step") = std::pair<int, int>(1, 1),
             py::arg("roi") = py::none(), py::arg("out") = py::none());
    BindRun(conv, "Filters the region (of `image` when given) into the output; returns 0.");
    conv.def_property_readonly(
        "samples", [](const PyConv& a) { return a._samples; },
        "(columns, rows) of the output that the samples fill (from its top-left).");
    conv.def_property_readonly(
        "shift", [](const PyConv& a) { return a.agent()->Shift(); }, "The right shift of the last run.");
}

}  // namespace ombrel::python
