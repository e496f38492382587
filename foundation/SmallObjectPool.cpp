// The thread caches of the small-object pool: carving, free lists, slabs
// given up and taken over between threads. The tree arenas that a parse
// fills are in PoolArena.cpp; both work on the slabs of PoolSlabs.h.

#include "foundation/SmallObjectPool.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "foundation/MemoryHook.h"
#include "foundation/PoolArena.h"
#include "foundation/PoolSlabs.h"

#ifndef XMLTREE_NO_SMALL_OBJECT_POOL

namespace xmltree {
namespace pool {

namespace {

// Empty slabs kept for the next tree rather than given back to malloc, which
// may hand the pages back to the system; faulting them in again costs more
// than the parse writing them. A few per thread, more shared.
constexpr std::size_t kThreadSpares = 16;
constexpr std::size_t kSharedSpares = 256;

// Shared state. Never destroyed: trees may outlive every static object.
struct Shared {
    std::mutex cacheMutex;  // guards `cache`, which serves threads that have ended
    Cache cache{};
    std::mutex spareMutex;  // guards the spares; taken after cacheMutex
    Slab* spares = nullptr;
    std::size_t spareCount = 0;
    std::atomic<std::size_t> slabs{0};
    std::atomic<long> slabLimit{-1};
};

Shared& shared() {
    static Shared* s = new Shared();
    return *s;
}

thread_local Cache t_cache;

void endThread(Cache& c);

// Its destructor seals the thread's slabs when the thread ends.
struct Reaper {
    void arm() {}
    ~Reaper() { endThread(t_cache); }
};
thread_local Reaper t_reaper;

void freeSlab(Slab* s) {
    unpoison(s, kSlabUsable);
    std::free(s);
    shared().slabs.fetch_sub(1, std::memory_order_relaxed);
}

Slab* takeSharedSpare() {
    Shared& sh = shared();
    std::lock_guard<std::mutex> lock(sh.spareMutex);
    Slab* s = sh.spares;
    if (s) {
        sh.spares = s->nextSpare;
        --sh.spareCount;
    }
    return s;
}

}  // namespace

__thread PoolArena* t_arena = nullptr;

Cache& threadCache() noexcept {
    return t_cache;
}

Cache* orphanOwner() noexcept {
    return &shared().cache;
}

void armThread(Cache& c) noexcept {
    t_reaper.arm();
    c.self = &c;
}

void noteReleases(std::size_t n) noexcept {
    if (!mem::hookArmed()) return;
    for (std::size_t i = 0; i < n; ++i)
        mem::countRelease();
}

// An empty slab goes to the shared spares, or back to malloc past their bound.
XMLTREE_POOL_RARE void giveUpShared(Slab* s) noexcept {
    Shared& sh = shared();
    {
        std::lock_guard<std::mutex> lock(sh.spareMutex);
        if (sh.spareCount < kSharedSpares) {
            s->nextSpare = sh.spares;
            sh.spares = s;
            ++sh.spareCount;
            return;
        }
    }
    freeSlab(s);
}

namespace {

XMLTREE_POOL_RARE void giveUp(Cache& c, Slab* s) noexcept {
    if (c.self && c.spareCount < kThreadSpares) {
        s->nextSpare = c.spares;
        c.spares = s;
        ++c.spareCount;
        return;
    }
    giveUpShared(s);
}

}  // namespace

// Slabs emptied together (a dropped arena's, chained through nextSpare):
// c's spares first, then the shared ones under one lock, the rest to malloc.
void giveUpAll(Cache& c, Slab* chain) noexcept {
    while (chain && c.self && c.spareCount < kThreadSpares) {
        Slab* s = chain;
        chain = s->nextSpare;
        s->nextSpare = c.spares;
        c.spares = s;
        ++c.spareCount;
    }
    if (!chain) return;
    Shared& sh = shared();
    {
        std::lock_guard<std::mutex> lock(sh.spareMutex);
        while (chain && sh.spareCount < kSharedSpares) {
            Slab* s = chain;
            chain = s->nextSpare;
            s->nextSpare = sh.spares;
            sh.spares = s;
            ++sh.spareCount;
        }
    }
    while (Slab* s = chain) {
        chain = s->nextSpare;
        freeSlab(s);
    }
}

namespace {

// An empty slab for `c` to carve: a spare, or a fresh one from malloc; null
// when memory runs out. An arena takes its slabs from the spares of the
// thread it runs on.
XMLTREE_POOL_RARE Slab* newSlab(Cache& c) noexcept {
    Shared& sh = shared();
    const long limit = sh.slabLimit.load(std::memory_order_relaxed);
    if (limit == 0) return nullptr;
    if (limit > 0) sh.slabLimit.store(limit - 1, std::memory_order_relaxed);
    Cache& from = c.arena ? t_cache : c;
    Slab* s = from.spares;
    if (s) {
        from.spares = s->nextSpare;
        --from.spareCount;
    } else if (!(s = takeSharedSpare())) {
        void* mem = nullptr;
        if (posix_memalign(&mem, SmallObjectPool::kSlabBytes, kSlabUsable) != 0) return nullptr;
        // Window numbers are 32 bits: far above any heap on 48-bit address spaces.
        if (reinterpret_cast<std::uintptr_t>(mem) >> (32 + kSlabShift)) {
            std::free(mem);
            return nullptr;
        }
        sh.slabs.fetch_add(1, std::memory_order_relaxed);
        s = static_cast<Slab*>(mem);
    }
    s = new (s) Slab{};
    s->owner.store(&c, std::memory_order_relaxed);
    poison(slabStart(s), kSlabUsable - kSlabHeader);
    if (c.arena) joinArena(*c.arena, s);
    return s;
}

}  // namespace

// ---- the lists of slabs with free blocks -----------------------------------

XMLTREE_POOL_RARE void linkClass(Cache& c, Slab* s, std::size_t cls) noexcept {
    const std::uint32_t w = windowOf(s);
    const std::uint32_t first = c.avail[cls];
    s->prev[cls] = 0;
    s->next[cls] = first;
    if (first) slabAt(first)->prev[cls] = w;
    c.avail[cls] = w;
    s->mask |= std::uint32_t{1} << cls;
}

namespace {

// Forgets the slab's free blocks: off every list, heads cleared.
void dropFreeBlocks(Cache& c, Slab* s) noexcept {
    while (s->mask) {
        const auto cls = static_cast<std::size_t>(__builtin_ctz(s->mask));
        unlinkClass(c, s, cls);
        s->heads[cls] = nullptr;
    }
}

}  // namespace

// ---- giving slabs up -------------------------------------------------------

XMLTREE_POOL_RARE void releaseEmpty(Cache& c, Slab* s) noexcept {
    dropFreeBlocks(c, s);
    s->live = 0;
    if (s == c.slab) {
        c.bump = slabStart(s);
        poison(c.bump, kSlabUsable - kSlabHeader);
        return;
    }
    giveUp(c, s);
}

XMLTREE_POOL_RARE void seal(Cache& c, Slab* s) noexcept {
    dropFreeBlocks(c, s);
    const std::int64_t add = s->live + kSealed;
    s->live = 0;
    if (s->balance.fetch_add(add, std::memory_order_acq_rel) + add == kSealed) {
        s->balance.store(0, std::memory_order_relaxed);
        giveUp(c, s);
    }
}

// ---- carving ---------------------------------------------------------------

// Leaves the slab being carved: sealed unless it has free blocks to hand out,
// in which case the last of them seals it.
void retireCarved(Cache& c) noexcept {
    Slab* s = c.slab;
    if (!s) return;
    c.slab = nullptr;
    c.bump = c.bumpEnd = nullptr;
    if (!s->mask) seal(c, s);
}

namespace {

void* carveNew(Cache& c, std::size_t cls, std::size_t n) {
    Slab* s = newSlab(c);
    if (!s) return nullptr;
    retireCarved(c);
    c.slab = s;
    c.bump = slabStart(s);
    c.bumpEnd = slabEnd(s);
    return carveFromCurrent(c, cls, n);
}

}  // namespace

// ---- the owner's free blocks -----------------------------------------------

XMLTREE_POOL_RARE void* lastFreeTaken(Cache& c, Slab* s, std::size_t cls, void* b) noexcept {
    unlinkClass(c, s, cls);
    if (!s->mask && s != c.slab) seal(c, s);
    return b;
}

XMLTREE_POOL_RARE void freeOwnedSlow(Cache& c, Slab* s, std::size_t cls, void* p) noexcept {
    absorb(s);
    putFree(c, s, cls, p);
    if (--s->live == 0) releaseEmpty(c, s);
}

namespace {

// A free on a thread other than the slab's owner's, or into a tree arena.
XMLTREE_POOL_RARE void freeElsewhere(Slab* s, void* p, std::size_t cls) noexcept {
    if (PoolArena* a = s->arena) {
        freeIntoArena(*a, s, cls, p);
        return;
    }
    clearFreed(p, classBytes(cls));
    poison(p, classBytes(cls));
    if (s->balance.fetch_sub(1, std::memory_order_acq_rel) - 1 == kSealed) {
        s->balance.store(0, std::memory_order_relaxed);
        giveUpShared(s);
    }
}

// ---- threads ---------------------------------------------------------------

// Threads that have ended allocate from the shared cache; every free into its
// slabs counts as one made elsewhere.
void* allocateShared(std::size_t cls, std::size_t n) {
    Shared& sh = shared();
    std::lock_guard<std::mutex> lock(sh.cacheMutex);
    if (void* p = carveFromCurrent(sh.cache, cls, n)) return p;
    return carveNew(sh.cache, cls, n);
}

XMLTREE_POOL_RARE void* allocateSlow(Cache& c, std::size_t cls, std::size_t n) noexcept {
    if (c.dead) return allocateShared(cls, n);
    if (!c.self && !c.arena) armThread(c);
    return carveNew(c, cls, n);
}

// Seals every slab the thread hands out blocks from (the empty ones go) and
// passes its spares on. Trees the thread made may live on, on any thread.
void endThread(Cache& c) {
    c.self = nullptr;
    c.dead = true;
    retireCarved(c);  // sealed now, or with those that have free blocks
    for (std::size_t cls = 0; cls < kClasses; ++cls) {
        while (c.avail[cls])
            seal(c, slabAt(c.avail[cls]));
    }
    while (Slab* s = c.spares) {
        c.spares = s->nextSpare;
        giveUpShared(s);
    }
    c.spareCount = 0;
}

// Gives up the thread's slabs that others have emptied without it noticing.
void trimThread(Cache& c) {
    for (std::size_t cls = 0; cls < kClasses; ++cls) {
        for (std::uint32_t w = c.avail[cls]; w;) {
            Slab* s = slabAt(w);
            w = s->next[cls];
            absorb(s);
            if (s->live == 0) releaseEmpty(c, s);
        }
    }
    if (c.slab) {
        absorb(c.slab);
        if (c.slab->live == 0) releaseEmpty(c, c.slab);
    }
    while (Slab* s = c.spares) {
        c.spares = s->nextSpare;
        freeSlab(s);
    }
    c.spareCount = 0;
}

inline void* allocateBlock(std::size_t n) noexcept {
    const std::size_t cls = classOf(n);
    PoolArena* const a = t_arena;
    Cache& c = a ? a->cache : t_cache;
    if (c.avail[cls]) return takeFree(c, cls, n);
    if (void* p = carveFromCurrent(c, cls, n)) return p;
    return allocateSlow(c, cls, n);
}

// Counted allocations (tests only) take a path of their own, so that the
// common one keeps its registers free.
__attribute__((noinline)) void* allocateCounted(std::size_t n) noexcept {
    return mem::countAllocation() ? nullptr : allocateBlock(n);
}

}  // namespace

void freeSmall(void* p, std::size_t cls) noexcept {
    Slab* s = slabOf(p);
    Cache& c = t_cache;
    if (s->owner.load(std::memory_order_relaxed) != c.self) {
        freeElsewhere(s, p, cls);
        return;
    }
    freeOwned(c, s, cls, p);
}

}  // namespace pool
}  // namespace xmltree

using namespace xmltree::pool;

// Objects above kMaxBlock come from malloc like the tree's large texts and
// arrays, recorded by a running parse's arena as theirs are.
void* SmallObjectPool::allocate(std::size_t n) noexcept {
    if (n > kMaxBlock || n == 0) return xmltree::TreeArena::allocateLarge(n ? n : 1);
    if (__builtin_expect(xmltree::mem::hookArmed(), 0)) return allocateCounted(n);
    return allocateBlock(n);
}

void SmallObjectPool::deallocate(void* p, std::size_t n) noexcept {
    if (!p) return;
    if (n > kMaxBlock || n == 0) {
        xmltree::TreeArena::releaseLarge(p);
        return;
    }
    if (__builtin_expect(xmltree::mem::hookArmed(), 0)) xmltree::mem::countRelease();
    freeSmall(p, classOf(n));
}

bool SmallObjectPool::enabled() noexcept {
    return true;
}

std::size_t SmallObjectPool::blockBytes(std::size_t n) noexcept {
    return n > kMaxBlock || n == 0 ? n : classBytes(classOf(n));
}

void SmallObjectPool::trim() noexcept {
    Cache& c = t_cache;
    if (c.self) trimThread(c);
    Shared& sh = shared();
    {
        std::lock_guard<std::mutex> lock(sh.cacheMutex);
        if (Slab* s = sh.cache.slab) {
            absorb(s);
            if (s->live == 0) releaseEmpty(sh.cache, s);
        }
    }
    Slab* spares = nullptr;
    {
        std::lock_guard<std::mutex> lock(sh.spareMutex);
        spares = sh.spares;
        sh.spares = nullptr;
        sh.spareCount = 0;
    }
    while (Slab* s = spares) {
        spares = s->nextSpare;
        freeSlab(s);
    }
#if defined(__GLIBC__)
    malloc_trim(0);
#endif
}

std::size_t SmallObjectPool::slabCount() noexcept {
    return shared().slabs.load(std::memory_order_relaxed);
}

void SmallObjectPool::limitSlabsForTesting(long slabs) noexcept {
    shared().slabLimit.store(slabs, std::memory_order_relaxed);
}

#else

void* SmallObjectPool::allocate(std::size_t n) noexcept {
    if (xmltree::mem::allocationFails()) return nullptr;
    return ::operator new(n, std::nothrow);
}

void SmallObjectPool::deallocate(void* p, std::size_t) noexcept {
    if (p) xmltree::mem::noteRelease();
    ::operator delete(p);
}

bool SmallObjectPool::enabled() noexcept {
    return false;
}

std::size_t SmallObjectPool::blockBytes(std::size_t n) noexcept {
    return n;
}

void SmallObjectPool::trim() noexcept {}

std::size_t SmallObjectPool::slabCount() noexcept {
    return 0;
}

void SmallObjectPool::limitSlabsForTesting(long) noexcept {}

#endif

void* SmallObjectPool::allocateOrThrow(std::size_t n) {
    void* p = allocate(n);
    if (!p) throw std::bad_alloc();
    return p;
}
