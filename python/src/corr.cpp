// SPDX-License-Identifier: MIT
// Normalised grey-level correlation from Python: a template trained from a patch, a match agent scoring
// every position of a search region.
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
}

}  // namespace ombrel::python
