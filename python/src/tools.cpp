// SPDX-License-Identifier: MIT
// Break detection from Python.
#include "agent_base.h"

namespace ombrel::python {
namespace {

class PyBreak : public PyAgent<BreakAgent> {
  public:
    PyBreak(const py::object& image, const py::object& templ, const py::object& dilated, int iterations,
            bool xorMode, bool borderSet, const py::object& roi)
        : PyAgent("BreakAgent.go") {
        if (iterations < 0) throw py::value_error("iterations: expected 0 (converge) or a positive count");
        Prepare(image, roi, py::none());
        _template = Image::From(templ);
        _dilated = Image::From(dilated);
        _template->Require8Bit("template");
        _dilated->Require8Bit("dilated");
        RequireSize(*_template, _source->width(), _source->height(), "template");
        RequireSize(*_dilated, _source->width(), _source->height(), "dilated");
        _agent = Made(new (std::nothrow)
                          BreakAgent(_source->buffer(), _template->buffer(), _dilated->buffer(),
                                     _placement.origin, _placement.roi,
                                     borderSet ? BMBORDER_SET : BMBORDER_CLEAR, iterations, xorMode ? 1 : 0),
                      "BreakAgent");
    }
    // Go, then the refinement of the converging mode (PostGo), as one run.
    int GoAndRefine(const py::object& image) {
        if (!image.is_none()) SetSource(image);
        BusyGuard guard(_busy);
        int status;
        {
            py::gil_scoped_release release;
            status = _agent->Go();
            if (status == 0) status = _agent->PostGo();
        }
        CheckStatus(status, _name);
        return status;
    }
    py::object Breaks() {
        Buffer* breaks = _agent->Breaks();
        if (breaks == nullptr) return py::none();
        // A copy: the agent owns the buffer and may rebuild it.
        py::array_t<uint8_t> out({breaks->Height(), breaks->Width()});
        auto o = out.mutable_unchecked<2>();
        for (int y = 0; y < breaks->Height(); ++y)
            for (int x = 0; x < breaks->Width(); ++x) o(y, x) = breaks->Row(y)[x];
        return out;
    }
    ImagePtr _template, _dilated;
};

}  // namespace

void BindTools(py::module_& m) {
    py::class_<PyBreak> cls(m, "BreakAgent", R"doc(
Break detection on binary images (one byte per pixel, 1 set): compares an image of traces with its template
and a dilated copy of the image, and marks the pixels where a trace of the template is cut.

Pipeline: common = (dilated AND template) frozen; diff = image XOR template (xor_mode) or the template
pixels clear in the image; directional thinning passes (iterations, 0 = until nothing changes), end-point
passes; breaks holds 1 at the break pixels.

Parameters: image, template, dilated, iterations=0, xor_mode=True, border_set=False, roi=None.)doc");
    cls.def(py::init<const py::object&, const py::object&, const py::object&, int, bool, bool,
                     const py::object&>(),
            py::arg("image"), py::arg("template"), py::arg("dilated"), py::arg("iterations") = 0,
            py::arg("xor_mode") = true, py::arg("border_set") = false, py::arg("roi") = py::none());
    cls.def("go", &PyBreak::GoAndRefine, py::arg("image") = py::none(),
            "Runs the pipeline (on `image` when given) and, with iterations=0, its refinement; returns 0.")
        .def_property_readonly("image", &PyBreak::source, "The image of traces (a Buffer).");
    cls.def_property_readonly("breaks", &PyBreak::Breaks,
                              "The break image of the last run (a uint8 copy, 1 at break pixels), or None.");
}

}  // namespace ombrel::python
