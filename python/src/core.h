// SPDX-License-Identifier: MIT
// What every binding file shares: images wrapped from numpy arrays, regions of interest, the translation of
// the library's statuses and assertion reports into Python exceptions and warnings, and the guard that runs
// an agent with the interpreter lock released.
#pragma once
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include <ombrel/ombrel.h>

namespace ombrel::python {

namespace py = pybind11;

// An image as agents see it: either a view of a numpy array's pixels (no copy; the array is kept alive for
// as long as the image) or pixels the library allocated (exposed to numpy without a copy through the buffer
// protocol). One-bit images are always the library's own: numpy has no packed-bit dtype.
class Image {
  public:
    // An 8-bit view of a 2-D uint8 array, or a one-bit copy of a 2-D bool array. Raises TypeError or
    // ValueError (with what was expected) for anything else.
    static std::shared_ptr<Image> FromArray(const py::object& array);
    // A zeroed image the library owns.
    static std::shared_ptr<Image> Allocate(int width, int height, PixelDepth depth);
    // `object` when it is already an Image, else FromArray(object).
    static std::shared_ptr<Image> From(const py::object& object);

    Buffer* buffer() const { return _buffer.get(); }
    int width() const { return _buffer->Width(); }
    int height() const { return _buffer->Height(); }
    PixelDepth depth() const { return _buffer->BitsPerPixel(); }
    bool writeable() const { return _writeable; }
    bool wrapped() const { return _buffer->Type() == HOST_WRAPPED_BUFFER; }
    const py::object& owner() const { return _owner; }
    // Raises ValueError unless the image is 8-bit (and writeable when `output`); `role` names it.
    void Require8Bit(const char* role, bool output = false) const;
    py::buffer_info BufferInfo();
    py::array ToBool() const;

  private:
    std::unique_ptr<Buffer> _buffer;
    py::object _owner;  // the numpy array whose pixels are wrapped, or None
    bool _writeable = true;
};
using ImagePtr = std::shared_ptr<Image>;

// Where an agent works on its source: an origin and a region (rectangle, or a mask of selected pixels).
struct Placement {
    Point origin;
    ROI roi;
    int width = 0;
    int height = 0;
    bool masked = false;
};
// From the Python arguments `roi` (None, an (x, y, width, height) tuple or a Region) and `mask` (None or a
// 2-D bool/uint8 array, non-zero selects, placed at the region's corner). Raises ValueError when the region
// is empty or not inside `image`.
Placement MakePlacement(const Image& image, const py::object& roi, const py::object& mask);

// A region object Python code can keep and pass to many agents.
struct Region {
    Placement placement;
};

// ---- Statuses, assertion reports, library notes -------------------------------------------------------
// Installs the library's sinks so that its reports are collected per thread while an agent runs.
void InstallSinks();
// Turns what the library reported on this thread since the last call into warnings (or an exception when
// assertion reports are made errors). Needs the interpreter lock.
void FlushReports();
// FlushReports, then raises ombrel.Error when `status` is not 0.
void CheckStatus(int status, const char* operation);
// Raises ombrel.Error with `status` and `message`.
[[noreturn]] void RaiseError(int status, const std::string& message);

// Makes sure one agent runs on one thread at a time: Python threads sharing an agent get a RuntimeError
// instead of a data race.
class BusyGuard {
  public:
    explicit BusyGuard(std::atomic<bool>& busy);
    ~BusyGuard() { _busy.store(false, std::memory_order_release); }
    BusyGuard(const BusyGuard&) = delete;
    BusyGuard& operator=(const BusyGuard&) = delete;

  private:
    std::atomic<bool>& _busy;
};

// Runs `agent->Go()` without the interpreter lock, then reports and checks its status.
template <class AgentT>
int RunGo(AgentT* agent, std::atomic<bool>& busy, const char* operation) {
    BusyGuard guard(busy);
    int status;
    {
        py::gil_scoped_release release;
        status = agent->Go();
    }
    CheckStatus(status, operation);
    return status;
}

// Raises ombrel.Error when a factory gave no agent.
template <class T>
std::unique_ptr<T> Made(T* agent, const char* operation) {
    FlushReports();
    if (agent == nullptr) RaiseError(-1, std::string(operation) + ": the library could not make the agent");
    return std::unique_ptr<T>(agent);
}

// Parses a name from `names` (case-insensitive) or accepts an int code within them; ValueError otherwise.
struct NamedCode {
    const char* name;
    int code;
};
int CodeFromName(const py::object& value, std::initializer_list<NamedCode> names, const char* what);

void BindCore(py::module_& m);
void BindBlob(py::module_& m);
void BindPixelOps(py::module_& m);
void BindMorph(py::module_& m);
void BindGradients(py::module_& m);
void BindTools(py::module_& m);
void BindCorr(py::module_& m);

}  // namespace ombrel::python
