// SPDX-License-Identifier: MIT
#include "ombrel/blob/blob_shape.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <numbers>

namespace ombrel {
namespace {

constexpr double kChordTolerance = 0.5;  // pixels
constexpr int kMaxChordPoints = 4096;    // bounds the work per chord on very long straight edges

struct Vec2 {
    double x, y;
};

// ---- Outer boundary ----------------------------------------------------------------------------------
// Follows the pixel edges around the region with the region on the right-hand side (y down), from the top
// edge of its first pixel in raster order, and returns the midpoints of the edges in image coordinates.
// Corner (cx, cy) is the top-left corner of pixel (cx, cy); directions E, S, W, N.
std::vector<Vec2> BoundaryMidpoints(const RegionPixels& r) {
    std::vector<Vec2> points;
    int sx = -1, sy = -1;
    for (int y = 0; y < r.height && sx < 0; ++y)
        for (int x = 0; x < r.width; ++x)
            if (r.At(x, y)) {
                sx = x;
                sy = y;
                break;
            }
    if (sx < 0) return points;
    static constexpr int kDx[4] = {1, 0, -1, 0}, kDy[4] = {0, 1, 0, -1};
    // Pixel ahead on the right and ahead on the left of a corner, by direction, as offsets from the corner.
    static constexpr int kArX[4] = {0, -1, -1, 0}, kArY[4] = {0, 0, -1, -1};
    static constexpr int kAlX[4] = {0, 0, -1, -1}, kAlY[4] = {-1, 0, 0, -1};
    int cx = sx, cy = sy, d = 0;
    // Every pixel edge is crossed at most once; the bound only guards against a malformed window.
    const int64_t limit = 4 * int64_t(r.width + 1) * (r.height + 1) + 4;
    for (int64_t step = 0; step < limit; ++step) {
        points.push_back({r.left + cx + 0.5 * kDx[d] - 0.5, r.top + cy + 0.5 * kDy[d] - 0.5});
        cx += kDx[d];
        cy += kDy[d];
        const bool right = r.At(cx + kArX[d], cy + kArY[d]) != 0;
        const bool left = r.At(cx + kAlX[d], cy + kAlY[d]) != 0;
        if (left && (right || r.eightConnected))
            d = (d + 3) & 3;  // turn left
        else if (!right)
            d = (d + 1) & 3;  // turn right
        if (cx == sx && cy == sy && d == 0) break;
    }
    return points;
}

// Greedy chords over the closed polyline: from each vertex, the farthest later vertex whose chord passes
// within the tolerance of every vertex in between (the intersection of the cones they allow).
double ChordLength(const std::vector<Vec2>& v) {
    const size_t n = v.size();
    if (n < 2) return 0.0;
    auto at = [&](size_t k) { return v[k % n]; };
    double length = 0.0;
    size_t i = 0;
    while (i < n) {
        const Vec2 p = at(i);
        size_t best = i + 1;
        double lo = -std::numbers::pi, hi = std::numbers::pi;
        bool haveRef = false;
        Vec2 ref{1, 0};
        for (size_t k = i + 1; k <= n && k - i <= size_t(kMaxChordPoints); ++k) {
            const Vec2 q = at(k);
            const double ux = q.x - p.x, uy = q.y - p.y, dist = std::hypot(ux, uy);
            if (dist <= kChordTolerance) {
                if (!haveRef) best = k;
                continue;
            }
            if (!haveRef) {
                ref = {ux / dist, uy / dist};
                haveRef = true;
            }
            const double theta = std::atan2(ref.x * uy - ref.y * ux, ref.x * ux + ref.y * uy);
            if (std::abs(theta) > std::numbers::pi / 2) break;  // the boundary turned back
            if (theta < lo || theta > hi) break;
            best = k;
            const double spread = std::asin(kChordTolerance / dist);
            lo = std::max(lo, theta - spread);
            hi = std::min(hi, theta + spread);
        }
        const Vec2 q = at(best);
        length += std::hypot(q.x - p.x, q.y - p.y);
        i = best;
    }
    return length;
}

// ---- Convex hull of the pixel squares ----------------------------------------------------------------
int64_t Cross(const Point& o, const Point& a, const Point& b) {
    return int64_t(a.x - o.x) * (b.y - o.y) - int64_t(a.y - o.y) * (b.x - o.x);
}

// The convex hull (counter-clockwise in x-right, y-down terms: monotone chain) of the centres of every
// row's outermost pixels, in window coordinates.
std::vector<Point> HullOfCentres(const RegionPixels& r) {
    std::vector<Point> centres;
    for (int y = 0; y < r.height; ++y) {
        int first = -1, last = -1;
        for (int x = 0; x < r.width; ++x)
            if (r.At(x, y)) {
                if (first < 0) first = x;
                last = x;
            }
        if (first < 0) continue;
        centres.push_back({first, y});
        if (last != first) centres.push_back({last, y});
    }
    std::sort(centres.begin(), centres.end(),
              [](const Point& a, const Point& b) { return a.x != b.x ? a.x < b.x : a.y < b.y; });
    if (centres.size() < 3) return centres;
    std::vector<Point> hull(2 * centres.size());
    size_t k = 0;
    for (size_t i = 0; i < centres.size(); ++i) {
        while (k >= 2 && Cross(hull[k - 2], hull[k - 1], centres[i]) <= 0) --k;
        hull[k++] = centres[i];
    }
    for (size_t i = centres.size() - 1, lower = k + 1; i-- > 0;) {
        while (k >= lower && Cross(hull[k - 2], hull[k - 1], centres[i]) <= 0) --k;
        hull[k++] = centres[i];
    }
    hull.resize(k - 1);
    return hull;
}

// Pixels whose centres lie inside the hull or on its edges. Per row, each edge crossing the row gives an x
// as an exact fraction; the count runs from the smallest crossing rounded up to the largest rounded down.
int64_t ConvexPixelCount(const RegionPixels& r) {
    const std::vector<Point> hull = HullOfCentres(r);
    if (hull.empty()) return 0;
    int64_t count = 0;
    for (int y = 0; y < r.height; ++y) {
        bool any = false;
        int64_t lo = 0, hi = 0;
        for (size_t i = 0; i < hull.size(); ++i) {
            const Point a = hull[i], b = hull[(i + 1) % hull.size()];
            if (y < std::min(a.y, b.y) || y > std::max(a.y, b.y)) continue;
            int64_t xmin, xmax;
            if (a.y == b.y) {
                xmin = std::min(a.x, b.x);
                xmax = std::max(a.x, b.x);
            } else {
                // x = a.x + (y - a.y) (b.x - a.x) / (b.y - a.y), rounded up for xmin and down for xmax.
                int64_t num = int64_t(y - a.y) * (b.x - a.x), den = b.y - a.y;
                if (den < 0) {
                    num = -num;
                    den = -den;
                }
                const int64_t floorDiv = num >= 0 ? num / den : -((-num + den - 1) / den);
                const int64_t ceilDiv = num >= 0 ? (num + den - 1) / den : -((-num) / den);
                xmin = a.x + ceilDiv;
                xmax = a.x + floorDiv;
            }
            lo = any ? std::min(lo, xmin) : xmin;
            hi = any ? std::max(hi, xmax) : xmax;
            any = true;
        }
        if (any && hi >= lo) count += hi - lo + 1;
    }
    return count;
}

// Euler number from the counts of 2x2 patterns with one, three and two diagonal pixels.
int EulerNumber(const RegionPixels& r) {
    int64_t q1 = 0, q3 = 0, qd = 0;
    for (int y = -1; y < r.height; ++y) {
        for (int x = -1; x < r.width; ++x) {
            const int a = r.At(x, y), b = r.At(x + 1, y), c = r.At(x, y + 1), d = r.At(x + 1, y + 1);
            const int sum = a + b + c + d;
            if (sum == 1) ++q1;
            if (sum == 3) ++q3;
            if (sum == 2 && a == d) ++qd;
        }
    }
    const int64_t e = r.eightConnected ? q1 - q3 - 2 * qd : q1 - q3 + 2 * qd;
    return static_cast<int>(e / 4);
}

// ---- Rebuilding a blob's pixels ----------------------------------------------------------------------
// Marks in `mark` (value `label`) every pixel reachable from (sx, sy) through pixels where `open` is set and
// `mark` is 0, with 8- or 4-connectivity. Returns the number marked.
int64_t Fill(int w, int h, const std::vector<uint8_t>& open, std::vector<uint8_t>& mark, int sx, int sy,
             bool eight, uint8_t label) {
    auto index = [w](int x, int y) { return size_t(y) * w + x; };
    if (sx < 0 || sy < 0 || sx >= w || sy >= h || !open[index(sx, sy)] || mark[index(sx, sy)]) return 0;
    std::vector<std::pair<int, int>> stack{{sx, sy}};
    mark[index(sx, sy)] = label;
    int64_t count = 0;
    while (!stack.empty()) {
        const auto [x, y] = stack.back();
        stack.pop_back();
        ++count;
        for (int dy = -1; dy <= 1; ++dy) {
            for (int dx = -1; dx <= 1; ++dx) {
                if ((dx == 0 && dy == 0) || (!eight && dx != 0 && dy != 0)) continue;
                const int nx = x + dx, ny = y + dy;
                if (nx < 0 || ny < 0 || nx >= w || ny >= h) continue;
                const size_t i = index(nx, ny);
                if (!open[i] || mark[i]) continue;
                mark[i] = label;
                stack.push_back({nx, ny});
            }
        }
    }
    return count;
}

ShapeMeasures Measure(const RegionPixels& r) {
    ShapeMeasures m;
    double sx = 0, sy = 0, sxx = 0, sxy = 0, syy = 0;
    for (int y = 0; y < r.height; ++y) {
        for (int x = 0; x < r.width; ++x) {
            if (!r.At(x, y)) continue;
            ++m.area;
            sx += x;
            sy += y;
            sxx += double(x) * x;
            sxy += double(x) * y;
            syy += double(y) * y;
        }
    }
    if (m.area == 0) return m;
    const double n = double(m.area), mx = sx / n, my = sy / n;
    m.centroidX = r.left + mx;
    m.centroidY = r.top + my;
    const double cxx = std::max(0.0, sxx / n - mx * mx), cyy = std::max(0.0, syy / n - my * my);
    const double cxy = sxy / n - mx * my;
    const double root = std::sqrt((cxx - cyy) * (cxx - cyy) + 4 * cxy * cxy);
    const double l1 = (cxx + cyy + root) / 2, l2 = std::max(0.0, (cxx + cyy - root) / 2);
    m.majorAxis = 4 * std::sqrt(l1);
    m.minorAxis = 4 * std::sqrt(l2);
    m.orientation = (cxy == 0 && cxx == cyy) ? 0.0 : 0.5 * std::atan2(2 * cxy, cxx - cyy);
    if (m.orientation <= -std::numbers::pi / 2) m.orientation += std::numbers::pi;
    m.eccentricity = l1 > 0 ? std::sqrt(std::max(0.0, 1 - l2 / l1)) : 0.0;
    m.perimeter = OuterPerimeter(r);
    m.circularity = m.perimeter > 0 ? 4 * std::numbers::pi * n / (m.perimeter * m.perimeter) : 0.0;
    m.eulerNumber = EulerNumber(r);
    m.convexArea = double(ConvexPixelCount(r));
    m.solidity = m.convexArea > 0 ? std::min(1.0, n / m.convexArea) : 0.0;
    return m;
}

bool Rebuild(Blob& blob, const Buffer& inBand, Point origin, RegionPixels* out) {
    *out = RegionPixels{};
    if (blob.IsRoot() || inBand.BitsPerPixel() != 8) return false;
    const int left = int(blob.GetFeat(BF_LEFT)) - 1, top = int(blob.GetFeat(BF_TOP)) - 1;
    const int w = int(blob.GetFeat(BF_RIGHT)) + 1 - left, h = int(blob.GetFeat(BF_BOTTOM)) + 1 - top;
    if (w < 3 || h < 3) return false;
    const bool object = blob.Color() == 0;
    // Pixels of the region's class in the window padded by one pixel; outside the buffer is background.
    std::vector<uint8_t> own(size_t(w) * h, 0);
    for (int y = 0; y < h; ++y) {
        const int iy = top + y;
        const uint8_t* row = iy >= 0 && iy < inBand.Height() ? inBand.Row(iy) : nullptr;
        for (int x = 0; x < w; ++x) {
            const int ix = left + x;
            const bool inside = row != nullptr && ix >= 0 && ix < inBand.Width() && row[ix] != 0;
            own[size_t(y) * w + x] = inside == object;
        }
    }
    std::vector<uint8_t> region(own.size(), 0);
    const int seedX = int(blob.GetFeat(BF_TOP_X)) - left, seedY = 1;
    if (Fill(w, h, own, region, seedX, seedY, object, 1) == 0) return false;
    // Everything not reached from the window's edge is enclosed; enclosed parts that are listed children
    // stay out, the rest (deleted holes, and what they held) belongs to the region.
    std::vector<uint8_t> rest(own.size()), mark(own.size(), 0);
    for (size_t i = 0; i < rest.size(); ++i) rest[i] = region[i] == 0;
    Fill(w, h, rest, mark, 0, 0, !object, 1);
    for (const Blob* c = blob.FirstChild(); c != nullptr; c = c->NextSibling()) {
        Blob& child = const_cast<Blob&>(*c);
        Fill(w, h, rest, mark, int(child.GetFeat(BF_TOP_X)) - left, int(child.GetFeat(BF_TOP)) - top, !object,
             2);
    }
    int64_t area = 0;
    out->pixels.assign(size_t(w - 2) * (h - 2), 0);
    for (int y = 1; y < h - 1; ++y)
        for (int x = 1; x < w - 1; ++x) {
            const uint8_t in = mark[size_t(y) * w + x] == 0;
            out->pixels[size_t(y - 1) * (w - 2) + (x - 1)] = in;
            area += in;
        }
    if (area != blob.Area()) {
        *out = RegionPixels{};
        return false;
    }
    out->left = origin.x + left + 1;
    out->top = origin.y + top + 1;
    out->width = w - 2;
    out->height = h - 2;
    out->eightConnected = object;
    return true;
}

}  // namespace

double OuterPerimeter(const RegionPixels& region) {
    try {
        return ChordLength(BoundaryMidpoints(region));
    } catch (const std::bad_alloc&) {
        return 0.0;
    }
}

ShapeMeasures MeasureShape(const RegionPixels& region) {
    try {
        return Measure(region);
    } catch (const std::bad_alloc&) {
        return ShapeMeasures{};
    }
}

bool BlobPixels(Blob& blob, const Buffer& inBand, Point origin, RegionPixels* out) {
    try {
        return Rebuild(blob, inBand, origin, out);
    } catch (const std::bad_alloc&) {
        *out = RegionPixels{};
        return false;
    }
}

}  // namespace ombrel
