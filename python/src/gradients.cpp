// SPDX-License-Identifier: MIT
// Sobel gradients, scene angle and auto focus from Python.
#include "agent_base.h"

namespace ombrel::python {
namespace {

const std::initializer_list<NamedCode> kSobelOuts = {
    {"dx", DX},       {"dy", DY},       {"mag", MAG},    {"angle", ANGLE},    {"qangle", QANGLE},
    {"absdx", ABSDX}, {"absdy", ABSDY}, {"3m5a", _3M5A}, {"4gx4gy", _4GX4GY}, {"sumabs", SUMABS}};

class PySobel : public PyAgent<SobelAgent> {
  public:
    PySobel(const py::object& image, const py::object& encoding, int shift, int threshold, int sparseness,
            const py::object& roi, const py::object& mask, const py::object& out)
        : PyAgent("SobelAgent.go") {
        const int code = CodeFromName(encoding, kSobelOuts, "encoding");
        if (shift < 0 || shift > 7) throw py::value_error("shift: expected 0..7");
        if (sparseness < 1) throw py::value_error("sparseness: expected a positive step");
        Prepare(image, roi, mask);
        // One output pixel per sample: ceil(extent / sparseness), worked out without overflow.
        _output = OutputImage(out, int((int64_t(_placement.width) + sparseness - 1) / sparseness),
                              int((int64_t(_placement.height) + sparseness - 1) / sparseness), "out");
        _agent = Made(SobelFact(_source->buffer(), _output->buffer(), _placement.origin, &_placement.roi,
                                SobelOut(code), SobelShift(shift), threshold, sparseness),
                      "SobelAgent");
    }
};

class PySceneAngle : public PyAgent<SceneAngleAgent> {
  public:
    PySceneAngle(const py::object& image, int fold, const py::object& roi) : PyAgent("SceneAngleAgent.go") {
        if (fold < 0 || fold > 2) throw py::value_error("fold: expected 0, 1 or 2");
        Prepare(image, roi, py::none());
        _agent =
            Made(SceneAngleFact(_source->buffer(), _placement.origin, _placement.roi), "SceneAngleAgent");
        _agent->SetFoldMode(fold);
    }
};

// Auto focus runs a histogram step that accepts only images the library allocated, so an agent on a numpy
// array reads a library-owned copy of it, refreshed by every go(); a Buffer.zeros image is read directly.
class PyAutoFocus : public PyAgent<AutoFocusAgent> {
  public:
    PyAutoFocus(const py::object& image, std::pair<int, int> step, bool isSigned, const py::object& roi)
        : PyAgent("AutoFocusAgent.go") {
        if (step.first < 0 || step.second < 0) throw py::value_error("step: expected non-negative (x, y)");
        Prepare(image, roi, py::none());
        _agent = Made(new (std::nothrow) AutoFocusAgent(Readable(), _placement.origin, _placement.roi),
                      "AutoFocusAgent");
        _agent->SetSparseness(step.first, step.second);
        _agent->SetSigned(isSigned);
    }
    int GoOn(const py::object& image) {
        if (!image.is_none()) SetSource(image);
        _agent->SetSrcBuf(Readable());
        return RunGo(_agent.get(), _busy, _name);
    }

  private:
    Buffer* Readable() {
        if (!_source->wrapped()) return _source->buffer();
        if (!_copy || _copy->Width() != _source->width() || _copy->Height() != _source->height()) {
            _copy = std::make_unique<Buffer>(_source->width(), _source->height(), EIGHT);
            if (_copy->GetError() != BUFFER_OK) throw std::bad_alloc();
        }
        _copy->CopyFrom(_source->buffer());
        return _copy.get();
    }
    std::unique_ptr<Buffer> _copy;
};

}  // namespace

void BindGradients(py::module_& m) {
    py::class_<PySobel> sobel(m, "SobelAgent", R"doc(
3x3 Sobel gradient of an 8-bit region, written as one of ten 8-bit encodings, with statistics.

Per pixel: gx = ((c + 2f + k) - (a + 2d + g)) >> shift, gy = ((a + 2b + c) - (g + 2h + k)) >> shift (y up,
top minus bottom), each clamped to -127..127; encoding dx, dy (two's complement bytes), mag (length table,
0..180), angle (256 codes per turn counter-clockwise from +x), qangle ((mag > threshold) << 7 | angle >> 1),
absdx, absdy, 3m5a, 4gx4gy, sumabs (|gx| + |gy|). The output's first and last rows and columns, and pixels
whose neighbourhood leaves the image, hold the fill value (0; 0x40 for qangle).

Parameters: image, encoding="mag", shift=0, threshold=0, sparseness=1 (sample every n-th pixel), roi=None,
mask=None, out=None.)doc");
    sobel.def(py::init<const py::object&, const py::object&, int, int, int, const py::object&,
                       const py::object&, const py::object&>(),
              py::arg("image"), py::arg("encoding") = "mag", py::arg("shift") = 0, py::arg("threshold") = 0,
              py::arg("sparseness") = 1, py::arg("roi") = py::none(), py::arg("mask") = py::none(),
              py::arg("out") = py::none());
    BindRun(sobel, "Writes the gradient image (of `image` when given); returns 0.");
    sobel
        .def_property_readonly(
            "strong_count", [](const PySobel& a) { return a.agent()->StrongCount(); },
            "Pixels whose figure exceeds the threshold (mag, absdx, absdy, sumabs, qangle).")
        .def_property_readonly("strong_gray_sum", [](const PySobel& a) { return a.agent()->StrongGraySum(); })
        .def_property_readonly(
            "output_sum", [](const PySobel& a) { return a.agent()->OutputSum(); },
            "Sum of the computed output bytes (32-bit, wrapping).")
        .def_property_readonly("nonzero_count", [](const PySobel& a) { return a.agent()->NonZeroCount(); });

    py::class_<PySceneAngle> angle(m, "SceneAngleAgent", R"doc(
The dominant edge direction of a region, from the histogram of its strong Sobel directions (qangle, shift 2,
threshold 15) folded so that directions a quarter turn (fold=2), a half turn (1) or a full turn (0) apart
coincide.

Results after go(): angle (radians, the library's pi 3.14159265358789), strength (per mille of the strong
pixels in the peak bin), coverage (percent of the region's pixels that are strong), hist (128 counts),
angle_diff(other) (rotation of this scene relative to another agent's, radians).

Parameters: image, fold=2, roi=None.)doc");
    angle.def(py::init<const py::object&, int, const py::object&>(), py::arg("image"), py::arg("fold") = 2,
              py::arg("roi") = py::none());
    BindRun(angle, "Measures the region (of `image` when given); returns 0.");
    angle.def_property_readonly("angle", [](const PySceneAngle& a) { return a.agent()->Angle(); })
        .def_property_readonly("strength", [](const PySceneAngle& a) { return a.agent()->Strength(); })
        .def_property_readonly("coverage", [](const PySceneAngle& a) { return a.agent()->Coverage(); })
        .def_property_readonly(
            "hist", [](const PySceneAngle& a) { return py::array_t<int32_t>(128, a.agent()->Hist()); },
            "Strong pixels per 7-bit direction code (a copy).")
        .def(
            "angle_diff",
            [](PySceneAngle& a, PySceneAngle& other) { return a.agent()->AngleDiff(other.agent()); },
            py::arg("other"), "Rotation of this agent's scene relative to `other`'s, in radians.");

    py::class_<PyAutoFocus> focus(m, "AutoFocusAgent", R"doc(
Sharpness of a region: focus = 1000 * sum |S(x + dx, y + dy) - S(x, y)| / sum S over the region, with the
region's mean (sum over the non-zero pixels' count) and a spread figure from its 256-bin histogram (divided
by 255 bins, not by the pixel count). The region shrinks by the step where it would leave the image.

An agent on a numpy array reads a library-owned copy of it (the histogram step accepts only the library's
own images); give it a Buffer.zeros image, filled through numpy.asarray, to avoid the copy.

Parameters: image, step=(1, 1), signed=False, roi=None.)doc");
    focus.def(py::init<const py::object&, std::pair<int, int>, bool, const py::object&>(), py::arg("image"),
              py::arg("step") = std::pair<int, int>(1, 1), py::arg("signed") = false,
              py::arg("roi") = py::none());
    focus.def("go", &PyAutoFocus::GoOn, py::arg("image") = py::none(), "Measures the region; returns 0.")
        .def_property_readonly("image", &PyAutoFocus::source)
        .def_property_readonly("focus", [](const PyAutoFocus& a) { return a.agent()->Focus(); })
        .def_property_readonly("diff_sum", [](const PyAutoFocus& a) { return a.agent()->DiffSum(); })
        .def_property_readonly("pixel_sum", [](const PyAutoFocus& a) { return a.agent()->PixelSum(); })
        .def_property_readonly("pixel_count", [](const PyAutoFocus& a) { return a.agent()->PixelCount(); })
        .def_property_readonly("mean", [](const PyAutoFocus& a) { return a.agent()->Mean(); })
        .def_property_readonly("std_dev", [](const PyAutoFocus& a) { return a.agent()->StdDev(); });
}

}  // namespace ombrel::python
