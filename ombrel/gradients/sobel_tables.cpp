// SPDX-License-Identifier: MIT
#include "ombrel/gradients/sobel_tables.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include "ombrel/framework/angles.h"

namespace ombrel {

SQRT_struct::SQRT_struct(int n) : _n(std::max(n, 0)) {
    _entries.reserve(static_cast<size_t>(_n) * (static_cast<size_t>(_n) + 1) / 2);
    for (int r = 0; r < _n; ++r)
        for (int c = 0; c <= r; ++c)
            _entries.push_back(
                static_cast<int32_t>(std::floor(std::sqrt(double(r) * r + double(c) * c) + 0.5)));
}

int SQRT_struct::At(int row, int column) const {
    if (row < 0 || row >= _n || column < 0 || column > row) return 0;
    return _entries[static_cast<size_t>(row) * (row + 1) / 2 + column];
}

int SQRT_struct::Length(int gx, int gy) const {
    const int ax = std::abs(gx), ay = std::abs(gy);
    return At(std::max(ax, ay), std::min(ax, ay));
}

const SQRT_struct& SobelSqrtTable() {
    static const SQRT_struct table(128);
    return table;
}

namespace {

// The code of one vector by the arc rule. Integer vectors lie exactly on an arc boundary only along the axes
// and diagonals (their tangent is rational only there), where the computed angle may miss the boundary by a
// rounding error; the fraction is snapped back onto it. Every other vector stays more than 6e-5 of a
// step away from a boundary, far beyond the rounding error, so its code is exact.
int CodeByRule(int gx, int gy) {
    if (gx == 0 && gy == 0) return 128;
    double steps = std::atan2(double(gy), double(gx)) * 128.0 / kPi;  // code steps from +gx
    if (steps < 0) steps += 256.0;
    const double nearest = std::nearbyint(steps);
    if (std::fabs(steps - nearest) < 1e-9) steps = nearest;
    const int code = static_cast<int>(std::ceil(steps)) - 1;
    return (code % 256 + 256) % 256;
}

struct DirectionTables {
    std::vector<int32_t> codes;
    std::vector<uint8_t> bytes;
    DirectionTables() : codes(size_t{kDirectionTableSide} * kDirectionTableSide), bytes(codes.size() + 3, 0) {
        for (int gx = -kGradientLimit; gx <= kGradientLimit; ++gx)
            for (int gy = -kGradientLimit; gy <= kGradientLimit; ++gy)
                codes[Index(gx, gy)] = CodeByRule(gx, gy);
        // The four entries within 1e-4 of a step of a boundary, one lower than the rule.
        static constexpr std::array<std::array<int, 3>, 4> kBoundary{
            {{112, 37, 12}, {-37, 112, 76}, {-112, -37, 140}, {37, -112, 204}}};
        for (const auto& e : kBoundary) codes[Index(e[0], e[1])] = e[2];
        for (size_t i = 0; i < codes.size(); ++i) bytes[i] = static_cast<uint8_t>(codes[i]);
    }
    static size_t Index(int gx, int gy) {
        return size_t(gx + kGradientLimit) * kDirectionTableSide + size_t(gy + kGradientLimit);
    }
};

const DirectionTables& Directions() {
    static const DirectionTables tables;
    return tables;
}

}  // namespace

const int32_t* SobelDirectionTable() {
    return Directions().codes.data();
}

const uint8_t* SobelDirectionBytes() {
    return Directions().bytes.data();
}

int SobelDirection(int gx, int gy) {
    gx = std::clamp(gx, -kGradientLimit, kGradientLimit);
    gy = std::clamp(gy, -kGradientLimit, kGradientLimit);
    return SobelDirectionTable()[DirectionTables::Index(gx, gy)];
}

}  // namespace ombrel
