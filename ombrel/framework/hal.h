// SPDX-License-Identifier: MIT
/// \file
/// The utility layer every module reports and measures through: assertions, diagnostic text, the debug
/// window, fixed-point rounding, the clock and a few platform queries. Every output goes to a sink the caller
/// may replace (tests install recorders instead of reading the terminal).
#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

#include "ombrel/framework/export.h"

namespace ombrel {

// ---- Assertions -------------------------------------------------------------------------------------------
/// An assertion reports and returns; the operation goes on (inside the memory it owns).
using AssertSink = std::function<void(const char* module, int line, const char* expression)>;
/// Installs `sink` (an empty function restores the default, standard error) and returns the previous one.
OMBREL_API AssertSink SetAssertSink(AssertSink sink);
/// Reports a failed precondition: `module` and `line` name where, `expression` is the condition's text.
OMBREL_API void handleAssert(const char* module, int line, const char* expression);

/// Reports `expression` when `ok` is false; returns `ok` so a caller can also act on it.
inline bool Check(bool ok, const char* module, int line, const char* expression) {
    if (!ok) handleAssert(module, line, expression);
    return ok;
}

// ---- Diagnostic text --------------------------------------------------------------------------------------
/// The kind of diagnostic text: user notes (aprintf), log, debug and trace lines.
enum class TextChannel { Note, Log, Debug, Trace };
/// Receives every piece of diagnostic text with its channel.
using TextSink = std::function<void(TextChannel channel, std::string_view text)>;
/// One sink for all formatted diagnostic text (standard output by default); returns the previous one.
OMBREL_API TextSink SetTextSink(TextSink sink);

/// A note to the user (printf format) through the text sink.
OMBREL_API void aprintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// A log line (printf format) through the text sink.
OMBREL_API void logPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// A debug line (printf format) through the text sink.
OMBREL_API void debugPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// A trace line (printf format) through the text sink.
OMBREL_API void halHandleTrace(const char* format, ...) __attribute__((format(printf, 1, 2)));

// ---- Debug window -----------------------------------------------------------------------------------------
/// Receives debug-window messages with their message class.
using DebugWindowSink = std::function<void(uint32_t messageClass, std::string_view text)>;
/// Messages for the debug window (standard error by default); returns the previous sink.
OMBREL_API DebugWindowSink SetDebugWindowSink(DebugWindowSink sink);
/// A debug-window message of class `messageClass` (printf format).
OMBREL_API void DebugWndMsg(uint32_t messageClass, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

// ---- Fixed point ------------------------------------------------------------------------------------------
/// A double held as a signed fixed-point number with `fractionBits` fraction bits (0..30). The conversion
/// truncates toward zero at the last fraction bit; values beyond the 64-bit range saturate and NaN becomes 0.
class OMBREL_API FixDouble {
  public:
    /// `value` with `fractionBits` fraction bits (see the class).
    FixDouble(double value, int fractionBits);
    /// The fixed-point integer: value x 2^fractionBits, truncated.
    int64_t Raw() const { return _raw; }
    /// Fraction bits.
    int FractionBits() const { return _fractionBits; }
    /// The value held, back as a double.
    double ToDouble() const;

  private:
    int64_t _raw;
    int _fractionBits;
};
/// Nearest integer, halves away from zero; saturates to the int32 range.
OMBREL_API int32_t iround(const FixDouble& value);
/// Integer part, toward zero; saturates to the int32 range.
OMBREL_API int32_t itrunc(const FixDouble& value);

// ---- Clock ------------------------------------------------------------------------------------------------
/// Both forms read the same monotonic clock, whose origin lies before the process started (so times are > 0).
struct INT_TIME_UNIT {
    /// whole seconds
    int32_t seconds = 0;
    /// microseconds past `seconds`
    int32_t microseconds = 0;
};
/// The clock as seconds and microseconds.
OMBREL_API void HalGetClock(INT_TIME_UNIT* time);
/// The clock in seconds.
OMBREL_API void HalGetClock(double* seconds);

// ---- Platform queries -------------------------------------------------------------------------------------
/// Bytes of memory the system can still give this process (MemAvailable), 0 when unknown.
OMBREL_API uint64_t memAvail();
/// "$Revision: 1.4 $" gives 100400000: major * 100000000 + minor * 100000 (+ a third number * 100).
/// Text without a version gives 0.
OMBREL_API int64_t RCSStringToNumber(const char* revision);

}  // namespace ombrel

/// Reports `text` under `module` and `line` when `condition` does not hold. The text is the system's own
/// wording of the condition and is written out as a string literal of its own (the empty literal in front
/// refuses anything else): a stringized condition would change whenever a formatter re-spaced the code.
#define OMBREL_ASSERT(module, line, condition, text) \
    ::ombrel::Check(static_cast<bool>(condition), (module), (line), "" text)
/// As OMBREL_ASSERT, where no line is prescribed: the real source line is reported.
#define OMBREL_ASSERT_HERE(module, condition, text) OMBREL_ASSERT(module, __LINE__, condition, text)
