// SPDX-License-Identifier: MIT
// The shape most agents share from Python: one source image read over a placement, an optional output image
// written from (0, 0), go() per frame.
#pragma once
#include <chrono>
#include <string>

#include "core.h"

namespace ombrel::python {

// The output image of an agent: `out` when given (a writeable 8-bit Buffer or array of at least
// `width` x `height`), else a zeroed image the library owns.
ImagePtr OutputImage(const py::object& out, int width, int height, const char* role);
// numpy view of an image's pixels (the wrapped array itself when there is one).
py::object ArrayOf(const ImagePtr& image);
// Raises ValueError when `image` is smaller than `width` x `height`.
void RequireSize(const Image& image, int width, int height, const char* role);

template <class A>
class PyAgent {
  public:
    explicit PyAgent(const char* name) : _name(name) {}

    A* agent() const { return _agent.get(); }
    const ImagePtr& source() const { return _source; }
    const ImagePtr& output() const { return _output; }
    const Placement& placement() const { return _placement; }

    // A new source for the next runs; it must hold the agent's region.
    void SetSource(const py::object& object) {
        ImagePtr image = Image::From(object);
        image->Require8Bit("image");
        RequireSize(*image, _placement.origin.x + _placement.width, _placement.origin.y + _placement.height,
                    "image");
        _source = std::move(image);
        _agent->SetSrcBuf(_source->buffer());
    }

    int Go(const py::object& image) {
        if (!image.is_none()) SetSource(image);
        return RunGo(_agent.get(), _busy, _name);
    }

    double NativeGoSeconds(int runs) {
        BusyGuard guard(_busy);
        const auto start = std::chrono::steady_clock::now();
        {
            py::gil_scoped_release release;
            for (int i = 0; i < runs; ++i) _agent->Go();
        }
        FlushReports();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }

  protected:
    // Wraps the source and works out the placement; call before making the agent.
    void Prepare(const py::object& image, const py::object& roi, const py::object& mask) {
        _source = Image::From(image);
        _source->Require8Bit("image");
        _placement = MakePlacement(*_source, roi, mask);
    }

    const char* _name;
    std::unique_ptr<A> _agent;
    ImagePtr _source;
    ImagePtr _output;
    Placement _placement;
    std::atomic<bool> _busy{false};
};

// go(), image and output on a bound PyAgent subclass.
template <class Cls>
void BindRun(Cls& cls, const char* goDoc) {
    using T = typename Cls::type;
    cls.def("go", &T::Go, py::arg("image") = py::none(), goDoc)
        .def("native_go_seconds", &T::NativeGoSeconds, py::arg("runs"),
             "Seconds that `runs` calls of the agent's Go() take in a C++ loop (no Python in between): the "
             "reference the per-call overhead of go() is measured against.")
        .def_property_readonly("image", &T::source, "The source image (a Buffer).")
        .def_property_readonly(
            "output", [](const T& a) { return a.output() ? ArrayOf(a.output()) : py::object(py::none()); },
            "The output image as a numpy array (no copy), or None for agents without one.");
}

}  // namespace ombrel::python
