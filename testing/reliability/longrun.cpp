// SPDX-License-Identifier: MIT
// Each agent prepared once and run many times on changing images: prints, after the first 1,000 runs and
// after the last, the heap blocks the program holds, the agent's storage-pool chunks and the resident size,
// and fails when blocks or chunks grew after the first 1,000 runs or the resident size grew by more than the
// allowed slack.
// Usage: ombrel_longrun [RUNS (default 100000)] [RSS_SLACK_KIB (default 256)] [KIND...]
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "testing/allocation_counter.h"
#include "testing/reliability/workloads.h"

#if defined(__SANITIZE_ADDRESS__)
#define OMBREL_LONGRUN_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define OMBREL_LONGRUN_SANITIZED 1
#endif
#endif

namespace {

long ResidentKib() {
    long pages = 0, resident = 0;
    if (FILE* f = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
        std::fclose(f);
    }
    return resident * 4;  // 4 KiB pages on x86-64 Linux
}

struct Sample {
    long long blocks;
    int chunks;
    long rssKib;
};

Sample Measure(const ombrel::testing::Workload& w) {
    return {static_cast<long long>(ombrel::testing::LiveAllocations()), w.PoolChunks(), ResidentKib()};
}

}  // namespace

int main(int argc, char** argv) {
    using namespace ombrel::testing;
    const long runs = argc > 1 ? std::atol(argv[1]) : 100000;
    const long slackKib = argc > 2 ? std::atol(argv[2]) : 256;
    std::vector<std::string> only(argv + (argc > 3 ? 3 : argc), argv + argc);
    constexpr long kWarm = 1000;
    if (runs < kWarm) {
        std::fprintf(stderr, "ombrel_longrun: at least %ld runs\n", kWarm);
        return 2;
    }
#ifdef OMBREL_LONGRUN_SANITIZED
    // A sanitizer keeps freed memory in quarantine: the resident size says nothing here.
    const bool checkRss = false;
#else
    const bool checkRss = true;
#endif
    QuietSinks();
    std::printf("%-14s %10s %12s %12s %8s %8s %12s %12s\n", "agent", "runs", "blocks@1k", "blocks@end",
                "chunks@1k", "@end", "rss_kib@1k", "rss_kib@end");
    int failures = 0;
    for (const WorkloadKind& kind : AllWorkloads()) {
        if (!only.empty() && std::find(only.begin(), only.end(), kind.name) == only.end()) continue;
        auto w = kind.make();
        if (w->Prepare() != 0) {
            std::printf("%-14s set-up failed\n", kind.name.c_str());
            ++failures;
            continue;
        }
        Sample warm{}, end{};
        int badRuns = 0;
        for (long run = 1; run <= runs; ++run) {
            w->Feed(static_cast<uint32_t>(run));
            if (w->Go() != 0) ++badRuns;
            if (run == kWarm) warm = Measure(*w);
        }
        end = Measure(*w);
        const bool grew = end.blocks > warm.blocks || end.chunks > warm.chunks ||
                          (checkRss && end.rssKib - warm.rssKib > slackKib);
        std::printf("%-14s %10ld %12lld %12lld %8d %8d %12ld %12ld%s%s\n", kind.name.c_str(), runs,
                    warm.blocks, end.blocks, warm.chunks, end.chunks, warm.rssKib, end.rssKib,
                    grew ? "  GREW" : "", badRuns ? "  FAILED RUNS" : "");
        if (grew || badRuns) ++failures;
    }
    std::printf("%s\n",
                failures ? "memory grew or runs failed" : "memory flat after 1000 runs for every agent");
    return failures ? 1 : 0;
}
