// SPDX-License-Identifier: MIT
#include "ombrel/framework/event_logger.h"

#include <cstring>
#include <new>

#include "ombrel/framework/hal.h"

namespace ombrel {

EventLogger::~EventLogger() {
    ClearEvents();
}

void EventLogger::LogEvent(const char* text, int32_t value) {
    if (!_enabled.load(std::memory_order_relaxed)) return;
    std::lock_guard lock(_mutex);
    LogEntry* entry = new (std::nothrow) LogEntry;
    if (entry == nullptr) return;
    entry->time = Now();
    entry->value = value;
    if (text != nullptr) std::strncpy(entry->text, text, sizeof(entry->text) - 1);
    try {
        _log.push_back(entry);
    } catch (const std::bad_alloc&) {
        delete entry;
    }
}

int32_t EventLogger::NumEntries() {
    std::lock_guard lock(_mutex);
    return static_cast<int32_t>(_log.size());
}

LogEntry& EventLogger::Front() {
    std::lock_guard lock(_mutex);
    if (!OMBREL_ASSERT_HERE("eventlogger", !_log.empty(), "!_log.empty()")) return _blank = LogEntry{};
    return *_log.front();
}

LogEntry& EventLogger::Back() {
    std::lock_guard lock(_mutex);
    if (!OMBREL_ASSERT_HERE("eventlogger", !_log.empty(), "!_log.empty()")) return _blank = LogEntry{};
    return *_log.back();
}

void EventLogger::PopFront() {
    std::lock_guard lock(_mutex);
    if (!_log.empty()) _log.pop_front();
}

void EventLogger::PopBack() {
    std::lock_guard lock(_mutex);
    if (!_log.empty()) _log.pop_back();
}

void EventLogger::ClearEvents() {
    std::lock_guard lock(_mutex);
    for (LogEntry* entry : _log) delete entry;
    _log.clear();
    _log.shrink_to_fit();
}

double EventLogger::Now() {
    double seconds = 0.0;
    HalGetClock(&seconds);
    return seconds;
}

EventLogger& GetEventLogger() {
    static EventLogger logger;  // constructed at load (start-up touches it), destroyed at unload
    return logger;
}

}  // namespace ombrel
