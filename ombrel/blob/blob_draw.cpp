// SPDX-License-Identifier: MIT
// Drawing of regions through the HalvardMetaDC recorder, in image coordinates.
#include <cmath>

#include "ombrel/blob/blob_boundary_walk.h"
#include "ombrel/blob/blob_result.h"
#include "ombrel/framework/halvard_metadc.h"

namespace ombrel {
namespace {

void Place(const Matrix* xf, double& x, double& y) {
    if (xf != nullptr) xf->Apply(x, y);
}

void MoveTo(HalvardMetaDC* dc, const Matrix* xf, double x, double y) {
    Place(xf, x, y);
    dc->MoveTo(x, y);
}

void LineTo(HalvardMetaDC* dc, const Matrix* xf, double x, double y) {
    Place(xf, x, y);
    dc->LineTo(x, y);
}

}  // namespace

void Blob::HighlightBlob(HalvardMetaDC* dc, const Matrix* xf) {
    if (dc == nullptr || _parent == nullptr) return;
    Rect r;
    BoundingBox(r);
    // Outline through the centres of the box's outermost pixels.
    const double l = r.left, t = r.top, rt = r.right - 1, b = r.bottom - 1;
    MoveTo(dc, xf, l, t);
    LineTo(dc, xf, rt, t);
    LineTo(dc, xf, rt, b);
    LineTo(dc, xf, l, b);
    LineTo(dc, xf, l, t);
}

void Blob::DrawBoundary(HalvardMetaDC* dc, const Matrix* xf) {
    if (dc == nullptr || _parent == nullptr || _res == nullptr) return;
    const double ox = _res->_origin.x, oy = _res->_origin.y;
    bool first = true;
    double fx = 0, fy = 0;
    // Boundary points are run starts (downward chains) and run ends (upward chains) on their rows; the line
    // goes through the region's own outermost pixels.
    auto visit = [&](double x, double y) {
        if (first) {
            fx = x;
            fy = y;
            MoveTo(dc, xf, x, y);
            first = false;
        } else {
            LineTo(dc, xf, x, y);
        }
    };
    const bool closed = WalkBoundary([&](const BdryPoint& p, bool upward) {
        // Upward chains hold run ends (one past the last pixel): draw on the last pixel instead.
        const double x = ox + p.x - (upward ? 1 : 0);
        visit(x, oy + (upward ? p.y1 : p.y0));
        if (p.y1 != p.y0) visit(x, oy + (upward ? p.y0 : p.y1));
    });
    if (!first && closed) LineTo(dc, xf, fx, fy);
    if (first) HighlightBlob(dc, xf);  // no boundary lists: the box stands in
}

void Blob::DrawCentroid(HalvardMetaDC* dc, const Matrix* xf, int halfSize) {
    if (dc == nullptr || _parent == nullptr || _f == nullptr) return;
    EnsureDerived();
    double x = ImageX() + 0.5, y = ImageY() + 0.5;  // centre of the pixel cell the centroid names
    Place(xf, x, y);
    dc->CrossAt(x, y, halfSize);
}

void BlobResult::HighlightTree(HalvardMetaDC* dc, bool centroids, Matrix* xf, int objectColour,
                               int holeColour) {
    if (dc == nullptr) return;
    const MetaPen saved = dc->Pen();
    for (Blob* b : _list) {
        dc->SelectObject(static_cast<uint32_t>(b->_color == 0 ? objectColour : holeColour), saved.width);
        b->DrawBoundary(dc, xf);
        if (centroids) b->DrawCentroid(dc, xf);
    }
    dc->SelectObject(saved);
}

}  // namespace ombrel
