// SPDX-License-Identifier: MIT
#include "bench_images.h"

#include <map>
#include <memory>
#include <mutex>
#include <tuple>

#include "scenes/synthetic_scene.h"

namespace ombrel::bench {
namespace {
constexpr int kSizes[2][2] = {{1024, 1024}, {2592, 1944}};
}

Buffer& Scene(int sizeIndex, SceneKind kind, int variant) {
    static std::mutex mutex;
    static std::map<std::tuple<int, int, int>, std::unique_ptr<Buffer>> cache;
    std::lock_guard lock(mutex);
    auto& slot = cache[{sizeIndex, static_cast<int>(kind), variant}];
    if (!slot) {
        const int w = kSizes[sizeIndex][0], h = kSizes[sizeIndex][1];
        const uint64_t seed = 1000 + 17 * static_cast<uint64_t>(variant);
        switch (kind) {
            case SceneKind::Textured:
                slot = scenes::MakeTexturedScene(w, h, seed);
                break;
            case SceneKind::Parts:
                slot = scenes::MakePartsScene(w, h, 300, seed);
                break;
            case SceneKind::Noise:
                slot = scenes::MakeNoiseScene(w, h, seed);
                break;
        }
    }
    return *slot;
}

cv::Mat AsMat(const Buffer& buffer) {
    const int type = buffer.BitsPerPixel() == 16   ? CV_16UC1
                     : buffer.BitsPerPixel() == 32 ? CV_32SC1
                                                   : CV_8UC1;
    return cv::Mat(buffer.Height(), buffer.Width(), type, buffer.BaseAddr(),
                   static_cast<size_t>(buffer.Pitch()));
}

const char* SizeName(int sizeIndex) {
    return sizeIndex == 0 ? "1024x1024" : "2592x1944";
}

}  // namespace ombrel::bench
