// SPDX-License-Identifier: MIT
// Blob analysis from Python: the agent made once, run per frame, its regions read back as a table of named
// features and a tree of labels.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include <ombrel/blob/blob_feature_set.h>
#include <ombrel/blob/blob_shape.h>

#include "core.h"

namespace ombrel::python {
namespace {

// Features that are not numbered library features but standard figures a reader expects.
constexpr int kCentroidX = -1;  // mean column index of the region's pixels, image coordinates
constexpr int kCentroidY = -2;  // mean row index
constexpr int kBoxX = -3, kBoxY = -4, kBoxRight = -5, kBoxBottom = -6;  // image coordinates, exclusive
constexpr int kLabel = -7;

struct FeatureName {
    const char* name;
    int number;
};

const std::vector<FeatureName>& Features() {
    static const std::vector<FeatureName> features = {
        {"label", kLabel},
        {"colour", BF_COLOR},
        {"area", BF_AREA},
        {"filled_area", BF_FILLED_AREA},
        {"holes", BF_HOLES},
        {"centroid_x", kCentroidX},
        {"centroid_y", kCentroidY},
        {"bbox_left", kBoxX},
        {"bbox_top", kBoxY},
        {"bbox_right", kBoxRight},
        {"bbox_bottom", kBoxBottom},
        {"left", BF_LEFT},
        {"right", BF_RIGHT},
        {"top", BF_TOP},
        {"bottom", BF_BOTTOM},
        {"boundary_sum_dx", BF_SUM_DX},
        {"boundary_sum_dy", BF_SUM_DY},
        {"sum_x", BF_SUM_X},
        {"sum_y", BF_SUM_Y},
        {"moment_xx", BF_XX},
        {"moment_xy", BF_XY},
        {"moment_yy", BF_YY},
        {"area_double", BF_AREA_D},
        {"feature_centroid_x", BF_CENTROID_X},
        {"feature_centroid_y", BF_CENTROID_Y},
        {"minor_axis", BF_MINOR_AXIS},
        {"major_axis", BF_MAJOR_AXIS},
        {"axis_angle", BF_AXIS_ANGLE},
        {"perimeter", BF_PERIMETER},
        {"filled_area_double", BF_FILLED_AREA_D},
        {"area_fraction", BF_AREA_FRACTION},
        {"min_radius", BF_MIN_RADIUS},
        {"max_radius", BF_MAX_RADIUS},
        {"min_radius_angle", BF_MIN_RADIUS_ANGLE},
        {"max_radius_angle", BF_MAX_RADIUS_ANGLE},
        {"mean_radius", BF_MEAN_RADIUS},
        {"length", BF_LENGTH},
        {"width", BF_WIDTH},
        {"hole_area", BF_HOLE_AREA},
        {"area_over_filled", BF_AREA_OVER_FILLED},
        {"axis_ratio", BF_AXIS_RATIO},
        {"perimeter2_over_area", BF_P2_OVER_AREA},
        {"radius_ratio", BF_RADIUS_RATIO},
        {"width_over_length", BF_WIDTH_OVER_LENGTH},
        {"box_width", BF_BOX_WIDTH},
        {"box_height", BF_BOX_HEIGHT},
        {"box_area", BF_BOX_AREA},
        {"filled_over_box", BF_FILLED_OVER_BOX},
        {"centroid_distance", BF_CENTROID_DISTANCE},
        {"compactness", BF_COMPACTNESS},
        {"radial_angle_diff", BF_RADIAL_ANGLE_DIFF},
        {"length_box_offset_along", BF_LENBOX_OFFSET_ALONG},
        {"length_box_offset_across", BF_LENBOX_OFFSET_ACROSS},
        {"bottom_end_x", BF_BOTTOM_END_X},
        {"right_row", BF_RIGHT_ROW},
        {"top_x", BF_TOP_X},
        {"left_row", BF_LEFT_ROW},
        {"parent_label", BF_PARENT_LABEL},
        {"mean_grey", BF_MEAN_GREY},
        {"grey_sum", BF_GREY_SUM},
        {"min_radius_dx", BF_MIN_RADIUS_DX},
        {"min_radius_dy", BF_MIN_RADIUS_DY},
        {"max_radius_dx", BF_MAX_RADIUS_DX},
        {"max_radius_dy", BF_MAX_RADIUS_DY},
        {"axis_frame_00", BF_AXIS_FRAME_00},
        {"axis_frame_01", BF_AXIS_FRAME_01},
        {"axis_frame_02", BF_AXIS_FRAME_02},
        {"axis_frame_10", BF_AXIS_FRAME_10},
        {"axis_frame_11", BF_AXIS_FRAME_11},
        {"axis_frame_12", BF_AXIS_FRAME_12},
    };
    return features;
}

double Feature(Blob& blob, int number) {
    Rect box;
    switch (number) {
        case kLabel:
            return blob.Label();
        case kCentroidX:  // the library's feature 17 sits half a pixel left of the mean column
            return blob.GetFeat(BF_CENTROID_X) + 0.5;
        case kCentroidY:
            return blob.GetFeat(BF_CENTROID_Y);
        case kBoxX:
        case kBoxY:
        case kBoxRight:
        case kBoxBottom:
            blob.BoundingBox(box);
            return number == kBoxX       ? box.left
                   : number == kBoxY     ? box.top
                   : number == kBoxRight ? box.right
                                         : box.bottom;
        default:
            return blob.GetFeat(number);
    }
}

int FeatureNumber(const std::string& name) {
    for (const FeatureName& f : Features())
        if (name == f.name) return f.number;
    throw py::value_error("unknown blob feature '" + name + "' (ombrel.BlobAgent.feature_names lists them)");
}

// The standard figures of a region, measured on its pixels, in the order of the rows Shapes() gives.
const char* const kShapeNames[] = {"area",         "centroid_x",   "centroid_y",  "perimeter",
                                   "circularity",  "major_axis",   "minor_axis",  "orientation",
                                   "eccentricity", "euler_number", "convex_area", "solidity"};
constexpr int kShapeColumns = int(std::size(kShapeNames));

// The band's class over the region of interest: 1 where a pixel is in the band and under the mask. The
// placement lies inside the image (MakePlacement sees to that), so every read is in bounds.
std::unique_ptr<Buffer> InBandImage(const Buffer& image, const Placement& placement, int low, int high) {
    std::unique_ptr<Buffer> inBand(new (std::nothrow) Buffer(placement.width, placement.height, EIGHT));
    if (!inBand || inBand->GetError() != BUFFER_OK || inBand->BaseAddr() == nullptr) return nullptr;
    const Buffer* mask = placement.masked ? placement.roi.GetMaskbits() : nullptr;
    for (int y = 0; y < placement.height; ++y) {
        const uint8_t* in = image.Row(placement.origin.y + y) + placement.origin.x;
        uint8_t* out = inBand->Row(y);
        for (int x = 0; x < placement.width; ++x) {
            bool selected = in[x] >= low && in[x] <= high;
            if (selected && mask != nullptr)
                selected = mask->BitsPerPixel() == 1 ? (mask->Row(y)[x >> 3] >> (7 - (x & 7))) & 1
                                                     : mask->Row(y)[x] != 0;
            out[x] = selected ? 1 : 0;
        }
    }
    return inBand;
}

// The feature numbers `items` (names as in feature_names or the library's table, or numbers 1..64) stand
// for; the derived figures need what they are computed from.
std::vector<int> FeatureNumbers(const py::iterable& items) {
    std::vector<int> numbers;
    for (py::handle item : items) {
        int number;
        if (py::isinstance<py::str>(item)) {
            const std::string name = item.cast<std::string>();
            const BlobFeatureInfo* info = FindBlobFeature(name.c_str());
            number = info != nullptr ? info->number : FeatureNumber(name);
            for (const FeatureName& f : Features())  // our names win: centroid_x is the mean pixel index
                if (name == f.name) number = f.number;
        } else {
            number = item.cast<int>();
            if (FindBlobFeature(number) == nullptr)
                throw py::value_error("unknown blob feature number " + std::to_string(number) +
                                      " (1..64 except 22)");
        }
        if (number == kCentroidX || number == kCentroidY) number = BF_CENTROID_X;
        if (number > 0) numbers.push_back(number);
    }
    return numbers;
}

class PyBlobAgent {
  public:
    PyBlobAgent(const py::object& image, std::pair<int, int> band, const py::object& roi,
                const py::object& mask)
        : _image(Image::From(image)) {
        _image->Require8Bit("image");
        CheckBand(band);
        _placement = MakePlacement(*_image, roi, mask);
        _agent = Made(
            BlobFact(_image->buffer(), _placement.origin, _placement.roi, &_result, band.first, band.second),
            "BlobAgent");
        // The figures a reader wants by default: boundaries (perimeter), radii, length and width, grey sums.
        _agent->SetOptions(BLOB_OPT_FIRST_MOMENTS | BLOB_OPT_SECOND_MOMENTS | BLOB_OPT_BOUNDARY |
                           BLOB_OPT_RADII | BLOB_OPT_LENGTH_WIDTH);
        _agent->SetFilterFlags(BLOB_FILTER_BORDER_CHILDREN | BLOB_FILTER_GREY);
    }

    int Go(const py::object& image) {
        if (!image.is_none()) SetImage(image);
        _ranBand = {_agent->LowThreshold(), _agent->HighThreshold()};
        _ranExact = _agent->StepX() == 1 && _agent->StepY() == 1;
        _ranOptions = _agent->Options();
        RunGo(_agent.get(), _busy, "BlobAgent.go");
        return _result.NParts();
    }

    // The standard figures of every region of the last run, measured on its pixels (rebuilt from the image
    // as it is now). A sampled run (step above 1) or a region whose pixels changed since gives NaN for all
    // but the area and the centroid, which the agent's moments give.
    py::array_t<double> Shapes() {
        BusyGuard guard(_busy);
        const auto blobs = _result.Blobs();
        std::vector<double> values(blobs.size() * kShapeColumns);
        {
            // Rebuilding and measuring every region can take a while on a large image: other Python threads
            // run meanwhile (the agent is held by the guard, so nothing changes its result).
            py::gil_scoped_release release;
            MeasureRegions(blobs, values.data());
        }
        FlushReports();
        py::array_t<double> out({py::ssize_t(blobs.size()), py::ssize_t(kShapeColumns)});
        std::copy(values.begin(), values.end(), out.mutable_data());
        return out;
    }

    void EnableFeatures(const py::iterable& items) {
        const std::vector<int> numbers = FeatureNumbers(items);
        BusyGuard guard(_busy);
        EnableBlobFeatures(*_agent, numbers);
    }

    void SetImage(const py::object& object) {
        ImagePtr image = Image::From(object);
        image->Require8Bit("image");
        if (_placement.origin.x + _placement.width > image->width() ||
            _placement.origin.y + _placement.height > image->height())
            throw py::value_error("image: " + std::to_string(image->width()) + " x " +
                                  std::to_string(image->height()) + " is too small for the agent's region");
        _image = std::move(image);
        _agent->SetSrcBuf(_image->buffer());
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

    static void CheckBand(std::pair<int, int> band) {
        if (band.first < 0 || band.second > 255 || band.first > band.second)
            throw py::value_error("band: expected (low, high) with 0 <= low <= high <= 255, got (" +
                                  std::to_string(band.first) + ", " + std::to_string(band.second) + ")");
    }

    py::array_t<double> Table(const py::object& names) {
        std::vector<int> numbers;
        if (names.is_none())
            for (const FeatureName& f : Features()) numbers.push_back(f.number);
        else
            for (auto n : names) numbers.push_back(FeatureNumber(n.cast<std::string>()));
        const auto blobs = _result.Blobs();
        py::array_t<double> out({py::ssize_t(blobs.size()), py::ssize_t(numbers.size())});
        auto t = out.mutable_unchecked<2>();
        for (size_t i = 0; i < blobs.size(); ++i)
            for (size_t k = 0; k < numbers.size(); ++k) t(i, k) = Feature(*blobs[i], numbers[k]);
        return out;
    }

    double FeatureOf(int label, const std::string& name) {
        Blob* blob = _result.ByLabel(label);
        if (blob == nullptr)
            throw py::index_error("label " + std::to_string(label) + " is not in 1.." +
                                  std::to_string(_result.NParts()));
        return Feature(*blob, FeatureNumber(name));
    }

    // Parent label (0 for top level) and kind of every region, in label order.
    py::tuple Tree() const {
        const auto blobs = _result.Blobs();
        py::array_t<int32_t> parents(py::ssize_t(blobs.size())), colours(py::ssize_t(blobs.size()));
        auto p = parents.mutable_unchecked<1>();
        auto c = colours.mutable_unchecked<1>();
        for (size_t i = 0; i < blobs.size(); ++i) {
            const Blob* parent = blobs[i]->Parent();
            p(i) = parent == nullptr || parent == _result.Root() ? 0 : parent->Label();
            c(i) = blobs[i]->Color();
        }
        return py::make_tuple(parents, colours);
    }

    BlobAgent* agent() { return _agent.get(); }
    BlobResult& result() { return _result; }
    const ImagePtr& image() const { return _image; }

  private:
    template <class Blobs>
    void MeasureRegions(const Blobs& blobs, double* out) const {
        const double nan = std::numeric_limits<double>::quiet_NaN();
        std::unique_ptr<Buffer> inBand;
        if (_ranExact && !blobs.empty())
            inBand = InBandImage(*_image->buffer(), _placement, _ranBand.first, _ranBand.second);
        for (Blob* blob : blobs) {
            double* row = out;
            out += kShapeColumns;
            RegionPixels pixels;
            if (inBand && BlobPixels(*blob, *inBand, _placement.origin, &pixels)) {
                const ShapeMeasures m = MeasureShape(pixels);
                const double measured[kShapeColumns] = {
                    double(m.area), m.centroidX,
                    m.centroidY,    m.perimeter,
                    m.circularity,  m.majorAxis,
                    m.minorAxis,    m.orientation * 180.0 / std::numbers::pi,
                    m.eccentricity, double(m.eulerNumber),
                    m.convexArea,   m.solidity};
                for (int k = 0; k < kShapeColumns; ++k)
                    row[k] = std::isfinite(measured[k]) ? measured[k] : nan;
                continue;
            }
            // Sampled (or changed since): the agent's moments still give the mean pixel index, its x sitting
            // half a pixel left; without moments (switched off, or extent only for objects) nothing does.
            std::fill(row, row + kShapeColumns, nan);
            row[0] = blob->Area();
            const bool moments = (_ranOptions & BLOB_OPT_FIRST_MOMENTS) != 0 &&
                                 !(blob->Color() == 0 && (_ranOptions & BLOB_OPT_EXTENT_ONLY_0) != 0);
            if (moments) {
                row[1] = blob->GetFeat(BF_CENTROID_X) + 0.5;
                row[2] = blob->GetFeat(BF_CENTROID_Y);
            }
        }
    }

    ImagePtr _image;
    Placement _placement;
    BlobResult _result;
    std::unique_ptr<BlobAgent> _agent;
    std::atomic<bool> _busy{false};
    std::pair<int, int> _ranBand{0, 0};  // the band, exactness and options of the last run, for Shapes()
    bool _ranExact = false;
    int _ranOptions = 0;
};

}  // namespace

void BindBlob(py::module_& m) {
    py::class_<PyBlobAgent>(m, "BlobAgent", R"doc(
Blob analysis (connected regions of a thresholded image) for a production loop: made once, go() per frame.

Per pixel: a pixel of value v is an object pixel when low <= v <= high (band). Objects are 8-connected,
the background between them 4-connected; everything outside the region counts as background. Every region
(object or hole) gets a label 1..count in raster order of its first pixel; each region's parent is the
region around it (0 for top-level objects); an object's children are its holes.

Parameters: image (Buffer or 2-D uint8 array), band=(low, high), roi=None (whole image; or (x, y, width,
height) or a Region), mask=None (2-D bool/uint8 array over the region, non-zero selects).
Defaults set here: area limits 1..2**31-1, steps 1, grey sums on, boundaries, radii and length/width on
(enable_features() adds what other features need). table() reads the agent's numbered features; shapes()
measures the standard figures (area, centroid, perimeter, axes, orientation, ...) on the regions' pixels.)doc")
        .def(py::init<const py::object&, std::pair<int, int>, const py::object&, const py::object&>(),
             py::arg("image"), py::arg("band") = std::pair<int, int>(0, 100), py::arg("roi") = py::none(),
             py::arg("mask") = py::none())
        .def("go", &PyBlobAgent::Go, py::arg("image") = py::none(),
             "Runs the analysis (on `image` when given: a Buffer, or an array wrapped for this call) without "
             "holding the interpreter lock. Returns the number of regions; raises ombrel.Error on a failure "
             "status (e.g. -1003, image too complex).")
        .def("native_go_seconds", &PyBlobAgent::NativeGoSeconds, py::arg("runs"),
             "Seconds that `runs` calls of Go() take in a C++ loop (the reference for go()'s overhead).")
        .def_property(
            "band",
            [](PyBlobAgent& a) {
                return std::make_pair(a.agent()->LowThreshold(), a.agent()->HighThreshold());
            },
            [](PyBlobAgent& a, std::pair<int, int> band) {
                PyBlobAgent::CheckBand(band);
                a.agent()->SetThresholds(band.first, band.second);
            },
            "(low, high): the grey values of object pixels, both included.")
        .def_property(
            "step", [](PyBlobAgent& a) { return std::make_pair(a.agent()->StepX(), a.agent()->StepY()); },
            [](PyBlobAgent& a, std::pair<int, int> step) {
                if (step.first < 1 || step.second < 1)
                    throw py::value_error("step: expected positive (x, y) steps");
                a.agent()->SetStep(step.first, step.second);
            },
            "(x, y) sampling steps; (1, 1) is exact.")
        .def_property(
            "area_limits",
            [](PyBlobAgent& a) { return std::make_pair(a.agent()->MinArea(), a.agent()->MaxArea()); },
            [](PyBlobAgent& a, std::pair<int, int> limits) {
                a.agent()->SetAreaLimits(limits.first, limits.second);
            },
            "(min_area, max_area): regions whose filled area lies outside are deleted.")
        .def_property(
            "filter_flags", [](PyBlobAgent& a) { return a.agent()->FilterFlags(); },
            [](PyBlobAgent& a, int flags) { a.agent()->SetFilterFlags(flags); },
            "Filter flags: 1, 2 area filters on top-level regions only, 4 delete regions touching the "
            "border, "
            "8 grey sums, 16 the border filter deletes children too, 32 area filters on the plain area.")
        .def_property(
            "options", [](PyBlobAgent& a) { return a.agent()->Options(); },
            [](PyBlobAgent& a, int options) { a.agent()->SetOptions(options); },
            "Option word: 1 first moments, 2 second moments, 4 boundaries, 8 extent only for colour 0, "
            "16 radii, 32 length and width.")
        .def_property(
            "keep_all", [](PyBlobAgent& a) { return a.agent()->KeepFlag(); },
            [](PyBlobAgent& a, bool keep) { a.agent()->SetKeepFlag(keep); },
            "False keeps only the largest top-level region.")
        .def_property_readonly(
            "count", [](PyBlobAgent& a) { return a.result().NParts(); },
            "Regions (objects and holes) of the last run.")
        .def_property_readonly("image", &PyBlobAgent::image, "The image the agent reads.")
        .def("table", &PyBlobAgent::Table, py::arg("names") = py::none(),
             "Features of every region of the last run as a float64 array, one row per label (1..count), one "
             "column per name (all of feature_names when None).")
        .def("shapes", &PyBlobAgent::Shapes,
             "The standard figures of every region of the last run as a float64 array, one row per label, "
             "one column per name in shape_names, measured on the region's pixels (read the image again: "
             "call before it changes). Centroid: mean pixel index; orientation in degrees from +x towards "
             "+y (y down), (-90, 90]; axes of the ellipse with the same second moments; perimeter of the "
             "outer boundary, straight edges measured straight; circularity 4 pi area / perimeter**2; "
             "convex_area counts the pixel centres inside the convex hull; solidity area / convex_area. "
             "After a sampled run (step above 1) only area and centroid are known, the rest is NaN.")
        .def("enable_features", &PyBlobAgent::EnableFeatures, py::arg("features"),
             "Switches on what the named (feature_names, or the library's feature table) or numbered "
             "(1..64) features need before go(), leaving every other option and filter bit as it is.")
        .def_static(
            "feature_info",
            [](const py::object& feature) {
                const std::vector<int> numbers = FeatureNumbers(py::make_tuple(feature));
                const BlobFeatureInfo* info = numbers.size() == 1 ? FindBlobFeature(numbers[0]) : nullptr;
                if (info == nullptr)
                    throw py::value_error("no library feature stands for " +
                                          py::repr(feature).cast<std::string>() +
                                          " (the label and box figures are computed here)");
                py::dict d;
                d["number"] = info->number;
                d["name"] = info->name;
                d["integer"] = info->integer;
                d["unit"] = info->unit;
                d["description"] = info->description;
                return d;
            },
            py::arg("feature"),
            "The library's description of a numbered feature (by name or number): {number, name (the "
            "library's), integer (always whole), unit (px, px^2, rad, grey or empty), description (its "
            "formula)}. "
            "Our centroid_x/centroid_y answer with the feature they are computed from.")
        .def_property_readonly_static(
            "shape_names",
            [](const py::object&) {
                py::list names;
                for (const char* name : kShapeNames) names.append(name);
                return names;
            },
            "Column names of shapes().")
        .def("feature", &PyBlobAgent::FeatureOf, py::arg("label"), py::arg("name"),
             "One feature of one region.")
        .def("tree", &PyBlobAgent::Tree,
             "(parents, colours): int32 arrays in label order; parent 0 is the background around everything, "
             "colour 0 marks regions of the band's class (objects), -1 the other class (holes).")
        .def_property_readonly_static(
            "feature_names",
            [](const py::object&) {
                py::list names;
                for (const FeatureName& f : Features()) names.append(f.name);
                return names;
            },
            "Names table() accepts. centroid_x, centroid_y: mean column and row index of the region's pixels "
            "(image coordinates). bbox_*: bounding box in image coordinates, right and bottom exclusive. "
            "feature_centroid_x/y: the library's numbered features 17 and 18 (x is the mean column - 0.5). "
            "left, right, top, bottom: extent relative to the region of interest, right and bottom "
            "exclusive. "
            "Angles in radians, lengths in pixels.");
}

}  // namespace ombrel::python
