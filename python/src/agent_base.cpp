// SPDX-License-Identifier: MIT
#include "agent_base.h"

namespace ombrel::python {

void RequireSize(const Image& image, int width, int height, const char* role) {
    if (image.width() < width || image.height() < height)
        throw py::value_error(std::string(role) + ": expected at least " + std::to_string(width) + " x " +
                              std::to_string(height) + " pixels (width x height), got " +
                              std::to_string(image.width()) + " x " + std::to_string(image.height()));
}

ImagePtr OutputImage(const py::object& out, int width, int height, const char* role) {
    if (out.is_none()) return Image::Allocate(width, height, EIGHT);
    ImagePtr image = Image::From(out);
    image->Require8Bit(role, true);
    RequireSize(*image, width, height, role);
    return image;
}

py::object ArrayOf(const ImagePtr& image) {
    if (image->wrapped()) return image->owner();
    return py::module_::import("numpy").attr("asarray")(py::cast(image));
}

}  // namespace ombrel::python
