// SPDX-License-Identifier: MIT
/// \file
/// HalvardMetaDC: a drawing recorder. Drawing operations (Blob::DrawBoundary, BlobResult::HighlightTree, the
/// command-line program's overlays) record MoveTo / LineTo / CrossAt / SelectObject / TextAt calls; the
/// recording can then be rendered onto an 8-bit or an RGB image, or written as SVG.
///
/// Coordinates are image pixels (x right, y down); pixel (x, y) covers [x, x+1) x [y, y+1), so a line from
/// (x0, y0) to (x1, y1) with integer ends lights the pixels whose centres it passes through (Bresenham
/// between the rounded ends). Rendering clips every pixel to the image; nothing outside it is written.
/// Text uses a built-in 3x5 pixel font (digits, upper-case letters, space and - . : # = + ( ) /; other
/// characters draw as a box) scaled by the pen's text scale.
#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"

namespace ombrel {

/// A 2-D affine transform applied to drawn points: x' = m[0][0] x + m[0][1] y + m[0][2], y' likewise with
/// row 1.
struct Matrix {
    /// rows 0 and 1 are used; row 2 stays 0 0 1
    double m[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    /// Transforms (x, y) in place.
    void Apply(double& x, double& y) const {
        const double nx = m[0][0] * x + m[0][1] * y + m[0][2];
        const double ny = m[1][0] * x + m[1][1] * y + m[1][2];
        x = nx;
        y = ny;
    }
};

/// The pen: colour 0xRRGGBB, line width in pixels (1..16) and text scale (1..16).
struct MetaPen {
    /// 0xRRGGBB
    uint32_t colour = 0xFFFFFF;
    /// line width in pixels
    int width = 1;
    /// text scale factor
    int textScale = 1;
};

/// A drawing recorder: lines, crosses and text recorded in order with their pens, then played onto an 8-bit
/// image, RGB bytes or SVG. Blob drawing and the program's overlays go through it.
class OMBREL_API HalvardMetaDC {
  public:
    /// What a record draws.
    enum class Op : uint8_t { MoveTo, LineTo, CrossAt, SelectObject, TextAt };
    /// One recorded drawing step.
    struct Record {
        /// what to draw
        Op op;
        ///@{
        /// position in pixels
        double x = 0, y = 0;
        ///@}
        int size = 0;      ///< CrossAt: half size in pixels
        MetaPen pen;       ///< SelectObject
        std::string text;  ///< TextAt
    };

    /// Moves the pen to (x, y) without drawing.
    void MoveTo(double x, double y);
    /// A line from the pen position to (x, y), which becomes the pen position.
    void LineTo(double x, double y);
    /// A "+" cross of arms `halfSize` pixels long centred on (x, y).
    void CrossAt(double x, double y, int halfSize = 3);
    /// Selects the pen for what follows; returns the previous one.
    MetaPen SelectObject(const MetaPen& pen);
    /// Selects a pen of `colour` and `width`, keeping the text scale; returns the previous pen.
    MetaPen SelectObject(uint32_t colour, int width = 1) {
        return SelectObject(MetaPen{colour, width, _pen.textScale});
    }
    /// Text with its upper-left corner at (x, y).
    void TextAt(double x, double y, std::string_view text);

    /// The recording, in order.
    const std::vector<Record>& Records() const { return _records; }
    /// The pen in use.
    const MetaPen& Pen() const { return _pen; }
    /// Forgets the recording (the pen stays).
    void Clear();

    /// Plays the recording onto an 8-bit buffer (a colour becomes its luma, (77 r + 150 g + 29 b) >> 8).
    /// Returns false (and draws nothing) when the buffer is not an 8-bit buffer with pixels.
    bool Render(Buffer& image) const;
    /// Plays the recording onto interleaved RGB bytes (3 per pixel, `pitch` bytes per row).
    bool RenderRgb(uint8_t* rgb, int width, int height, int pitch) const;
    /// The recording as an SVG document of the given size (lines, crosses, text in the same font); empty when
    /// memory runs out. WriteSvg writes it to a file; false on any failure.
    std::string ToSvg(int width, int height) const;
    /// Writes ToSvg(width, height) to `path`; false on any failure.
    bool WriteSvg(const std::string& path, int width, int height) const;

  private:
    void Add(Record&& record);
    std::string SvgText(int width, int height) const;
    std::vector<Record> _records;
    MetaPen _pen;
};

}  // namespace ombrel
