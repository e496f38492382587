#include "foundation/MemoryHook.h"

namespace xmltree {
namespace mem {

std::atomic<bool> g_hookArmed{false};

namespace {

std::atomic<long> tnFailAt{-1};
std::atomic<long> tnAllocations{0};
std::atomic<long> tnReleases{0};

}  // namespace

bool countAllocation() noexcept {
    const long n = tnAllocations.fetch_add(1, std::memory_order_relaxed);
    const long failAt = tnFailAt.load(std::memory_order_relaxed);
    return failAt >= 0 && n >= failAt;
}

void countRelease() noexcept {
    tnReleases.fetch_add(1, std::memory_order_relaxed);
}

void armForTesting(long failAt) noexcept {
    tnAllocations.store(0, std::memory_order_relaxed);
    tnReleases.store(0, std::memory_order_relaxed);
    tnFailAt.store(failAt, std::memory_order_relaxed);
    g_hookArmed.store(true, std::memory_order_relaxed);
}

void disarmForTesting() noexcept {
    g_hookArmed.store(false, std::memory_order_relaxed);
}

void resumeForTesting() noexcept {
    g_hookArmed.store(true, std::memory_order_relaxed);
}

long allocationsForTesting() noexcept {
    return tnAllocations.load(std::memory_order_relaxed);
}

long releasesForTesting() noexcept {
    return tnReleases.load(std::memory_order_relaxed);
}

}  // namespace mem
}  // namespace xmltree
