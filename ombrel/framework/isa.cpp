// SPDX-License-Identifier: MIT
#include "ombrel/framework/isa.h"

#include <cpuid.h>
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>

namespace ombrel {
namespace {

uint64_t ReadXcr0() {
    uint32_t eax = 0, edx = 0;
    __asm__ volatile("xgetbv" : "=a"(eax), "=d"(edx) : "c"(0));
    return (uint64_t{edx} << 32) | eax;
}

Isa Detect() {
    __builtin_cpu_init();
    if (!__builtin_cpu_supports("sse2")) return Isa::Scalar;
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    __get_cpuid(1, &eax, &ebx, &ecx, &edx);
    const bool osSaves = (ecx & bit_OSXSAVE) != 0;
    const uint64_t xcr0 = osSaves ? ReadXcr0() : 0;
    const bool osAvx = (xcr0 & 0x6) == 0x6;                // XMM and YMM state
    const bool osAvx512 = osAvx && (xcr0 & 0xE0) == 0xE0;  // opmask and ZMM state
    const bool avx2 = osAvx && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") &&
                      __builtin_cpu_supports("bmi2");
    if (!avx2) return Isa::Sse2;
    const bool avx512 = osAvx512 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                        __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq");
    if (!avx512) return Isa::Avx2;
    return __builtin_cpu_supports("avx512vnni") ? Isa::Avx512Vnni : Isa::Avx512;
}

Isa CapFromEnvironment() {
    Isa cap = Isa::Avx512Vnni;
    const char* value = std::getenv("OMBREL_MAX_ISA");
    if (value != nullptr && !ParseIsa(value, &cap)) cap = Isa::Avx512Vnni;
    return cap;
}

std::atomic<int>& Cap() {
    static std::atomic<int> cap{static_cast<int>(CapFromEnvironment())};
    return cap;
}

}  // namespace

const char* IsaName(Isa isa) {
    switch (isa) {
        case Isa::Scalar:
            return "scalar";
        case Isa::Sse2:
            return "sse2";
        case Isa::Avx2:
            return "avx2";
        case Isa::Avx512:
            return "avx512";
        case Isa::Avx512Vnni:
            return "avx512vnni";
    }
    return "unknown";
}

bool ParseIsa(const char* name, Isa* isa) {
    if (name == nullptr) return false;
    for (Isa candidate : {Isa::Scalar, Isa::Sse2, Isa::Avx2, Isa::Avx512, Isa::Avx512Vnni}) {
        if (std::strcmp(name, IsaName(candidate)) == 0) {
            if (isa != nullptr) *isa = candidate;
            return true;
        }
    }
    return false;
}

Isa DetectedIsa() {
    static const Isa detected = Detect();
    return detected;
}

Isa ActiveIsa() {
    return static_cast<Isa>(std::min(static_cast<int>(DetectedIsa()), Cap().load(std::memory_order_relaxed)));
}

Isa SetIsaCap(Isa cap) {
    return static_cast<Isa>(Cap().exchange(static_cast<int>(cap)));
}

bool CpuHasPackedSimd() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("mmx") && __builtin_cpu_supports("sse") && __builtin_cpu_supports("sse2");
}

}  // namespace ombrel
