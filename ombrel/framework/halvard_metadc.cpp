// SPDX-License-Identifier: MIT
#include "ombrel/framework/halvard_metadc.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <new>

namespace ombrel {
namespace {

// 3x5 glyphs, one row per entry, bit 2 the left column.
struct Glyph {
    char c;
    uint8_t rows[5];
};
constexpr Glyph kFont[] = {
    {'0', {7, 5, 5, 5, 7}}, {'1', {2, 6, 2, 2, 7}}, {'2', {7, 1, 7, 4, 7}}, {'3', {7, 1, 7, 1, 7}},
    {'4', {5, 5, 7, 1, 1}}, {'5', {7, 4, 7, 1, 7}}, {'6', {7, 4, 7, 5, 7}}, {'7', {7, 1, 1, 1, 1}},
    {'8', {7, 5, 7, 5, 7}}, {'9', {7, 5, 7, 1, 7}}, {'A', {2, 5, 7, 5, 5}}, {'B', {6, 5, 6, 5, 6}},
    {'C', {3, 4, 4, 4, 3}}, {'D', {6, 5, 5, 5, 6}}, {'E', {7, 4, 6, 4, 7}}, {'F', {7, 4, 6, 4, 4}},
    {'G', {3, 4, 5, 5, 3}}, {'H', {5, 5, 7, 5, 5}}, {'I', {7, 2, 2, 2, 7}}, {'J', {1, 1, 1, 5, 2}},
    {'K', {5, 5, 6, 5, 5}}, {'L', {4, 4, 4, 4, 7}}, {'M', {5, 7, 7, 5, 5}}, {'N', {6, 5, 5, 5, 5}},
    {'O', {2, 5, 5, 5, 2}}, {'P', {6, 5, 6, 4, 4}}, {'Q', {2, 5, 5, 6, 3}}, {'R', {6, 5, 6, 5, 5}},
    {'S', {3, 4, 2, 1, 6}}, {'T', {7, 2, 2, 2, 2}}, {'U', {5, 5, 5, 5, 7}}, {'V', {5, 5, 5, 5, 2}},
    {'W', {5, 5, 7, 7, 5}}, {'X', {5, 5, 2, 5, 5}}, {'Y', {5, 5, 2, 2, 2}}, {'Z', {7, 1, 2, 4, 7}},
    {' ', {0, 0, 0, 0, 0}}, {'-', {0, 0, 7, 0, 0}}, {'.', {0, 0, 0, 0, 2}}, {':', {0, 2, 0, 2, 0}},
    {'#', {5, 7, 5, 7, 5}}, {'=', {0, 7, 0, 7, 0}}, {'+', {0, 2, 7, 2, 0}}, {'(', {1, 2, 2, 2, 1}},
    {')', {4, 2, 2, 2, 4}}, {'/', {1, 1, 2, 4, 4}},
};
constexpr uint8_t kBox[5] = {7, 5, 5, 5, 7};

const uint8_t* GlyphRows(char c) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    for (const Glyph& g : kFont)
        if (g.c == c) return g.rows;
    return kBox;
}

int ClampPen(int v) {
    return std::clamp(v, 1, 16);
}

// Something that can set one pixel to a colour.
struct Canvas {
    virtual ~Canvas() = default;
    virtual void Set(int64_t x, int64_t y, uint32_t colour) = 0;
    virtual int Width() const = 0;
    virtual int Height() const = 0;
};

// Cuts the segment to the rectangle [lo, hi] in both axes (Liang-Barsky); false when nothing is left.
bool ClipSegment(double& x0, double& y0, double& x1, double& y1, double loX, double loY, double hiX,
                 double hiY) {
    if (!std::isfinite(x0) || !std::isfinite(y0) || !std::isfinite(x1) || !std::isfinite(y1)) return false;
    double t0 = 0.0, t1 = 1.0;
    const double dx = x1 - x0, dy = y1 - y0;
    const double p[4] = {-dx, dx, -dy, dy};
    const double q[4] = {x0 - loX, hiX - x0, y0 - loY, hiY - y0};
    for (int i = 0; i < 4; ++i) {
        if (p[i] == 0.0) {
            if (q[i] < 0.0) return false;
            continue;
        }
        const double t = q[i] / p[i];
        if (p[i] < 0.0)
            t0 = std::max(t0, t);
        else
            t1 = std::min(t1, t);
        if (t0 > t1) return false;
    }
    const double ox = x0, oy = y0;
    x0 = ox + t0 * dx;
    y0 = oy + t0 * dy;
    x1 = ox + t1 * dx;
    y1 = oy + t1 * dy;
    return true;
}

void Dot(Canvas& canvas, int64_t x, int64_t y, const MetaPen& pen) {
    const int w = ClampPen(pen.width);
    const int64_t from = -(w - 1) / 2;
    for (int64_t dy = from; dy < from + w; ++dy)
        for (int64_t dx = from; dx < from + w; ++dx) canvas.Set(x + dx, y + dy, pen.colour);
}

int64_t Round(double v) {
    if (!std::isfinite(v)) return 0;
    return static_cast<int64_t>(std::llround(std::clamp(v, -1e9, 1e9)));
}

void Line(Canvas& canvas, double x0d, double y0d, double x1d, double y1d, const MetaPen& pen, int64_t limit) {
    // Only the part near the image is walked: a line far outside costs nothing and always ends.
    const double margin = ClampPen(pen.width) + 1.0;
    if (!ClipSegment(x0d, y0d, x1d, y1d, -margin, -margin, canvas.Width() + margin, canvas.Height() + margin))
        return;
    int64_t x0 = Round(x0d), y0 = Round(y0d);
    const int64_t x1 = Round(x1d), y1 = Round(y1d);
    const int64_t dx = std::llabs(x1 - x0), dy = -std::llabs(y1 - y0);
    const int64_t sx = x0 < x1 ? 1 : -1, sy = y0 < y1 ? 1 : -1;
    int64_t err = dx + dy;
    // Lines far outside the image still end: the walk is bounded by its own length and by `limit`.
    for (int64_t steps = 0; steps <= limit; ++steps) {
        Dot(canvas, x0, y0, pen);
        if (x0 == x1 && y0 == y1) break;
        const int64_t e2 = 2 * err;
        if (e2 >= dy) {
            err += dy;
            x0 += sx;
        }
        if (e2 <= dx) {
            err += dx;
            y0 += sy;
        }
    }
}

void Text(Canvas& canvas, double xd, double yd, const std::string& text, const MetaPen& pen) {
    const int scale = ClampPen(pen.textScale);
    int64_t x = Round(xd);
    const int64_t y = Round(yd);
    for (char c : text) {
        const uint8_t* rows = GlyphRows(c);
        for (int r = 0; r < 5; ++r)
            for (int col = 0; col < 3; ++col)
                if (rows[r] & (4 >> col))
                    for (int sy = 0; sy < scale; ++sy)
                        for (int sx = 0; sx < scale; ++sx)
                            canvas.Set(x + col * scale + sx, y + r * scale + sy, pen.colour);
        x += 4 * scale;
    }
}

void Play(const std::vector<HalvardMetaDC::Record>& records, Canvas& canvas, int64_t limit) {
    MetaPen pen;
    double cx = 0, cy = 0;
    for (const auto& r : records) {
        switch (r.op) {
            case HalvardMetaDC::Op::MoveTo:
                cx = r.x;
                cy = r.y;
                break;
            case HalvardMetaDC::Op::LineTo:
                Line(canvas, cx, cy, r.x, r.y, pen, limit);
                cx = r.x;
                cy = r.y;
                break;
            case HalvardMetaDC::Op::CrossAt: {
                const int h = std::clamp(r.size, 0, 4096);
                Line(canvas, r.x - h, r.y, r.x + h, r.y, pen, limit);
                Line(canvas, r.x, r.y - h, r.x, r.y + h, pen, limit);
                break;
            }
            case HalvardMetaDC::Op::SelectObject:
                pen = r.pen;
                break;
            case HalvardMetaDC::Op::TextAt:
                Text(canvas, r.x, r.y, r.text, pen);
                break;
        }
    }
}

struct GreyCanvas : Canvas {
    Buffer& image;
    explicit GreyCanvas(Buffer& b) : image(b) {}
    int Width() const override { return image.Width(); }
    int Height() const override { return image.Height(); }
    void Set(int64_t x, int64_t y, uint32_t colour) override {
        if (x < 0 || y < 0 || x >= image.Width() || y >= image.Height()) return;
        const uint32_t r = (colour >> 16) & 255, g = (colour >> 8) & 255, b = colour & 255;
        image.Row(static_cast<int>(y))[x] = static_cast<uint8_t>((77 * r + 150 * g + 29 * b) >> 8);
    }
};

struct RgbCanvas : Canvas {
    uint8_t* rgb;
    int width, height, pitch;
    RgbCanvas(uint8_t* p, int w, int h, int pt) : rgb(p), width(w), height(h), pitch(pt) {}
    int Width() const override { return width; }
    int Height() const override { return height; }
    void Set(int64_t x, int64_t y, uint32_t colour) override {
        if (x < 0 || y < 0 || x >= width || y >= height) return;
        uint8_t* px = rgb + y * int64_t{pitch} + x * 3;
        px[0] = static_cast<uint8_t>(colour >> 16);
        px[1] = static_cast<uint8_t>(colour >> 8);
        px[2] = static_cast<uint8_t>(colour);
    }
};

std::string SvgColour(uint32_t colour) {
    char text[8];
    std::snprintf(text, sizeof text, "#%06x", colour & 0xFFFFFFu);
    return text;
}

}  // namespace

// Recording never throws: a record that cannot be stored when memory runs out is dropped.
void HalvardMetaDC::Add(Record&& record) {
    try {
        _records.push_back(std::move(record));
    } catch (const std::bad_alloc&) {
    }
}

void HalvardMetaDC::MoveTo(double x, double y) {
    Add({Op::MoveTo, x, y, 0, {}, {}});
}
void HalvardMetaDC::LineTo(double x, double y) {
    Add({Op::LineTo, x, y, 0, {}, {}});
}
void HalvardMetaDC::CrossAt(double x, double y, int halfSize) {
    Add({Op::CrossAt, x, y, halfSize, {}, {}});
}
MetaPen HalvardMetaDC::SelectObject(const MetaPen& pen) {
    const MetaPen previous = _pen;
    _pen = pen;
    Add({Op::SelectObject, 0, 0, 0, pen, {}});
    return previous;
}
void HalvardMetaDC::TextAt(double x, double y, std::string_view text) {
    try {
        Add({Op::TextAt, x, y, 0, {}, std::string(text)});
    } catch (const std::bad_alloc&) {
    }
}
void HalvardMetaDC::Clear() {
    _records.clear();
    _pen = MetaPen{};
}

bool HalvardMetaDC::Render(Buffer& image) const {
    if (image.BitsPerPixel() != EIGHT || image.BaseAddr() == nullptr) return false;
    GreyCanvas canvas(image);
    Play(_records, canvas, 2 * (int64_t{image.Width()} + image.Height()) + 64);
    return true;
}

bool HalvardMetaDC::RenderRgb(uint8_t* rgb, int width, int height, int pitch) const {
    if (rgb == nullptr || width <= 0 || height <= 0 || pitch < int64_t{width} * 3) return false;
    RgbCanvas canvas(rgb, width, height, pitch);
    Play(_records, canvas, 2 * (int64_t{width} + height) + 64);
    return true;
}

std::string HalvardMetaDC::ToSvg(int width, int height) const {
    try {
        return SvgText(width, height);
    } catch (const std::bad_alloc&) {
        return {};
    }
}

std::string HalvardMetaDC::SvgText(int width, int height) const {
    std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + std::to_string(width) +
                      "\" height=\"" + std::to_string(height) + "\" viewBox=\"0 0 " + std::to_string(width) +
                      " " + std::to_string(height) + "\">\n";
    MetaPen pen;
    double cx = 0, cy = 0;
    char line[256];
    // Pixel (x, y) is the cell [x, x+1) x [y, y+1): a point drawn at pixel x lies at x + 0.5 in SVG.
    auto style = [&] {
        return "stroke=\"" + SvgColour(pen.colour) + "\" stroke-width=\"" +
               std::to_string(ClampPen(pen.width)) + "\" fill=\"none\"";
    };
    for (const auto& r : _records) {
        switch (r.op) {
            case Op::MoveTo:
                cx = r.x;
                cy = r.y;
                break;
            case Op::LineTo:
                std::snprintf(line, sizeof line, "<line x1=\"%.2f\" y1=\"%.2f\" x2=\"%.2f\" y2=\"%.2f\" ",
                              cx + 0.5, cy + 0.5, r.x + 0.5, r.y + 0.5);
                svg += line + style() + "/>\n";
                cx = r.x;
                cy = r.y;
                break;
            case Op::CrossAt:
                std::snprintf(line, sizeof line, "<path d=\"M%.2f %.2fH%.2fM%.2f %.2fV%.2f\" ",
                              r.x - r.size + 0.5, r.y + 0.5, r.x + r.size + 0.5, r.x + 0.5,
                              r.y - r.size + 0.5, r.y + r.size + 0.5);
                svg += line + style() + "/>\n";
                break;
            case Op::SelectObject:
                pen = r.pen;
                break;
            case Op::TextAt: {
                // The same 3x5 font as the raster output, as filled squares.
                const int scale = ClampPen(pen.textScale);
                svg += "<g fill=\"" + SvgColour(pen.colour) + "\">";
                double x = r.x;
                for (char c : r.text) {
                    const uint8_t* rows = GlyphRows(c);
                    for (int row = 0; row < 5; ++row)
                        for (int col = 0; col < 3; ++col)
                            if (rows[row] & (4 >> col)) {
                                std::snprintf(line, sizeof line,
                                              "<rect x=\"%.2f\" y=\"%.2f\" width=\"%d\" height=\"%d\"/>",
                                              x + col * scale, r.y + row * scale, scale, scale);
                                svg += line;
                            }
                    x += 4 * scale;
                }
                svg += "</g>\n";
                break;
            }
        }
    }
    svg += "</svg>\n";
    return svg;
}

bool HalvardMetaDC::WriteSvg(const std::string& path, int width, int height) const {
    const std::string svg = ToSvg(width, height);
    if (svg.empty()) return false;
    FILE* out = std::fopen(path.c_str(), "wb");
    if (out == nullptr) return false;
    const bool ok = std::fwrite(svg.data(), 1, svg.size(), out) == svg.size();
    return std::fclose(out) == 0 && ok;
}

}  // namespace ombrel
