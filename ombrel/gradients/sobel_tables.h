// SPDX-License-Identifier: MIT
/// \file
/// The two process-wide tables every gradient tool reads: rounded Euclidean lengths and 8-bit directions.
///
/// Both are built once (on first use, behind a thread-safe static) and are read-only afterwards, so any
/// number of agents on any threads may share them.
///
/// Direction codes count counter-clockwise from +gx, 256 codes per turn; gy is top minus bottom, so code
/// 0..63 points right-and-up. For a vector (gx, gy) at angle theta in [0, 360) degrees the code is ceil(theta
/// * 256 / 360) - 1 taken modulo 256 (code c covers the arc (c * 1.40625, (c + 1) * 1.40625]); the zero
/// vector has code 128. Four entries that lie on an arc boundary to within 1e-4 of a code step are one lower
/// than that rule gives, and are part of the table: (112, 37) -> 12, (-37, 112) -> 76,
/// (-112, -37) -> 140 and (37, -112) -> 204.
#pragma once
#include <cstdint>
#include <vector>

#include "ombrel/framework/export.h"

namespace ombrel {

/// A triangular table of rounded lengths: row r (0 <= r < n) holds r + 1 entries, entry c = floor(sqrt(r^2 +
/// c^2) + 0.5). Look it up with row = the larger absolute component and column = the smaller.
class OMBREL_API SQRT_struct {
  public:
    /// Builds the table of `n` rows.
    explicit SQRT_struct(int n);
    /// Rows, n.
    int Size() const { return _n; }
    /// Entry (row, column); 0 outside the triangle (row < 0, row >= n, column < 0 or column > row).
    int At(int row, int column) const;
    /// The rounded length of (gx, gy), both within -(n-1)..n-1; 0 outside that range.
    int Length(int gx, int gy) const;

  private:
    int _n = 0;
    std::vector<int32_t> _entries;  ///< row r starts at r * (r + 1) / 2
};

/// Components of every table lookup lie in -127..127.
inline constexpr int kGradientLimit = 127;
/// Rows and columns of the direction table.
inline constexpr int kDirectionTableSide = 2 * kGradientLimit + 1;

/// The process-wide length table, n = 128 (largest entry 180, at row 127, column 127).
OMBREL_API const SQRT_struct& SobelSqrtTable();

/// The 255 x 255 direction table: entry [(gx + 127) * 255 + (gy + 127)] is the code of (gx, gy).
OMBREL_API const int32_t* SobelDirectionTable();

/// The direction code of (gx, gy), both within -127..127 (components outside are clamped first).
OMBREL_API int SobelDirection(int gx, int gy);

/// The same table as bytes, followed by three readable padding bytes so that a 32-bit gather at any index
/// stays inside it (internal; used by the vector kernels).
const uint8_t* SobelDirectionBytes();

}  // namespace ombrel
