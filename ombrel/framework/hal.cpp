// SPDX-License-Identifier: MIT
#include "ombrel/framework/hal.h"

#include <chrono>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <mutex>
#include <string>

namespace ombrel {
namespace {

// A sink guarded by a mutex: installing one while another thread reports must not tear the function object.
// Reports call a copy, outside the lock, so that a sink may itself report.
template <class Sink>
class GuardedSink {
  public:
    explicit GuardedSink(Sink fallback) : _fallback(std::move(fallback)) {}
    Sink Exchange(Sink sink) {
        std::lock_guard lock(_mutex);
        Sink previous = std::move(_sink);
        _sink = std::move(sink);
        return previous;
    }
    Sink Current() {
        std::lock_guard lock(_mutex);
        return _sink ? _sink : _fallback;
    }

  private:
    std::mutex _mutex;
    Sink _sink;
    Sink _fallback;
};

GuardedSink<AssertSink>& assertSink() {
    static GuardedSink<AssertSink> sink([](const char* module, int line, const char* expression) {
        std::fprintf(stderr, "ombrel: assertion failed in %s, line %d: %s\n", module ? module : "?", line,
                     expression ? expression : "?");
    });
    return sink;
}

GuardedSink<TextSink>& textSink() {
    static GuardedSink<TextSink> sink([](TextChannel, std::string_view text) {
        std::fwrite(text.data(), 1, text.size(), stdout);
        std::fflush(stdout);
    });
    return sink;
}

GuardedSink<DebugWindowSink>& debugWindowSink() {
    static GuardedSink<DebugWindowSink> sink([](uint32_t messageClass, std::string_view text) {
        std::fprintf(stderr, "ombrel debug [0x%x]: %.*s\n", static_cast<unsigned>(messageClass),
                     static_cast<int>(text.size()), text.data());
    });
    return sink;
}

std::string vformat(const char* format, va_list args) {
    if (format == nullptr) return {};
    va_list copy;
    va_copy(copy, args);
    const int needed = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (needed <= 0) return {};
    std::string text(static_cast<size_t>(needed) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, args);
    text.resize(static_cast<size_t>(needed));
    return text;
}

void emit(TextChannel channel, const char* format, va_list args) {
    const std::string text = vformat(format, args);
    textSink().Current()(channel, text);
}

int32_t saturateToInt32(int64_t value) {
    if (value > std::numeric_limits<int32_t>::max()) return std::numeric_limits<int32_t>::max();
    if (value < std::numeric_limits<int32_t>::min()) return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(value);
}

}  // namespace

AssertSink SetAssertSink(AssertSink sink) {
    return assertSink().Exchange(std::move(sink));
}

void handleAssert(const char* module, int line, const char* expression) {
    assertSink().Current()(module, line, expression);
}

TextSink SetTextSink(TextSink sink) {
    return textSink().Exchange(std::move(sink));
}

#define OMBREL_EMIT(channel)     \
    va_list args;                \
    va_start(args, format);      \
    emit(channel, format, args); \
    va_end(args)

void aprintf(const char* format, ...) {
    OMBREL_EMIT(TextChannel::Note);
}
void logPrintf(const char* format, ...) {
    OMBREL_EMIT(TextChannel::Log);
}
void debugPrintf(const char* format, ...) {
    OMBREL_EMIT(TextChannel::Debug);
}
void halHandleTrace(const char* format, ...) {
    OMBREL_EMIT(TextChannel::Trace);
}
#undef OMBREL_EMIT

DebugWindowSink SetDebugWindowSink(DebugWindowSink sink) {
    return debugWindowSink().Exchange(std::move(sink));
}

void DebugWndMsg(uint32_t messageClass, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const std::string text = vformat(format, args);
    va_end(args);
    debugWindowSink().Current()(messageClass, text);
}

FixDouble::FixDouble(double value, int fractionBits) : _raw(0), _fractionBits(fractionBits) {
    if (_fractionBits < 0) _fractionBits = 0;
    if (_fractionBits > 30) _fractionBits = 30;
    const double scaled = std::ldexp(value, _fractionBits);
    // 2^63 is exactly representable; anything at or beyond it (or NaN) cannot be held.
    constexpr double limit = 9223372036854775808.0;
    if (std::isnan(scaled)) {
        _raw = 0;
    } else if (scaled >= limit) {
        _raw = std::numeric_limits<int64_t>::max();
    } else if (scaled <= -limit) {
        _raw = std::numeric_limits<int64_t>::min();
    } else {
        _raw = static_cast<int64_t>(scaled);  // truncates toward zero
    }
}

double FixDouble::ToDouble() const {
    return std::ldexp(static_cast<double>(_raw), -_fractionBits);
}

namespace {
// Rounds the magnitude of a fixed-point value to an integer, adding `bias` (in raw units) before the shift,
// so that both roundings are symmetric about zero; the result saturates to the int32 range.
int32_t magnitudeToInt32(const FixDouble& value, bool roundHalfUp) {
    const int bits = value.FractionBits();
    const int64_t raw = value.Raw();
    const uint64_t magnitude =
        raw < 0 ? uint64_t{0} - static_cast<uint64_t>(raw) : static_cast<uint64_t>(raw);
    const uint64_t bias = (roundHalfUp && bits > 0) ? uint64_t{1} << (bits - 1) : 0;
    uint64_t whole = (magnitude >> bits) + (((magnitude & ((uint64_t{1} << bits) - 1)) + bias) >> bits);
    if (whole > (uint64_t{1} << 40)) whole = uint64_t{1} << 40;
    const int64_t signedWhole = static_cast<int64_t>(whole);
    return saturateToInt32(raw < 0 ? -signedWhole : signedWhole);
}
}  // namespace

int32_t iround(const FixDouble& value) {
    return magnitudeToInt32(value, true);
}

int32_t itrunc(const FixDouble& value) {
    return magnitudeToInt32(value, false);
}

namespace {
std::chrono::nanoseconds monotonicNow() {
    // CLOCK_MONOTONIC counts from boot, so every reading is positive, which the timeout logic relies on.
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
}
}  // namespace

void HalGetClock(INT_TIME_UNIT* time) {
    if (time == nullptr) return;
    const int64_t micros = monotonicNow().count() / 1000;
    time->seconds = static_cast<int32_t>(micros / 1000000);
    time->microseconds = static_cast<int32_t>(micros % 1000000);
}

void HalGetClock(double* seconds) {
    if (seconds == nullptr) return;
    INT_TIME_UNIT time;
    HalGetClock(&time);
    *seconds = time.seconds + time.microseconds * 1e-6;
}

uint64_t memAvail() {
    std::ifstream meminfo("/proc/meminfo");
    std::string key;
    uint64_t kilobytes = 0;
    std::string unit;
    while (meminfo >> key >> kilobytes >> unit) {
        if (key == "MemAvailable:") return kilobytes * 1024;
    }
    return 0;
}

int64_t RCSStringToNumber(const char* revision) {
    if (revision == nullptr) return 0;
    const char* p = revision;
    while (*p != '\0' && !(*p >= '0' && *p <= '9')) ++p;
    static constexpr int64_t kWeights[3] = {100000000, 100000, 100};
    static constexpr int64_t kLimits[3] = {91, 999, 999};  // keeps the sum inside int64 and the fields apart
    int64_t number = 0;
    for (int field = 0; field < 3 && *p >= '0' && *p <= '9'; ++field) {
        int64_t part = 0;
        while (*p >= '0' && *p <= '9') {
            part = part * 10 + (*p - '0');
            if (part > kLimits[field]) return 0;
            ++p;
        }
        number += part * kWeights[field];
        if (*p != '.') break;
        ++p;
    }
    return number;
}

}  // namespace ombrel
