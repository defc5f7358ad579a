// SPDX-License-Identifier: MIT
/// \file
/// A process-wide, thread-safe list of time-stamped events that a caller fills while it runs inspections and
/// reads back later to see where time went. The library's agents never write to it.
#pragma once
#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>

#include "ombrel/framework/export.h"

namespace ombrel {

/// One logged event.
struct LogEntry {
    double time = 0.0;    ///< seconds, from EventLogger::Now()
    int32_t value = 0;    ///< the caller's number
    char text[132] = {};  ///< the caller's text; a longer text is cut to 131 characters, always terminated
};

/// A time-stamped log of the caller's events, safe to write from several threads (one lock). Off until
/// EnableLogging(true).
class OMBREL_API EventLogger {
  public:
    /// An empty log, logging off.
    EventLogger() = default;
    /// Destroys the entries still in the log.
    ~EventLogger();
    EventLogger(const EventLogger&) = delete;
    EventLogger& operator=(const EventLogger&) = delete;

    /// Switches logging on or off.
    void EnableLogging(bool on) { _enabled.store(on, std::memory_order_relaxed); }
    /// Switches logging off.
    void DisableLogging() { EnableLogging(false); }
    /// Whether LogEvent records.
    bool IsEnabled() const { return _enabled.load(std::memory_order_relaxed); }

    /// Appends an entry when logging is on; does nothing when it is off. A null text logs an empty one.
    void LogEvent(const char* text, int32_t value);
    /// Entries in the log.
    int32_t NumEntries();
    ///@{
    /// The oldest and newest entries. On an empty log they report an assertion and return a blank entry
    /// owned by the logger rather than reading outside the queue.
    LogEntry& Front();
    LogEntry& Back();
    ///@}
    ///@{
    /// Remove the oldest or newest entry without destroying it: whoever took it with Front() or Back() before
    /// popping now owns it and deletes it. On an empty log they do nothing.
    void PopFront();
    void PopBack();
    ///@}
    /// Destroys every entry in the log.
    void ClearEvents();
    /// The queue itself, oldest first, for iteration; used outside the lock, so not while others log.
    std::deque<LogEntry*>& GetLog() { return _log; }

    /// Seconds on the HalGetClock time base.
    static double Now();
    /// Seconds to milliseconds.
    static double ConvertToMs(double seconds) { return seconds * 1000.0; }
    /// Milliseconds from `start` to `end` (both in seconds).
    static double DeltaMs(double start, double end) { return (end - start) * 1000.0; }

  private:
    std::mutex _mutex;
    std::deque<LogEntry*> _log;
    std::atomic<bool> _enabled{false};  ///< tested without the lock, as every LogEvent does first
    LogEntry _blank;
};

/// The process-wide event logger.
OMBREL_API EventLogger& GetEventLogger();

}  // namespace ombrel
