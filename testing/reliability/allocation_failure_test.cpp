// SPDX-License-Identifier: MIT
// Every allocation an agent's set-up and runs make is refused in turn: each refusal must come back as a
// status or error word (or, where the agent can do without the memory, as the exact result), never as an
// exception, a crash, a wrong result or a leak. Leaks of operator new blocks are counted here; every block
// (image pixels too) is checked by AddressSanitizer's leak check in the sanitizer build.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include <ombrel/ombrel.h>

#include "testing/allocation_counter.h"
#include "testing/reliability/workloads.h"

namespace ombrel::testing {
namespace {

struct Outcome {
    int prepared = 0;
    int statuses[2] = {0, 0};
    uint64_t digests[2] = {0, 0};
    int64_t requests = 0;
    int64_t assertions = 0;  // reported by the library while counting
    bool refused = false;
    bool threw = false;
};

// Prepare, then two runs on two frames, counting (and refusing the k-th of) this thread's allocations. The
// workload's own images are made before counting starts; digests are taken with counting paused.
Outcome RunRefusing(const WorkloadKind& kind, int64_t k, bool checkLeaks = true) {
    Outcome out;
    const int64_t liveBefore = LiveAllocations();
    const int64_t assertionsBefore = AssertionReports();
    {
        std::unique_ptr<Workload> w = kind.make();
        w->Feed(0);
        RefuseAllocation(k);
        try {
            out.prepared = w->Prepare();
            for (int run = 0; run < 2; ++run) {
                if (run == 1) {
                    PauseRefusing();
                    w->Feed(1);
                    ResumeRefusing();
                }
                out.statuses[run] = w->Go();
                PauseRefusing();
                if (out.prepared == 0 && out.statuses[run] == 0) out.digests[run] = w->Digest();
                ResumeRefusing();
            }
        } catch (...) {
            out.threw = true;
        }
        out.requests = StopRefusing();
        out.refused = AllocationWasRefused();
    }
    out.assertions = AssertionReports() - assertionsBefore;
    if (checkLeaks) {
        EXPECT_EQ(LiveAllocations(), liveBefore)
            << kind.name << ": blocks left behind when request " << k << " was refused";
    }
    return out;
}

class AllocationFailure : public ::testing::TestWithParam<WorkloadKind> {};

TEST_P(AllocationFailure, EveryRefusedRequestIsReportedOrHarmless) {
    QuietSinks();
    const WorkloadKind& kind = GetParam();
    RunRefusing(kind, 0, false);  // lazily built process-wide tables are made here, and kept
    const Outcome reference = RunRefusing(kind, 0);
    ASSERT_FALSE(reference.threw);
    ASSERT_EQ(reference.prepared, 0);
    ASSERT_EQ(reference.statuses[0], 0);
    ASSERT_EQ(reference.statuses[1], 0);
    ASSERT_FALSE(reference.refused);
    ASSERT_EQ(reference.assertions, 0);
    // An agent that allocates nothing has nothing to sweep; say how many there were.
    RecordProperty("allocations", static_cast<int>(reference.requests));

    int reported = 0;
    for (int64_t k = 1; k <= reference.requests; ++k) {
        const Outcome out = RunRefusing(kind, k);
        SCOPED_TRACE(kind.name + ": request " + std::to_string(k) + " of " +
                     std::to_string(reference.requests));
        EXPECT_FALSE(out.threw) << "an exception left the library";
        EXPECT_TRUE(out.refused) << "the agent's allocations are not the same from run to run";
        // Regions report a failed copy of their mask through an assertion and go on with fewer rows.
        if (out.prepared != 0 || out.assertions != 0) {
            ++reported;
            continue;
        }
        // After a reported failure an agent with a history (frame averaging) rightly differs from the
        // reference: only runs before any failure must be exact.
        bool failedBefore = false;
        for (int run = 0; run < 2; ++run) {
            if (out.statuses[run] != 0) {
                ++reported;
                failedBefore = true;
            } else if (!failedBefore) {
                EXPECT_EQ(out.digests[run], reference.digests[run])
                    << "run " << run << " went wrong silently";
            }
        }
    }
    std::printf("%s: %lld allocations refused in turn, %d reported as a status\n", kind.name.c_str(),
                static_cast<long long>(reference.requests), reported);
}

INSTANTIATE_TEST_SUITE_P(EveryAgent, AllocationFailure, ::testing::ValuesIn(AllWorkloads()),
                         [](const auto& param) { return param.param.name; });

// The hook itself: the chosen request fails in each form the library uses, and only that one.
TEST(AllocationHook, RefusesExactlyTheChosenRequest) {
    RefuseAllocation(2);
    auto* first = new (std::nothrow) int(1);
    auto* second = new (std::nothrow) int(2);
    auto* third = new (std::nothrow) int(3);
    EXPECT_EQ(StopRefusing(), 3);
    EXPECT_TRUE(AllocationWasRefused());
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(second, nullptr);
    EXPECT_NE(third, nullptr);
    delete first;
    delete third;

    RefuseAllocation(1);
    EXPECT_THROW((void)new int(4), std::bad_alloc);
    StopRefusing();
    RefuseAllocation(1);
    Buffer image(16, 16, EIGHT);  // pixels are the library's raw block
    StopRefusing();
    EXPECT_EQ(image.GetError(), BUFFER_NO_MEMORY);
    EXPECT_EQ(image.BaseAddr(), nullptr);
}

// Faults the sweep found, pinned where they were.

// A pool chunk came but the free list behind it could not grow: the chunk must go back, not leak.
TEST(AllocationFailureRegression, BlobPoolGivesBackItsChunkWhenTheFreeListCannotGrow) {
    QuietSinks();
    const int64_t live = LiveAllocations();
    {
        StoragePool<int64_t> pool(8);
        RefuseAllocation(3);  // the chunk list's room, the chunk, then the free list's room
        EXPECT_EQ(pool.Alloc(), nullptr);
        EXPECT_EQ(StopRefusing(), 3);
        EXPECT_EQ(pool.Error(), BLOB_ERR_NO_MEMORY);
        EXPECT_EQ(pool.Chunks(), 0);
    }
    EXPECT_EQ(LiveAllocations(), live);
}

// The agent's table of named parts could not be made: no exception from the constructor, and Go reports
// every part missing instead of running.
TEST(AllocationFailureRegression, BreakAgentWithoutItsNameTableReportsItsPartsMissing) {
    QuietSinks();
    Buffer image(16, 8, EIGHT), templ(16, 8, EIGHT), dilated(16, 8, EIGHT);
    std::optional<BreakAgent> agent;  // the agent itself not on the heap: the constructor's requests only
    RefuseAllocation(0);
    agent.emplace(&image, &templ, &dilated, BMBORDER_CLEAR, 1, 1);
    const int64_t tableRequest = StopRefusing();  // the table is the constructor's last request
    agent.reset();
    RefuseAllocation(tableRequest);
    EXPECT_NO_THROW(agent.emplace(&image, &templ, &dilated, BMBORDER_CLEAR, 1, 1));
    StopRefusing();
    ASSERT_TRUE(AllocationWasRefused());
    const int64_t assertions = AssertionReports();
    EXPECT_EQ(agent->Go(), kBreakMissing);
    EXPECT_GT(AssertionReports(), assertions);
    EXPECT_EQ(agent->Breaks(), nullptr);
}

}  // namespace
}  // namespace ombrel::testing
