// SPDX-License-Identifier: MIT
// Agents of every kind running on several threads at once, over the process-wide tables and settings, give
// exactly what one thread gives; the event logger keeps every entry under contention. Run under
// ThreadSanitizer in CI, where a data race fails the test.
#include <gtest/gtest.h>

#include <cmath>
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

// Agents on different threads reading one caller's source image at the same time (each with its own
// outputs): the source is only read, so every thread sees what one thread alone sees.
std::vector<uint64_t> RunOnSharedSource(const Buffer& shared, const CorrTemplate& tpl) {
    Buffer* src = const_cast<Buffer*>(&shared);  // factories take a mutable pointer; nothing is written
    Buffer sobelOut(src->Width(), src->Height(), EIGHT);
    std::vector<int> bins;
    BlobResult blobs;
    CorrResult matches;
    CorrTemplate ownTemplate(tpl);
    const Rect inner{2, 2, src->Width() - 2, src->Height() - 2};
    std::unique_ptr<SobelAgent> sobel(SobelFact(src, &sobelOut, inner, MAG, SOBEL_SHIFT_0, 0, 1));
    std::unique_ptr<HistogramAgent> histogram(HistogramFact(src, HISTRES_1, inner, &bins));
    std::unique_ptr<BlobAgent> blob(BlobFact(src, inner, &blobs, 128, 255));
    std::unique_ptr<CorrMatchAgent> match(CorrMatchFact(src, inner, &ownTemplate, &matches, 0, 0, 3, 3));
    std::unique_ptr<SceneAngleAgent> angle(SceneAngleFact(src, inner));
    std::unique_ptr<AutoFocusAgent> focus(AutoFocusFact(src, inner));
    std::vector<uint64_t> digests;
    for (int run = 0; run < 8; ++run) {
        uint64_t h = 0xcbf29ce484222325ULL;
        auto mix = [&h](uint64_t v) { h = (h ^ v) * 0x100000001b3ULL; };
        // Real figures go in as rounded signed integers: a negative double converted to unsigned is
        // undefined.
        auto mixReal = [&mix](double v, double scale) {
            mix(static_cast<uint64_t>(std::llround(v * scale)));
        };
        mix(static_cast<uint64_t>(sobel->Go()));
        for (int y = 0; y < sobelOut.Height(); ++y)
            for (int x = 0; x < sobelOut.Width(); ++x) mix(sobelOut.Row(y)[x]);
        mix(static_cast<uint64_t>(histogram->Go()));
        for (int v : bins) mix(static_cast<uint64_t>(v));
        mix(static_cast<uint64_t>(blob->Go()));
        for (Blob* b = blobs.First(); b != nullptr; b = b->Next()) mix(static_cast<uint64_t>(b->GetFeat(1)));
        mix(static_cast<uint64_t>(match->Go()));
        for (int k = 0; k < matches.Count(); ++k) mixReal(matches.At(k)._score, 1e9);
        mix(static_cast<uint64_t>(angle->Go()));
        mixReal(angle->Angle(), 1e6);
        mix(static_cast<uint64_t>(focus->Go()));
        mixReal(focus->Focus(), 1e6);
        digests.push_back(h);
    }
    return digests;
}

TEST(Concurrency, AgentsOnSixThreadsShareOneSourceImage) {
    QuietSinks();
    Buffer shared(96, 72, EIGHT), patch(10, 8, EIGHT);
    for (int y = 0; y < shared.Height(); ++y)
        for (int x = 0; x < shared.Width(); ++x)
            shared.Row(y)[x] = static_cast<uint8_t>(
                (x - 40) * (x - 40) + (y - 30) * (y - 30) < 200 ? 220 : (x * 3 + y * 5) & 0x7f);
    for (int y = 0; y < patch.Height(); ++y)
        for (int x = 0; x < patch.Width(); ++x) patch.Row(y)[x] = shared.Row(y + 25)[x + 35];
    const CorrTemplate tpl(&patch, 0);
    std::vector<std::vector<uint64_t>> parallel(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] { parallel[t] = RunOnSharedSource(shared, tpl); });
    for (auto& thread : threads) thread.join();
    const std::vector<uint64_t> serial = RunOnSharedSource(shared, tpl);
    ASSERT_EQ(serial.size(), 8u);
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(parallel[t], serial) << "thread " << t;
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
