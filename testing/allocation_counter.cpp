// SPDX-License-Identifier: MIT
#include "testing/allocation_counter.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<int64_t> gRequests{0};
std::atomic<int64_t> gLive{0};

// Plain thread-locals (no constructors), so that operator new may read them at any time.
thread_local bool tCounting = false;
thread_local bool tRefused = false;
thread_local int64_t tRequests = 0;
thread_local int64_t tRefuseAt = 0;

// Counts one request; true when it is the one to refuse.
bool Refuse() {
    gRequests.fetch_add(1, std::memory_order_relaxed);
    if (!tCounting) return false;
    if (++tRequests != tRefuseAt) return false;
    tRefused = true;
    return true;
}

void* Take(std::size_t size, std::size_t align) {
    if (Refuse()) return nullptr;
    if (size == 0) size = 1;
    void* p = nullptr;
    if (align <= alignof(std::max_align_t)) {
        p = std::malloc(size);
    } else if (posix_memalign(&p, align, size) != 0) {
        p = nullptr;
    }
    if (p != nullptr) gLive.fetch_add(1, std::memory_order_relaxed);
    return p;
}

void Give(void* p) {
    if (p == nullptr) return;
    gLive.fetch_sub(1, std::memory_order_relaxed);
    std::free(p);
}

void* TakeOrThrow(std::size_t size, std::size_t align) {
    if (void* p = Take(size, align)) return p;
    throw std::bad_alloc();
}

constexpr std::size_t kPlain = alignof(std::max_align_t);

}  // namespace

// The library's raw blocks ask here first (see ombrel/framework/allocation.cpp).
extern "C" bool ombrel_test_refuses_allocation() {
    return Refuse();
}

namespace ombrel::testing {

int64_t AllocationCount() {
    return gRequests.load(std::memory_order_relaxed);
}
int64_t LiveAllocations() {
    return gLive.load(std::memory_order_relaxed);
}
void RefuseAllocation(int64_t k) {
    tRequests = 0;
    tRefuseAt = k;
    tRefused = false;
    tCounting = true;
}
int64_t StopRefusing() {
    tCounting = false;
    return tRequests;
}
void PauseRefusing() {
    tCounting = false;
}
void ResumeRefusing() {
    tCounting = true;
}
bool AllocationWasRefused() {
    return tRefused;
}

}  // namespace ombrel::testing

#if defined(__GNUC__) && !defined(__clang__)
// Inlined, the replaced pairs look to GCC like a new released by free: they are malloc released by free.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

void* operator new(std::size_t size) {
    return TakeOrThrow(size, kPlain);
}
void* operator new[](std::size_t size) {
    return TakeOrThrow(size, kPlain);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Take(size, kPlain);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Take(size, kPlain);
}
void* operator new(std::size_t size, std::align_val_t align) {
    return TakeOrThrow(size, static_cast<std::size_t>(align));
}
void* operator new[](std::size_t size, std::align_val_t align) {
    return TakeOrThrow(size, static_cast<std::size_t>(align));
}
void* operator new(std::size_t size, std::align_val_t align, const std::nothrow_t&) noexcept {
    return Take(size, static_cast<std::size_t>(align));
}
void* operator new[](std::size_t size, std::align_val_t align, const std::nothrow_t&) noexcept {
    return Take(size, static_cast<std::size_t>(align));
}
void operator delete(void* p) noexcept {
    Give(p);
}
void operator delete[](void* p) noexcept {
    Give(p);
}
void operator delete(void* p, std::size_t) noexcept {
    Give(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    Give(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    Give(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    Give(p);
}
void operator delete(void* p, std::align_val_t) noexcept {
    Give(p);
}
void operator delete[](void* p, std::align_val_t) noexcept {
    Give(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
    Give(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept {
    Give(p);
}
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept {
    Give(p);
}
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept {
    Give(p);
}
