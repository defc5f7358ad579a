// SPDX-License-Identifier: MIT
// Binary and grey morphology from Python.
#include <vector>

#include "agent_base.h"

namespace ombrel::python {
namespace {

const std::initializer_list<NamedCode> kBinOps = {{"erode_keep6", ErodeKeep6},
                                                  {"erode_full", ErodeFull},
                                                  {"dilate_min2", DilateMin2},
                                                  {"copy", Copy},
                                                  {"erode_keep2", ErodeKeep2},
                                                  {"keep_square_or_diagonal", KeepSquareOrDiagonal},
                                                  {"dilate_full", DilateFull},
                                                  {"fill_bridges", FillBridges},
                                                  {"thin_if_right_or_below", ThinIfRightOrBelow},
                                                  {"thin_if_left_or_above", ThinIfLeftOrAbove},
                                                  {"up", Up},
                                                  {"down", Down},
                                                  {"left", Left},
                                                  {"right", Right},
                                                  {"etptl", ETPTL},
                                                  {"etpbr", ETPBR},
                                                  {"tfp", TFP},
                                                  {"fill_pinholes", FillPinholes}};

std::unique_ptr<BinMorphOperator> MakeOperator(const py::object& op) {
    if (py::isinstance<py::str>(op) || py::isinstance<py::int_>(op))
        return std::make_unique<BinMorphOperator>(BinMorphOpCode(CodeFromName(op, kBinOps, "op")));
    std::vector<unsigned int> lut;
    try {
        for (auto word : op) lut.push_back(word.cast<unsigned int>());
    } catch (const py::cast_error&) {
        lut.clear();
    }
    if (lut.size() != 16)
        throw py::type_error(
            "op: expected an operation name or code, or a table of 16 unsigned 32-bit words");
    return std::make_unique<BinMorphOperator>(lut.data());
}

class PyBinMorph : public PyAgent<BinMorphAgent> {
  public:
    PyBinMorph(const py::object& image, const py::object& op, int iterations, bool borderSet,
               const py::object& roi, const py::object& out)
        : PyAgent("BinMorphAgent.go"), _op(MakeOperator(op)) {
        Prepare(image, roi, py::none());
        _output = OutputImage(out, _placement.width, _placement.height, "out");
        _agent = Made(new (std::nothrow) swBinMorphAgent(
                          _source->buffer(), _output->buffer(), _placement.origin, _placement.roi,
                          borderSet ? BMBORDER_SET : BMBORDER_CLEAR, _op.get(), iterations),
                      "BinMorphAgent");
    }
    std::unique_ptr<BinMorphOperator> _op;
};

const std::initializer_list<NamedCode> kGrayOps = {
    {"erode", GRAYMORPH_ERODE}, {"dilate", GRAYMORPH_DILATE},     {"open", GRAYMORPH_OPEN},
    {"close", GRAYMORPH_CLOSE}, {"gradient", GRAYMORPH_GRADIENT}, {"tophat", GRAYMORPH_TOPHAT},
    {"well", GRAYMORPH_WELL}};

std::unique_ptr<GrayMorphElem> MakeElement(const py::object& element, const py::object& hot) {
    std::vector<unsigned char> weights;
    int width = 0, height = 0;
    if (py::isinstance<py::array>(element)) {
        auto a = py::array_t<uint8_t, py::array::c_style | py::array::forcecast>::ensure(element);
        if (!a || a.ndim() != 2)
            throw py::value_error("element: expected a 2-D array of weights (non-zero: member)");
        height = int(a.shape(0)), width = int(a.shape(1));
        if (width < 1 || height < 1 || width > kGrayMorphMaxSide || height > kGrayMorphMaxSide ||
            int64_t(width) * height > kGrayMorphMaxCells)
            throw py::value_error("element: each side must be 1.." + std::to_string(kGrayMorphMaxSide));
        weights.assign(a.data(), a.data() + a.size());
    } else {
        auto size = element.cast<std::pair<int, int>>();
        width = size.first, height = size.second;
        if (width < 1 || height < 1 || width > kGrayMorphMaxSide || height > kGrayMorphMaxSide)
            throw py::value_error("element: each side must be 1.." + std::to_string(kGrayMorphMaxSide));
        weights.assign(size_t(width) * height, 1);
    }
    bool anyMember = false;
    for (unsigned char w : weights) anyMember |= w != 0;
    if (!anyMember) throw py::value_error("element: it has no member (every weight is 0)");
    int hx = width / 2, hy = height / 2;
    if (!hot.is_none()) {
        auto h = hot.cast<std::pair<int, int>>();
        if (h.first < 0 || h.second < 0 || h.first >= width || h.second >= height)
            throw py::value_error("hot_spot: expected (x, y) inside the element");
        hx = h.first, hy = h.second;
    }
    return std::make_unique<GrayMorphElem>(hx, hy, width, height, weights.data());
}

class PyGrayMorph : public PyAgent<GrayMorphAgent> {
  public:
    PyGrayMorph(const py::object& image, const py::object& op, const py::object& element,
                const py::object& hot, int iterations, bool inverted, const py::object& roi,
                const py::object& out)
        : PyAgent("GrayMorphAgent.go"), _elem(MakeElement(element, hot)) {
        const int code = CodeFromName(op, kGrayOps, "op");
        Prepare(image, roi, py::none());
        _output = OutputImage(out, _placement.width, _placement.height, "out");
        _agent = Made(GrayMorphFact(_source->buffer(), _output->buffer(), _placement.origin, _placement.roi,
                                    GRAYMORPHOP(code), inverted ? GM_POLARITY_INVERTED : GM_POLARITY_NORMAL,
                                    iterations, _elem.get()),
                      "GrayMorphAgent");
    }
    std::unique_ptr<GrayMorphElem> _elem;
};

}  // namespace

void BindMorph(py::module_& m) {
    py::class_<PyBinMorph> bin(m, "BinMorphAgent", R"doc(
Binary morphology on an image of one byte per pixel (1 set, 0 clear, bit value 2 freezes a pixel).

Per pass and pixel: the 3x3 neighbourhood (bit 0 upper right, 1 upper, 2 upper left, 3 right, 4 centre, 5
left, 6 lower right, 7 lower, 8 lower left) indexes the operation's 512-entry table; frozen pixels are
copied; neighbours outside the region read the border value (0, or 1 with border_set=True).

Parameters: image, op (erode_keep6, erode_full, dilate_min2, copy, erode_keep2, keep_square_or_diagonal,
dilate_full, fill_bridges, thin_if_right_or_below, thin_if_left_or_above, up, down, left, right, etptl,
etpbr, tfp, fill_pinholes; a code 0..17; or 16 table words), iterations=1, border_set=False, roi=None,
out=None.)doc");
    bin.def(py::init<const py::object&, const py::object&, int, bool, const py::object&, const py::object&>(),
            py::arg("image"), py::arg("op"), py::arg("iterations") = 1, py::arg("border_set") = false,
            py::arg("roi") = py::none(), py::arg("out") = py::none());
    BindRun(bin, "Runs the passes (on `image` when given); returns 0.");
    bin.def_property_readonly(
           "set_pixels", [](const PyBinMorph& a) { return a.agent()->SetPixelCount(); },
           "Set pixels written by the last pass.")
        .def_property(
            "iterations", [](const PyBinMorph& a) { return a.agent()->Iterations(); },
            [](PyBinMorph& a, int n) { a.agent()->SetIterations(n); }, "Passes per go().");

    py::class_<PyGrayMorph> gray(m, "GrayMorphAgent", R"doc(
Grey morphology with a flat structuring element.

Per pixel: erode = minimum, dilate = maximum of the pixels under the element's members, placed with its hot
spot on the pixel; outside the region reads 255 for a minimum and 0 for a maximum (never wins). open =
erode then dilate, close = dilate then erode, gradient = |dilate - erode|, tophat = |image - open|, well =
|image - close|; inverted=True swaps minimum and maximum.

Parameters: image, op="erode", element=(3, 3) (a (width, height) rectangle, or a 2-D array of weights,
non-zero: member), hot_spot=None (the centre (w // 2, h // 2)), iterations=1, inverted=False, roi=None,
out=None.)doc");
    gray.def(py::init<const py::object&, const py::object&, const py::object&, const py::object&, int, bool,
                      const py::object&, const py::object&>(),
             py::arg("image"), py::arg("op") = "erode", py::arg("element") = py::make_tuple(3, 3),
             py::arg("hot_spot") = py::none(), py::arg("iterations") = 1, py::arg("inverted") = false,
             py::arg("roi") = py::none(), py::arg("out") = py::none());
    BindRun(gray, "Filters the region (of `image` when given) into the output; returns 0.");
}

}  // namespace ombrel::python
