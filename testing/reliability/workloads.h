// SPDX-License-Identifier: MIT
// One small, realistic job per kind of agent, shared by the concurrency suite, the allocation-failure sweep
// and the long-run program. A workload owns its images; Prepare makes its agent (the caller's set-up),
// Feed writes the frame-th image into the inputs (no allocation), Go runs the agent once, Digest hashes
// everything the run produced.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace ombrel::testing {

// The status a workload reports when a factory gave no agent.
inline constexpr int kNoAgent = -999999;

class Workload {
  public:
    virtual ~Workload() = default;
    // 0, or the non-zero status / error word the library reported (kNoAgent for a null factory result).
    virtual int Prepare() = 0;
    virtual void Feed(uint32_t frame) = 0;
    // 0, or the non-zero status / error word of the run.
    virtual int Go() = 0;
    virtual uint64_t Digest() const = 0;
    // The storage-pool chunks the agent holds (blob analysis); -1 for agents without pools.
    virtual int PoolChunks() const { return -1; }
};

struct WorkloadKind {
    std::string name;
    std::unique_ptr<Workload> (*make)();
};

// Every agent kind: arith, histogram, mask, project, frame_average, decimate, transpose, conv, binmorph,
// graymorph, blob, sobel, scene_angle, auto_focus, corr_template, corr_match, break.
const std::vector<WorkloadKind>& AllWorkloads();

// Silences the library's assertion, text and debug-window sinks (they would otherwise print or allocate
// on every reported condition); assertion reports are only counted.
void QuietSinks();
// Assertion reports since QuietSinks, over every thread.
int64_t AssertionReports();

}  // namespace ombrel::testing
