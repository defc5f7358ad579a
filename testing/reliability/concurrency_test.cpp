// SPDX-License-Identifier: MIT
// Agents of every kind running on several threads at once, over the process-wide tables and settings, give
// exactly what one thread gives; the event logger keeps every entry under contention. Run under
// ThreadSanitizer in CI, where a data race fails the test.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <ombrel/ombrel.h>

#include "testing/reliability/workloads.h"

namespace ombrel::testing {
namespace {

constexpr int kThreads = 6;
constexpr uint32_t kFrames = 24;

// Per kind, the digest and status of every frame, each kind prepared once and fed kFrames images.
using Runs = std::map<std::string, std::vector<std::pair<int, uint64_t>>>;

Runs RunEveryKind(uint32_t firstFrame) {
    std::vector<std::unique_ptr<Workload>> workloads;
    Runs runs;
    for (const WorkloadKind& kind : AllWorkloads()) {
        workloads.push_back(kind.make());
        runs[kind.name].reserve(kFrames);
    }
    std::vector<int> prepared;
    for (auto& w : workloads) prepared.push_back(w->Prepare());
    // Interleaved: every thread moves through all kinds frame by frame, so different agents and sub-agents
    // of the same kind run on different threads at the same moment.
    for (uint32_t f = firstFrame; f < firstFrame + kFrames; ++f) {
        for (size_t k = 0; k < workloads.size(); ++k) {
            workloads[k]->Feed(f);
            const int status = prepared[k] != 0 ? prepared[k] : workloads[k]->Go();
            runs[AllWorkloads()[k].name].emplace_back(status, status == 0 ? workloads[k]->Digest() : 0);
        }
    }
    return runs;
}

// The first test of the program: the threads start cold, so the first use of every lazily built table and
// of the kernel dispatch happens on all of them at once.
TEST(Concurrency, EveryAgentKindOnSixThreadsGivesTheSerialResults) {
    QuietSinks();
    SetBlobMaxPoolSize(1024);  // a process-wide setting written before the threads start, read by all
    std::vector<Runs> parallel(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&parallel, t] { parallel[t] = RunEveryKind(0); });
    for (auto& thread : threads) thread.join();

    const Runs serial = RunEveryKind(0);
    ASSERT_EQ(serial.size(), AllWorkloads().size());
    for (const auto& [name, runs] : serial) {
        ASSERT_EQ(runs.size(), kFrames) << name;
        for (const auto& [status, digest] : runs) EXPECT_EQ(status, 0) << name << " failed on one thread";
        // Frames differ, so a workload that ignored its input would show here as one repeated digest.
        EXPECT_NE(runs.front().second, runs.back().second)
            << name << " gives the same result for every frame";
        for (int t = 0; t < kThreads; ++t)
            EXPECT_EQ(parallel[t].at(name), runs) << name << " on thread " << t;
    }
    SetBlobMaxPoolSize(512);
}

// The same agents on different frames per thread: results still match the serial run of the same frames.
TEST(Concurrency, ThreadsOnDifferentImagesMatchTheirSerialRuns) {
    QuietSinks();
    std::vector<Runs> parallel(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&parallel, t] { parallel[t] = RunEveryKind(100 * static_cast<uint32_t>(t)); });
    for (auto& thread : threads) thread.join();
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(parallel[t], RunEveryKind(100 * static_cast<uint32_t>(t))) << t;
}

TEST(Concurrency, EventLoggerKeepsEveryEntryFromEveryThread) {
    constexpr int kWriters = 8, kPerWriter = 4000;
    EventLogger& logger = GetEventLogger();
    logger.ClearEvents();
    logger.EnableLogging(true);
    std::vector<std::thread> threads;
    std::atomic<bool> done{false};
    int32_t lastSeen = 0;
    bool shrank = false;
    // A reader counting while the writers write: the count may only grow.
    std::thread reader([&] {
        while (!done.load()) {
            const int32_t n = logger.NumEntries();
            shrank = shrank || n < lastSeen;
            lastSeen = n;
        }
    });
    for (int t = 0; t < kWriters; ++t)
        threads.emplace_back([&logger, t] {
            char text[32];
            for (int i = 0; i < kPerWriter; ++i) {
                std::snprintf(text, sizeof text, "writer %d event %d", t, i);
                logger.LogEvent(text, t * 1000000 + i);
            }
        });
    for (auto& thread : threads) thread.join();
    done = true;
    reader.join();
    logger.DisableLogging();

    EXPECT_FALSE(shrank);
    ASSERT_EQ(logger.NumEntries(), kWriters * kPerWriter);
    // Every entry once, each writer's entries in its own order, text and value belonging together.
    std::vector<int> next(kWriters, 0);
    double lastTime = 0.0;
    for (const LogEntry* entry : logger.GetLog()) {
        const int t = entry->value / 1000000, i = entry->value % 1000000;
        ASSERT_GE(t, 0);
        ASSERT_LT(t, kWriters);
        EXPECT_EQ(i, next[t]++) << "writer " << t;
        EXPECT_EQ(std::string(entry->text), "writer " + std::to_string(t) + " event " + std::to_string(i));
        EXPECT_GE(entry->time, lastTime);
        lastTime = entry->time;
    }
    for (int t = 0; t < kWriters; ++t) EXPECT_EQ(next[t], kPerWriter);
    logger.ClearEvents();
    EXPECT_EQ(logger.NumEntries(), 0);
}

}  // namespace
}  // namespace ombrel::testing
