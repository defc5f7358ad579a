// SPDX-License-Identifier: MIT
#include "ombrel/framework/agent.h"

#include <atomic>
#include <cstdlib>

#include "ombrel/framework/hal.h"

namespace ombrel {
namespace {
std::atomic<Agent::RefreshCallback> gRefreshCallback{nullptr};
}

void Agent::ResetCommonState() {
    _agentWord0 = _agentWord1 = _vectorInstructions = 0;
    _agentSetting = 9;
    _timeout = 0.0;
    _startTime = 0.0;
}

Agent::Agent() {
    ResetCommonState();
}

Agent::Agent(Buffer* src, Rect r) {
    Setup(src, r);
    ResetCommonState();
}

Agent::Agent(Buffer* src, const Point& p, const ROI& roi) {
    Setup(src, p, roi);
    ResetCommonState();
}

Agent::Agent(Buffer* src) {
    Setup(src);
    ResetCommonState();
    gRefreshCallback = nullptr;
}

Agent::~Agent() = default;

void Agent::Setup(Buffer* src, Rect r) {
    _srcBuf = src;
    const int64_t height = std::llabs(int64_t{r.bottom} - r.top);
    _sRoi.SetExtent(static_cast<int>(int64_t{r.right} - r.left), static_cast<int>(height));
    _sPt = Point{r.left, r.top};
}

void Agent::Setup(Buffer* src, const Point& p, const ROI& roi) {
    _srcBuf = src;
    _sRoi = roi;
    _sPt = p;
}

void Agent::Setup(Buffer* src) {
    _srcBuf = src;
    _sRoi.SetExtent(src ? src->Width() : 0, src ? src->Height() : 0);
    _sPt = Point{0, 0};
}

void Agent::SetExtent(const double& w, const double& h) {
    SetExtent(static_cast<int>(iround(FixDouble(w, 16))), static_cast<int>(iround(FixDouble(h, 16))));
}

void Agent::SetTimeout(double timeoutMs, double startSeconds) {
    _timeout = timeoutMs;
    _startTime = startSeconds;
}

bool Agent::HaveWeTimedOut() const {
    if (!(_timeout > 0) || !(_startTime > 0)) return false;
    INT_TIME_UNIT time;
    HalGetClock(&time);
    const double now = time.seconds + time.microseconds * 1e-6;
    return now - _startTime > _timeout * 0.001;
}

void Agent::RegisterRefreshCallback(RefreshCallback callback) {
    gRefreshCallback = callback;
}

Agent::RefreshCallback Agent::GetRefreshCallback() {
    return gRefreshCallback;
}

}  // namespace ombrel
