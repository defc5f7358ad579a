// SPDX-License-Identifier: MIT
#include "ombrel/framework/event_logger.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "testing/recorders.h"

namespace ombrel {
namespace {

TEST(EventLogger, LogsOnlyWhenEnabledAndKeepsOrderAndValues) {
    EventLogger log;
    log.LogEvent("ignored", 1);
    EXPECT_EQ(log.NumEntries(), 0);
    log.EnableLogging(true);
    log.LogEvent("grab", 10);
    log.LogEvent("blob", -20);
    log.DisableLogging();
    log.LogEvent("ignored", 3);
    ASSERT_EQ(log.NumEntries(), 2);
    EXPECT_STREQ(log.Front().text, "grab");
    EXPECT_EQ(log.Back().value, -20);
    EXPECT_LE(log.Front().time, log.Back().time);
    EXPECT_GT(log.Front().time, 0.0);
    EXPECT_EQ(EventLogger::DeltaMs(1.0, 1.5), 500.0);
    EXPECT_EQ(EventLogger::ConvertToMs(0.25), 250.0);
}

TEST(EventLogger, PoppedEntriesPassToTheCallerAndEmptyPopsDoNothing) {
    EventLogger log;
    log.PopFront();
    log.PopBack();
    EXPECT_EQ(log.NumEntries(), 0);
    log.EnableLogging(true);
    log.LogEvent("first", 1);
    log.LogEvent("second", 2);
    std::unique_ptr<LogEntry> taken(&log.Front());
    log.PopFront();
    EXPECT_STREQ(taken->text, "first");
    EXPECT_EQ(log.NumEntries(), 1);
    log.ClearEvents();
    EXPECT_EQ(log.NumEntries(), 0);
    testing::AssertRecorder recorder;
    EXPECT_STREQ(log.Front().text, "") << "an empty log gives a blank entry, not a read outside the queue";
    EXPECT_EQ(recorder.Count(), 1u);
}

TEST(EventLogger, TextLongerThanTheEntryIsCutAndTerminated) {
    EventLogger log;
    log.EnableLogging(true);
    const std::string longText(500, 'a');
    log.LogEvent(longText.c_str(), 0);
    log.LogEvent(nullptr, 0);
    EXPECT_EQ(std::strlen(log.Front().text), sizeof(LogEntry{}.text) - 1);
    EXPECT_STREQ(log.Back().text, "");
}

TEST(EventLogger, ThreadsLoggingAtOnceLoseNoEntry) {
    EventLogger& log = GetEventLogger();
    log.ClearEvents();
    log.EnableLogging(true);
    constexpr int kThreads = 4, kEach = 2000;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&log, t] {
            for (int i = 0; i < kEach; ++i)
                log.LogEvent(("thread " + std::to_string(t)).c_str(), t * kEach + i);
        });
    for (std::thread& thread : threads) thread.join();
    log.DisableLogging();
    ASSERT_EQ(log.NumEntries(), kThreads * kEach);
    std::set<int32_t> values;
    for (const LogEntry* entry : log.GetLog()) values.insert(entry->value);
    EXPECT_EQ(values.size(), static_cast<size_t>(kThreads * kEach));
    log.ClearEvents();
}

}  // namespace
}  // namespace ombrel
