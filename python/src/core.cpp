// SPDX-License-Identifier: MIT
#include "core.h"

#include <climits>
#include <string_view>
#include <vector>

namespace ombrel::python {
namespace {

std::string ShapeText(const py::array& a) {
    std::string text = "(";
    for (py::ssize_t i = 0; i < a.ndim(); ++i) text += (i ? ", " : "") + std::to_string(a.shape(i));
    return text + (a.ndim() == 1 ? ",)" : ")");
}

// A temporary 8-bit view of a 2-D array of one-byte items (uint8 or bool) whose columns are adjacent.
std::unique_ptr<Buffer> ByteView(const py::array& a) {
    return std::make_unique<Buffer>(static_cast<uint8_t*>(const_cast<void*>(a.data())), int(a.shape(1)),
                                    int(a.shape(0)), int(a.strides(0)), EIGHT);
}

// Checks that `object` is a 2-D array of uint8 or bool that can be wrapped; returns it.
py::array CheckedArray(const py::object& object, const char* role) {
    if (!py::isinstance<py::array>(object))
        throw py::type_error(std::string(role) +
                             ": expected a 2-D numpy array of uint8 (or bool for a "
                             "one-bit image), got " +
                             std::string(py::str(py::type::of(object).attr("__name__"))));
    py::array a = py::reinterpret_borrow<py::array>(object);
    const bool isBool = a.dtype().kind() == 'b';
    if (!isBool && !a.dtype().is(py::dtype::of<uint8_t>()))
        throw py::type_error(std::string(role) +
                             ": expected dtype uint8 (or bool for a one-bit image), got " +
                             std::string(py::str(a.dtype())));
    if (a.ndim() != 2)
        throw py::value_error(std::string(role) + ": expected a 2-D array (height, width), got shape " +
                              ShapeText(a));
    if (a.shape(0) == 0 || a.shape(1) == 0)
        throw py::value_error(std::string(role) + ": the image is empty, shape " + ShapeText(a));
    if (a.shape(0) > INT_MAX / 2 || a.shape(1) > INT_MAX / 2)
        throw py::value_error(std::string(role) + ": the image is too large, shape " + ShapeText(a));
    if (!isBool) {
        if (a.strides(1) != 1)
            throw py::value_error(std::string(role) +
                                  ": the pixels of a row must be adjacent (strides[1] == 1), "
                                  "got strides (" +
                                  std::to_string(a.strides(0)) + ", " + std::to_string(a.strides(1)) +
                                  "); numpy.ascontiguousarray makes such a copy");
        if (a.strides(0) < a.shape(1) || a.strides(0) > INT_MAX)
            throw py::value_error(std::string(role) +
                                  ": rows must follow each other downwards at a stride of at "
                                  "least the width, got row stride " +
                                  std::to_string(a.strides(0)) + " for width " + std::to_string(a.shape(1)));
    }
    return a;
}

}  // namespace

// ---- Image ------------------------------------------------------------------------------------------------

std::shared_ptr<Image> Image::FromArray(const py::object& object) {
    py::array a = CheckedArray(object, "image");
    auto image = std::make_shared<Image>();
    if (a.dtype().kind() == 'b') {
        // Packing to one bit per pixel is a copy by nature; the copy reads the array through a byte view.
        py::array bytes = py::module_::import("numpy").attr("ascontiguousarray")(a);
        auto view = ByteView(bytes);
        image->_buffer = std::make_unique<Buffer>(int(a.shape(1)), int(a.shape(0)), ONE);
        if (image->_buffer->GetError() != BUFFER_OK)
            throw py::value_error("image: the library could not allocate a one-bit image of shape " +
                                  ShapeText(a));
        image->_buffer->CopyFrom(view.get());
        image->_owner = py::none();
        return image;
    }
    image->_buffer = ByteView(a);
    if (image->_buffer->GetError() != BUFFER_OK)
        throw py::value_error("image: the array cannot be wrapped (shape " + ShapeText(a) + ")");
    image->_owner = a;
    image->_writeable = a.writeable();
    return image;
}

std::shared_ptr<Image> Image::Allocate(int width, int height, PixelDepth depth) {
    if (width <= 0 || height <= 0)
        throw py::value_error("image: width and height must be positive, got " + std::to_string(width) +
                              " x " + std::to_string(height));
    auto image = std::make_shared<Image>();
    image->_buffer = std::make_unique<Buffer>(width, height, depth);
    if (image->_buffer->GetError() != BUFFER_OK)
        throw py::value_error("image: the library could not allocate a " + std::to_string(width) + " x " +
                              std::to_string(height) + " image");
    image->_owner = py::none();
    return image;
}

std::shared_ptr<Image> Image::From(const py::object& object) {
    if (py::isinstance<Image>(object)) return object.cast<std::shared_ptr<Image>>();
    return FromArray(object);
}

void Image::Require8Bit(const char* role, bool output) const {
    if (depth() != EIGHT)
        throw py::value_error(std::string(role) + ": expected an 8-bit (uint8) image, got a " +
                              std::to_string(int(depth())) + "-bit one");
    if (output && !_writeable) throw py::value_error(std::string(role) + ": the output array is read-only");
}

py::buffer_info Image::BufferInfo() {
    const bool oneBit = depth() == ONE;
    const py::ssize_t columns = oneBit ? (width() + 7) / 8 : width();
    return py::buffer_info(_buffer->BaseAddr(), 1, py::format_descriptor<uint8_t>::format(), 2,
                           {py::ssize_t(height()), columns}, {py::ssize_t(_buffer->Pitch()), py::ssize_t(1)},
                           !_writeable);
}

py::array Image::ToBool() const {
    py::array_t<bool> out({height(), width()});
    auto r = out.mutable_unchecked<2>();
    for (int y = 0; y < height(); ++y) {
        const uint8_t* row = _buffer->Row(y);
        for (int x = 0; x < width(); ++x)
            r(y, x) = depth() == ONE ? ((row[x >> 3] >> (7 - (x & 7))) & 1) != 0 : row[x] != 0;
    }
    return out;
}

// ---- Regions
// ------------------------------------------------------------------------------------------------

Placement MakePlacement(const Image& image, const py::object& roi, const py::object& mask) {
    Placement p;
    int x = 0, y = 0, w = image.width(), h = image.height();
    if (py::isinstance<Region>(roi)) {
        if (!mask.is_none()) throw py::value_error("roi: give either a Region or a mask, not both");
        p = roi.cast<const Region&>().placement;
        x = p.origin.x, y = p.origin.y, w = p.width, h = p.height;
    } else if (!roi.is_none()) {
        std::vector<long long> v;
        try {
            for (auto item : roi) v.push_back(item.cast<long long>());
        } catch (const py::cast_error&) {
            v.clear();
        }
        if (v.size() != 4)
            throw py::type_error("roi: expected None, a Region or a tuple (x, y, width, height) of ints");
        if (v[2] <= 0 || v[3] <= 0 || v[0] < INT_MIN || v[0] > INT_MAX || v[1] < INT_MIN || v[1] > INT_MAX ||
            v[2] > INT_MAX || v[3] > INT_MAX)
            throw py::value_error("roi: width and height must be positive ints, got (" +
                                  std::to_string(v[0]) + ", " + std::to_string(v[1]) + ", " +
                                  std::to_string(v[2]) + ", " + std::to_string(v[3]) + ")");
        x = int(v[0]), y = int(v[1]), w = int(v[2]), h = int(v[3]);
    }
    if (!mask.is_none()) {
        py::array m = CheckedArray(mask, "mask");
        py::array bytes = py::module_::import("numpy").attr("ascontiguousarray")(m);
        auto view = ByteView(bytes);
        if (!roi.is_none() && (m.shape(1) != w || m.shape(0) != h))
            throw py::value_error("mask: its shape " + ShapeText(m) + " differs from the region's " +
                                  std::to_string(h) + " x " + std::to_string(w) + " (height x width)");
        w = int(m.shape(1)), h = int(m.shape(0));
        p.roi.SetMaskbits(view.get(), true);  // the region keeps its own one-bit copy
        p.masked = true;
    } else if (!py::isinstance<Region>(roi)) {
        p.roi.SetExtent(w, h);
    }
    const long long right = (long long)x + w, bottom = (long long)y + h;
    if (x < 0 || y < 0 || right > image.width() || bottom > image.height())
        throw py::value_error("roi: the region x=" + std::to_string(x) + ", y=" + std::to_string(y) +
                              ", width=" + std::to_string(w) + ", height=" + std::to_string(h) +
                              " does not lie inside the " + std::to_string(image.width()) + " x " +
                              std::to_string(image.height()) + " image");
    p.origin = Point{x, y};
    p.width = w;
    p.height = h;
    return p;
}

// ---- Reports
// ------------------------------------------------------------------------------------------------
namespace {

struct Reports {
    std::vector<std::string> assertions;
    std::vector<std::string> notes;
};
thread_local Reports tReports;
bool gAssertionsAsErrors = false;
py::object* gErrorType = nullptr;
py::object* gAssertionErrorType = nullptr;
py::object* gAssertionWarning = nullptr;
py::object* gNoteWarning = nullptr;

std::string Trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == '\n' || text.front() == ' ')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.remove_suffix(1);
    return std::string(text);
}

void Warn(const py::object& category, const std::string& text) {
    if (PyErr_WarnEx(category.ptr(), text.c_str(), 2) != 0) throw py::error_already_set();
}

}  // namespace

void InstallSinks() {
    SetAssertSink([](const char* module, int line, const char* expression) {
        tReports.assertions.push_back(std::string(module) + ":" + std::to_string(line) + ": " + expression);
    });
    SetTextSink([](TextChannel, std::string_view text) {
        std::string t = Trimmed(text);
        if (!t.empty()) tReports.notes.push_back(std::move(t));
    });
    SetDebugWindowSink([](uint32_t, std::string_view text) {
        std::string t = Trimmed(text);
        if (!t.empty()) tReports.notes.push_back(std::move(t));
    });
}

void FlushReports() {
    Reports reports = std::move(tReports);
    tReports = Reports{};
    for (const std::string& note : reports.notes) Warn(*gNoteWarning, note);
    if (reports.assertions.empty()) return;
    if (gAssertionsAsErrors) {
        std::string message = "assertion failed: " + reports.assertions.front();
        for (size_t i = 1; i < reports.assertions.size(); ++i) message += "; " + reports.assertions[i];
        py::object exc = (*gAssertionErrorType)(message);
        exc.attr("status") = 0;
        exc.attr("message") = message;
        PyErr_SetObject(gAssertionErrorType->ptr(), exc.ptr());
        throw py::error_already_set();
    }
    for (const std::string& a : reports.assertions) Warn(*gAssertionWarning, "assertion failed: " + a);
}

void RaiseError(int status, const std::string& message) {
    py::object exc = (*gErrorType)(message + " (status " + std::to_string(status) + ")");
    exc.attr("status") = status;
    exc.attr("message") = message;
    PyErr_SetObject(gErrorType->ptr(), exc.ptr());
    throw py::error_already_set();
}

void CheckStatus(int status, const char* operation) {
    if (status == 0) {
        FlushReports();
        return;
    }
    // The library's own words for the failure (debug-window messages and notes) become the message.
    Reports reports = std::move(tReports);
    tReports = Reports{};
    std::string message = std::string(operation) + " failed";
    for (const std::string& note : reports.notes) message += ": " + note;
    for (const std::string& a : reports.assertions) message += "; assertion failed: " + a;
    RaiseError(status, message);
}

BusyGuard::BusyGuard(std::atomic<bool>& busy) : _busy(busy) {
    if (_busy.exchange(true, std::memory_order_acquire))
        throw std::runtime_error("this agent is running in another thread; use one agent per thread");
}

int CodeFromName(const py::object& value, std::initializer_list<NamedCode> names, const char* what) {
    std::string known;
    for (const NamedCode& n : names) known += std::string(known.empty() ? "" : ", ") + n.name;
    if (py::isinstance<py::str>(value)) {
        std::string s = value.cast<std::string>();
        for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
        for (const NamedCode& n : names)
            if (s == n.name) return n.code;
        throw py::value_error(std::string(what) + ": unknown name '" + s + "' (expected one of " + known +
                              ")");
    }
    if (py::isinstance<py::int_>(value) && !py::isinstance<py::bool_>(value)) {
        const long long code = value.cast<long long>();
        for (const NamedCode& n : names)
            if (code == n.code) return n.code;
        throw py::value_error(std::string(what) + ": unknown code " + std::to_string(code) +
                              " (expected one of " + known + ")");
    }
    throw py::type_error(std::string(what) + ": expected a name (one of " + known + ") or its code");
}

// ---- Bindings ---------------------------------------------------------------------------------------------

void BindCore(py::module_& m) {
    // Made once and never freed: the interpreter may be gone when static destructors run.
    auto* error = new py::object(py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
        "ombrel.Error",
        "A library operation failed. `status` is the library's status code (0 for an "
        "assertion made an error), `message` its explanation.",
        nullptr, nullptr)));
    auto* assertionError = new py::object(py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
        "ombrel.AssertionFailed",
        "A precondition the library checks did not hold, raised instead of a warning after "
        "assertions_as_errors(True).",
        error->ptr(), nullptr)));
    auto* assertionWarning = new py::object(py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
        "ombrel.AssertionWarning",
        "A precondition the library checks did not hold; the operation went on with what it had (clipped, "
        "inside the memory it was given). Make it an error with assertions_as_errors(True) or a warnings "
        "filter.",
        PyExc_UserWarning, nullptr)));
    auto* noteWarning = new py::object(py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
        "ombrel.LibraryNote",
        "A note the library wrote for its user (diagnostic text or a debug-window message).",
        PyExc_UserWarning, nullptr)));
    gErrorType = error;
    gAssertionErrorType = assertionError;
    gAssertionWarning = assertionWarning;
    gNoteWarning = noteWarning;
    m.attr("Error") = *error;
    m.attr("AssertionFailed") = *assertionError;
    m.attr("AssertionWarning") = *assertionWarning;
    m.attr("LibraryNote") = *noteWarning;
    InstallSinks();

    m.def(
        "assertions_as_errors",
        [](bool on) {
            const bool was = gAssertionsAsErrors;
            gAssertionsAsErrors = on;
            return was;
        },
        py::arg("on"),
        "Make the library's assertion reports raise ombrel.AssertionFailed (True) or emit "
        "ombrel.AssertionWarning (False, the default). Returns the previous setting.");

    py::class_<Image, std::shared_ptr<Image>>(m, "Buffer", py::buffer_protocol(), R"doc(
An image the agents read and write.

Buffer(array) wraps a 2-D numpy uint8 array without copying: the buffer's pixel (x, y) is array[y, x], the
row stride is the array's, and the array is kept alive as long as the buffer. numpy.asarray(buffer) is a view
of the same pixels (buffer protocol). A 2-D bool array gives a one-bit image (a packed copy: numpy has no
bit dtype); its buffer-protocol view is the packed bytes, 8 pixels per byte, most significant bit first, and
to_bool() unpacks it. Buffer.zeros(width, height) allocates a zeroed image the library owns.)doc")
        .def(py::init([](const py::object& array) { return Image::FromArray(array); }), py::arg("array"))
        .def_static(
            "zeros",
            [](int width, int height, int depth) {
                if (depth != 1 && depth != 8) throw py::value_error("depth: expected 1 or 8 bits per pixel");
                return Image::Allocate(width, height, depth == 1 ? ONE : EIGHT);
            },
            py::arg("width"), py::arg("height"), py::arg("depth") = 8,
            "A zeroed image of `width` x `height` pixels and `depth` bits (1 or 8) that the library owns.")
        .def_property_readonly("width", &Image::width, "Pixels per row.")
        .def_property_readonly("height", &Image::height, "Rows.")
        .def_property_readonly(
            "shape", [](const Image& i) { return py::make_tuple(i.height(), i.width()); },
            "(height, width), as numpy orders them.")
        .def_property_readonly(
            "pitch", [](const Image& i) { return i.buffer()->Pitch(); }, "Bytes from one row to the next.")
        .def_property_readonly(
            "depth", [](const Image& i) { return int(i.depth()); }, "Bits per pixel: 1 or 8.")
        .def_property_readonly(
            "address", [](const Image& i) { return reinterpret_cast<uintptr_t>(i.buffer()->BaseAddr()); },
            "Address of pixel (0, 0); equal to the wrapped array's data pointer.")
        .def_property_readonly("wrapped", &Image::wrapped, "True when the pixels belong to a numpy array.")
        .def_property_readonly("writeable", &Image::writeable, "False when the wrapped array is read-only.")
        .def_property_readonly(
            "array", [](const Image& i) { return i.owner(); },
            "The wrapped numpy array (None for an image the library owns).")
        .def("to_bool", &Image::ToBool,
             "A new bool array: True where the pixel is non-zero (1 for one-bit images).")
        .def("__repr__",
             [](const Image& i) {
                 return "<ombrel.Buffer " + std::to_string(i.width()) + "x" + std::to_string(i.height()) +
                        " " + std::to_string(int(i.depth())) + "-bit" +
                        (i.wrapped() ? " wrapping a numpy array>" : ">");
             })
        .def_buffer(&Image::BufferInfo);

    py::class_<Region>(m, "Region", R"doc(
A region of interest: a rectangle placed on an image, optionally with a mask selecting its pixels.

Region(x, y, width, height) is the rectangle of columns x..x+width-1 and rows y..y+height-1.
Region.from_mask(mask, x=0, y=0) selects the pixels where the 2-D bool/uint8 mask is non-zero, with mask[0, 0]
on image pixel (x, y); the region keeps its own one-bit copy of the mask.
An agent given a region that does not lie inside its image raises ValueError.)doc")
        .def(py::init([](int x, int y, int width, int height) {
                 if (width <= 0 || height <= 0)
                     throw py::value_error("Region: width and height must be positive, got " +
                                           std::to_string(width) + " x " + std::to_string(height));
                 Region r;
                 r.placement.origin = Point{x, y};
                 r.placement.roi.SetExtent(width, height);
                 r.placement.width = width;
                 r.placement.height = height;
                 return r;
             }),
             py::arg("x"), py::arg("y"), py::arg("width"), py::arg("height"))
        .def_static(
            "from_mask",
            [](const py::object& mask, int x, int y) {
                py::array a = CheckedArray(mask, "mask");
                Region r;
                // Placed on a stand-in image just large enough, so that only the mask's own checks apply.
                auto bytes = py::module_::import("numpy").attr("ascontiguousarray")(a).cast<py::array>();
                auto view = ByteView(bytes);
                r.placement.roi.SetMaskbits(view.get(), true);
                r.placement.origin = Point{x, y};
                r.placement.width = int(a.shape(1));
                r.placement.height = int(a.shape(0));
                r.placement.masked = true;
                return r;
            },
            py::arg("mask"), py::arg("x") = 0, py::arg("y") = 0)
        .def_property_readonly("x", [](const Region& r) { return r.placement.origin.x; })
        .def_property_readonly("y", [](const Region& r) { return r.placement.origin.y; })
        .def_property_readonly("width", [](const Region& r) { return r.placement.width; })
        .def_property_readonly("height", [](const Region& r) { return r.placement.height; })
        .def_property_readonly(
            "masked", [](const Region& r) { return r.placement.masked; },
            "True when a mask selects the region's pixels.")
        .def("__repr__", [](const Region& r) {
            const Placement& p = r.placement;
            return "<ombrel.Region x=" + std::to_string(p.origin.x) + " y=" + std::to_string(p.origin.y) +
                   " width=" + std::to_string(p.width) + " height=" + std::to_string(p.height) +
                   (p.masked ? " masked>" : ">");
        });
}

}  // namespace ombrel::python
