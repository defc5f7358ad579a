// SPDX-License-Identifier: MIT
#include "ombrel/gradients/scene_angle.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <new>

#include "ombrel/framework/angles.h"
#include "ombrel/framework/factory.h"
#include "ombrel/framework/hal.h"
#include "ombrel/gradients/sobel.h"
#include "ombrel/pixelops/histogram.h"

namespace ombrel {

const float* SceneAngleWeights() {
    static constexpr float kWeights[32] = {
        0.8913331f, 1.3230101f,  1.2241961f, 1.2662286f,  1.2662286f,  1.0846738f,  1.180125f,   1.04621f,
        1.0967704f, 0.95789367f, 0.9486535f, 0.82641804f, 0.8994855f,  0.7663149f,  0.74502844f, 1.0315778f,
        0.6751287f, 0.7231158f,  0.8357826f, 0.86519426f, 0.79738176f, 0.99003774f, 0.8967515f,  1.1008629f,
        1.0499333f, 1.180125f,   1.104986f,  1.1391168f,  1.3471746f,  1.1944585f,  1.3851233f,  1.5052614f};
    return kWeights;
}

SceneAngleAgent::SceneAngleAgent(Buffer* src) : Agent(src) {
    Init();
}
SceneAngleAgent::SceneAngleAgent(Buffer* src, Rect r) : Agent(src, r) {
    Init();
}
SceneAngleAgent::SceneAngleAgent(Buffer* src, Point p, const ROI& roi) : Agent(src, p, roi) {
    Init();
}
SceneAngleAgent::~SceneAngleAgent() = default;

void SceneAngleAgent::Init() {
    _strength = _angle = _coverage = 0;
    std::fill(std::begin(_hist), std::end(_hist), 0);
    std::fill(std::begin(_folded), std::end(_folded), 0.0f);
    _nBins = 32;
    _foldSum = _foldSumSq = _foldSpread = 0;
    _useWeights = 1;
    _foldMode = 2;
    _fitMode = 2;
    _boardThreshold = 15, _boardShift = 1, _boardGain = 1.5f, _boardLimit = 10;
}

int SceneAngleAgent::PreGo(bool) {
    return 0;
}
int SceneAngleAgent::PostGo() {
    return 0;
}

void SceneAngleAgent::SetFoldMode(int mode) {
    if (mode < 0 || mode > 2) return;
    _foldMode = mode;
    _nBins = 128 >> mode;
}

void SceneAngleAgent::SetHist(const int32_t (&hist)[128]) {
    std::copy(std::begin(hist), std::end(hist), _hist);
    HistBasedAngle();
}

void SceneAngleAgent::HistBasedAngle() {
    const int n = _nBins;
    const float* weight = SceneAngleWeights();
    const auto& h = _hist;
    auto fold = [&](int k) {
        int32_t v = h[k];
        if (_foldMode == 1) v += h[k + 64];
        if (_foldMode == 2) v += h[k + 32] + h[k + 64] + h[k + 96];
        return _useWeights != 0 ? static_cast<float>(v) * weight[k % 32] : static_cast<float>(v);
    };
    int64_t total = 0;
    for (int k = 0; k < n; ++k) {
        _folded[k] = fold(k);
        total += h[k];
    }
    // Runs of five bins around the circle; the middle of the run is the candidate peak.
    float run[5] = {_folded[n - 4], _folded[n - 3], _folded[n - 2], _folded[n - 1], 0};
    float best = 0, L2 = 0, L1 = 0, P = 0, R1 = 0, R2 = 0;
    int peakStep = 0;
    for (int k = 0; k < n; ++k) {
        run[4] = _folded[k];
        if (run[2] > best) {
            best = run[2];
            L2 = run[0], L1 = run[1], P = run[2], R1 = run[3], R2 = run[4], peakStep = k;
        }
        std::copy(run + 1, run + 5, run);
    }
    _foldSum = _foldSumSq = 0;
    for (int k = 0; k < n; ++k) {
        _foldSum += _folded[k];
        _foldSumSq += double(_folded[k]) * _folded[k];
    }
    _foldSpread = std::sqrt(std::max(0.0, n * _foldSumSq - _foldSum * _foldSum));
    const double area = double(_sRoi.Width()) * std::abs(_sRoi.Height());
    _coverage = area > 0 ? static_cast<float>(double(total) * 100.0 / area) : 0.0f;
    _strength = total != 0 ? static_cast<float>(P * 1000.0f / static_cast<float>(total)) : 0.0f;

    float d = 0;
    const bool rising = L1 > L2 || P > L1;
    if (L1 > L2 && L1 >= P) {
        d = (L2 - P) / (2 * (P + L2 - 2 * L1)) - 3;
    } else if (!rising && !(R1 > P)) {
        handleAssert("sceneangle", 295, "0");
    } else if (rising && P >= R1) {
        d = (L1 - R1) / (2 * (R1 + L1 - 2 * P)) - 2;
    } else if (R1 < R2) {
        handleAssert("sceneangle", 295, "0");
    } else {
        d = (P - R2) / (2 * (R2 + P - 2 * R1)) - 1;
    }
    _angle = static_cast<float>(-kTwoPi * (peakStep + d) / 128.0);
}

float SceneAngleAgent::AngleDiffFit3(float& left, float& centre, float& right) {
    return centre != 0 ? (right - left) / (2 * centre) : 0.0f;
}

float SceneAngleAgent::AngleDiffFit5(float& l2, float& l1, float& centre, float& r1, float& r2) {
    const auto a = static_cast<float>(0.143 * l2 - 0.071 * l1 - 0.143 * centre - 0.071 * r1 + 0.143 * r2);
    // Mirror terms are paired so that a symmetric peak gives exactly b = 0.
    const double b = 0.2 * (double(r2) - l2) + 0.1 * (double(r1) - l1);
    return a != 0 ? static_cast<float>(-b / (2 * double(a))) : 0.0f;
}

float SceneAngleAgent::AngleDiff(SceneAngleAgent* other) {
    if (other == nullptr || other->_nBins != _nBins) return 0;
    const int n = _nBins;
    const float* f = _folded;
    const float* g = other->_folded;
    const double spread = std::sqrt(std::max(0.0, n * _foldSumSq - _foldSum * _foldSum));
    const double D = spread * other->_foldSpread;
    std::array<float, 128> r{};
    std::array<double, 128> terms{};
    for (int s = 0; s < n; ++s) {
        for (int j = 0; j < n; ++j) terms[j] = double(g[j]) * f[(j + s) % n];
        std::sort(terms.begin(), terms.begin() + n);  // the same terms give the same sum in any order
        double c = 0;
        for (int j = 0; j < n; ++j) c += terms[j];
        r[s] = D != 0 ? static_cast<float>((n * c - other->_foldSum * _foldSum) / D) : 0.0f;
    }
    int bestShift = 0;
    float best = 0;
    for (int s = 0; s < n; ++s)
        if (r[s] > best) best = r[s], bestShift = s;
    auto at = [&](int offset) -> float& { return r[(bestShift + offset + n) % n]; };
    float e = 0;
    if (_fitMode == 1) e = AngleDiffFit3(at(-1), at(0), at(1));
    if (_fitMode == 2) e = AngleDiffFit5(at(-2), at(-1), at(0), at(1), at(2));
    return static_cast<float>((bestShift + e) * kTwoPi / 128.0);
}

swSceneAngleAgent::~swSceneAngleAgent() = default;

int swSceneAngleAgent::Prepare() {
    const Rect region{_sPt.x, _sPt.y, _sPt.x + _sRoi.Width(), _sPt.y + _sRoi.Height()};
    if (_image && region.left == _prepared.left && region.top == _prepared.top &&
        region.right == _prepared.right && region.bottom == _prepared.bottom)
        return 0;
    _histogram.reset();
    _sobel.reset();
    _image.reset();
    try {
        auto image =
            std::make_unique<Buffer>(region.right - region.left, std::abs(region.bottom - region.top), EIGHT);
        if (image->GetError() != 0) return kSceneAngleNoMemory;
        _sobel = std::make_unique<swSobelAgent>(_srcBuf, image.get(), region, QANGLE, SOBEL_SHIFT_2, 15, 1);
        _histogram = std::make_unique<swHistogramAgent>(image.get(), HISTRES_256, &_counts);
        _image = std::move(image);
    } catch (const std::bad_alloc&) {
        _sobel.reset();
        _histogram.reset();
        return kSceneAngleNoMemory;
    }
    _prepared = region;
    return 0;
}

int swSceneAngleAgent::PreGo(bool) {
    return Prepare();
}

int swSceneAngleAgent::Go() {
    if (const int status = Prepare(); status != 0) return status;
    _sobel->SetSrcBuf(_srcBuf);
    _sobel->Go();
    _histogram->Go();
    for (int k = 0; k < 128 && size_t(128 + k) < _counts.size(); ++k) _hist[k] = _counts[128 + k];
    HistBasedAngle();
    return 0;
}

SceneAngleAgent* SceneAngleFact(Buffer* src) {
    return MakeAgent<swSceneAngleAgent>({{src}}, src);
}
SceneAngleAgent* SceneAngleFact(Buffer* src, int left, int top, int right, int bottom) {
    return SceneAngleFact(src, RectFromInts(left, top, right, bottom));
}
SceneAngleAgent* SceneAngleFact(Buffer* src, Point p, const ROI& roi) {
    return MakeAgent<swSceneAngleAgent>({{src}}, src, p, roi);
}
SceneAngleAgent* SceneAngleFact(Buffer* src, Rect r) {
    return MakeAgent<swSceneAngleAgent>({{src}}, src, r);
}

}  // namespace ombrel
