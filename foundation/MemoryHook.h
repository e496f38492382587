#ifndef XMLTREE_FOUNDATION_MEMORYHOOK_H
#define XMLTREE_FOUNDATION_MEMORYHOOK_H

// Internal to the library: every allocation the library makes goes through
// the small-object pool or through the functions below, so that tests can
// count them and make any one of them fail.
//
// Unarmed (always, outside such tests), the hook costs one relaxed load and a
// branch per allocation.

#include <atomic>
#include <cstddef>
#include <cstdlib>

namespace xmltree {
namespace mem {

extern std::atomic<bool> g_hookArmed;

// Counts one allocation; true when it is to fail.
bool countAllocation() noexcept;
// Counts one release.
void countRelease() noexcept;

inline bool hookArmed() noexcept {
    return g_hookArmed.load(std::memory_order_relaxed);
}
inline bool allocationFails() noexcept {
    return hookArmed() && countAllocation();
}
inline void noteRelease() noexcept {
    if (hookArmed()) countRelease();
}

inline void* allocate(std::size_t n) noexcept {
    return allocationFails() ? nullptr : std::malloc(n);
}
// A null p allocates. On failure p is left as it was. Counted as the
// release of p and a new allocation.
inline void* reallocate(void* p, std::size_t n) noexcept {
    if (!p) return allocate(n);
    if (allocationFails()) return nullptr;
    void* q = std::realloc(p, n);
    if (q) noteRelease();
    return q;
}
inline void release(void* p) noexcept {
    if (p) noteRelease();
    std::free(p);
}

// For tests. Starts counting the allocations and releases of the calling
// thread's library calls from zero; the allocation numbered failAt (from 0)
// and every later one fail. A negative failAt only counts.
void armForTesting(long failAt) noexcept;
// Stops counting; resumeForTesting() goes on where it stopped.
void disarmForTesting() noexcept;
void resumeForTesting() noexcept;
long allocationsForTesting() noexcept;  // since arming, failed ones included
long releasesForTesting() noexcept;

}  // namespace mem
}  // namespace xmltree

#endif
