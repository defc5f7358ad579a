// SPDX-License-Identifier: MIT
// Deterministic synthetic 8-bit scenes: the same seed gives the same bytes on every machine.
#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include "ombrel/framework/buffer.h"

namespace ombrel::scenes {

// A small, fast, portable generator (splitmix64), so scenes do not depend on the standard library's engines.
class SceneRandom {
  public:
    explicit SceneRandom(uint64_t seed) : _state(seed) {}
    uint64_t Next();
    int Uniform(int low, int high);  // inclusive
    double Unit();                   // [0, 1)

  private:
    uint64_t _state;
};

// A textured scene: lit gradient, soft blobs, edges and sensor noise; what a camera sees of a real part.
std::unique_ptr<Buffer> MakeTexturedScene(int width, int height, uint64_t seed);

struct PartShape {
    int cx, cy;       // centre
    int outerRadius;  // the part is a disc (or a square when `square`)
    int holeRadius;   // 0: no hole
    bool square;
};

// An inspection scene: dark parts with holes on a lit, noisy background, with a scratch and a speck as
// defects. `parts`, when given, receives the shapes drawn.
std::unique_ptr<Buffer> MakePartsScene(int width, int height, int partCount, uint64_t seed,
                                       std::vector<PartShape>* parts = nullptr);

// Uniform random bytes: the worst case for anything that counts regions.
std::unique_ptr<Buffer> MakeNoiseScene(int width, int height, uint64_t seed);

}  // namespace ombrel::scenes
