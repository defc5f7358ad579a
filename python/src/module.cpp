// SPDX-License-Identifier: MIT
#include "core.h"

PYBIND11_MODULE(_ombrel, m) {
    m.doc() = "The Ombrel machine-vision library: agents on numpy images without a copy.";
    ombrel::python::BindCore(m);
    ombrel::python::BindBlob(m);
    ombrel::python::BindPixelOps(m);
    ombrel::python::BindMorph(m);
    ombrel::python::BindGradients(m);
    ombrel::python::BindTools(m);
    ombrel::python::BindCorr(m);
}
