// SPDX-License-Identifier: MIT
#include "scenes/synthetic_scene.h"

#include <algorithm>
#include <cmath>

namespace ombrel::scenes {
namespace {

uint8_t ClampByte(double v) {
    return static_cast<uint8_t>(std::clamp(v, 0.0, 255.0));
}

std::unique_ptr<Buffer> NewGrey(int width, int height) {
    auto buffer = std::make_unique<Buffer>(width, height, EIGHT);
    return buffer->GetError() == 0 ? std::move(buffer) : nullptr;
}

}  // namespace

uint64_t SceneRandom::Next() {
    uint64_t z = (_state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

int SceneRandom::Uniform(int low, int high) {
    return low + static_cast<int>(Next() % static_cast<uint64_t>(high - low + 1));
}

double SceneRandom::Unit() {
    return static_cast<double>(Next() >> 11) * (1.0 / 9007199254740992.0);
}

std::unique_ptr<Buffer> MakeTexturedScene(int width, int height, uint64_t seed) {
    auto image = NewGrey(width, height);
    if (!image) return nullptr;
    SceneRandom random(seed);
    struct Blob {
        double x, y, r, amplitude;
    };
    std::vector<Blob> blobs(40);
    for (Blob& b : blobs) {
        b = {random.Unit() * width, random.Unit() * height, 10 + random.Unit() * width / 8.0,
             random.Unit() * 120 - 60};
    }
    for (int y = 0; y < height; ++y) {
        uint8_t* row = image->Row(y);
        for (int x = 0; x < width; ++x) {
            double v = 60 + 120.0 * x / width + 40.0 * std::sin(y * 0.02) + ((x / 64 + y / 64) % 2) * 20;
            for (const Blob& b : blobs) {
                const double dx = x - b.x, dy = y - b.y;
                if (std::abs(dx) < b.r && std::abs(dy) < b.r && dx * dx + dy * dy < b.r * b.r)
                    v += b.amplitude;
            }
            v += static_cast<int>(random.Next() % 17) - 8;
            row[x] = ClampByte(v);
        }
    }
    return image;
}

std::unique_ptr<Buffer> MakePartsScene(int width, int height, int partCount, uint64_t seed,
                                       std::vector<PartShape>* parts) {
    auto image = NewGrey(width, height);
    if (!image) return nullptr;
    SceneRandom random(seed);
    // Lit background: bright, a gentle gradient and noise that never reaches the parts' grey levels.
    for (int y = 0; y < height; ++y) {
        uint8_t* row = image->Row(y);
        for (int x = 0; x < width; ++x) row[x] = ClampByte(190 + 30.0 * x / width + random.Uniform(-12, 12));
    }
    // Parts on a jittered grid so that they never touch one another.
    const int columns =
        std::max(1, static_cast<int>(std::ceil(std::sqrt(partCount * double(width) / height))));
    const int rows = std::max(1, (partCount + columns - 1) / columns);
    const int cellW = width / columns, cellH = height / rows;
    std::vector<PartShape> drawn;
    for (int i = 0; i < partCount; ++i) {
        const int cell = std::min(cellW, cellH);
        if (cell < 8) break;
        PartShape p;
        p.outerRadius = std::max(3, static_cast<int>(cell * (0.25 + 0.1 * random.Unit())));
        p.holeRadius = (i % 3 == 2) ? 0 : std::max(1, p.outerRadius / 3);
        p.square = (i % 4 == 1);
        const int slack = std::max(0, cell / 2 - p.outerRadius - 2);
        p.cx = (i % columns) * cellW + cellW / 2 + random.Uniform(-slack, slack);
        p.cy = (i / columns) * cellH + cellH / 2 + random.Uniform(-slack, slack);
        drawn.push_back(p);
    }
    for (const PartShape& p : drawn) {
        for (int y = std::max(0, p.cy - p.outerRadius); y <= std::min(height - 1, p.cy + p.outerRadius);
             ++y) {
            uint8_t* row = image->Row(y);
            for (int x = std::max(0, p.cx - p.outerRadius); x <= std::min(width - 1, p.cx + p.outerRadius);
                 ++x) {
                const int dx = x - p.cx, dy = y - p.cy;
                const bool inside = p.square || dx * dx + dy * dy <= p.outerRadius * p.outerRadius;
                const bool inHole = dx * dx + dy * dy < p.holeRadius * p.holeRadius;
                if (inside && !inHole) row[x] = ClampByte(40 + random.Uniform(-10, 10));
            }
        }
    }
    // Defects: a thin diagonal scratch and a dark speck on the background.
    for (int t = 0; t < std::min(width, height) / 6; ++t) {
        const int x = width / 10 + t, y = height / 12 + t;
        if (x < width && y < height) image->Row(y)[x] = 30;
    }
    const int sx = width - width / 12, sy = height - height / 12;
    for (int y = sy; y < std::min(height, sy + 3); ++y)
        for (int x = sx; x < std::min(width, sx + 3); ++x) image->Row(y)[x] = 25;
    if (parts != nullptr) *parts = std::move(drawn);
    return image;
}

std::unique_ptr<Buffer> MakeNoiseScene(int width, int height, uint64_t seed) {
    auto image = NewGrey(width, height);
    if (!image) return nullptr;
    SceneRandom random(seed);
    for (int y = 0; y < height; ++y) {
        uint8_t* row = image->Row(y);
        for (int x = 0; x < width; ++x) row[x] = static_cast<uint8_t>(random.Next() >> 56);
    }
    return image;
}

}  // namespace ombrel::scenes
