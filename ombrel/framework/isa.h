// SPDX-License-Identifier: MIT
/// \file
/// Which instruction-set level the hot loops run at. Every kernel has a scalar reference; wider versions give
/// the same bytes. The level is the highest the CPU and the operating system support, capped by the
/// environment variable OMBREL_MAX_ISA (scalar, sse2, avx2, avx512, avx512vnni) read once, or by SetIsaCap at
/// run time.
#pragma once

#include "ombrel/framework/export.h"

namespace ombrel {

/// Instruction-set levels, narrowest first. Avx512Vnni is AVX-512BW plus the byte dot product (vpdpbusd); a
/// kernel family lists it only where a kernel really uses that instruction, and every other family runs its
/// AVX-512 kernel there.
enum class Isa : int { Scalar = 0, Sse2 = 1, Avx2 = 2, Avx512 = 3, Avx512Vnni = 4 };

/// The level's name as OMBREL_MAX_ISA spells it ("scalar", "sse2", "avx2", "avx512", "avx512vnni").
OMBREL_API const char* IsaName(Isa isa);
/// Parses a level name as OMBREL_MAX_ISA spells it; false for anything else.
OMBREL_API bool ParseIsa(const char* name, Isa* isa);

/// The highest level this machine runs (CPUID and OS register support).
OMBREL_API Isa DetectedIsa();
/// The level kernels run at now: the detected level, capped.
OMBREL_API Isa ActiveIsa();
/// Caps the level for the whole process (tests and benchmarks force lower paths with it). Returns the
/// previous cap. Only agents started after the call see it.
OMBREL_API Isa SetIsaCap(Isa cap);

/// MMX, SSE and SSE2 together: what the packed paths behind an agent's vector switch need.
OMBREL_API bool CpuHasPackedSimd();

}  // namespace ombrel
