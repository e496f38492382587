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

#if defined(__SANITIZE_ADDRESS__)
#define XMLTREE_POOL_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define XMLTREE_POOL_ASAN 1
#endif
#endif
#ifdef XMLTREE_POOL_ASAN
#include <sanitizer/asan_interface.h>
#endif

#ifndef XMLTREE_NO_SMALL_OBJECT_POOL

// Kept out of line so that the fast paths, which call them rarely, stay small.
#define XMLTREE_POOL_RARE __attribute__((noinline))

namespace {

constexpr std::size_t kGrain = 8;
constexpr std::size_t kClasses = SmallObjectPool::kMaxBlock / kGrain;
static_assert(kClasses <= 32, "a slab keeps its classes with free blocks in 32 bits");
constexpr unsigned kSlabShift = 16;
static_assert(SmallObjectPool::kSlabBytes == std::size_t{1} << kSlabShift,
              "slabs are aligned to their own size");
// A slab is asked of malloc 16 bytes short of its aligned window: malloc's
// header for the next chunk then fits in front of the next window, so slabs
// taken one after another tile memory instead of leaving a gap each.
constexpr std::size_t kSlabUsable = SmallObjectPool::kSlabBytes - 16;
// A slab's balance while no thread hands out its blocks (see Slab).
constexpr std::int64_t kSealed = std::int64_t{1} << 40;
// Empty slabs kept for the next tree rather than given back to malloc, which
// may hand the pages back to the system; faulting them in again costs more
// than the parse writing them. A few per thread, more shared.
constexpr std::size_t kThreadSpares = 16;
constexpr std::size_t kSharedSpares = 256;

inline std::size_t classOf(std::size_t n) {
    return (n + kGrain - 1) / kGrain - 1;
}
inline std::size_t classBytes(std::size_t cls) {
    return (cls + 1) * kGrain;
}

// Under AddressSanitizer free blocks and the uncarved rest of each slab are
// poisoned, so that a use after free of a pooled object is reported as one of
// malloc's would be. A freed block is also cleared: pointers left in it would
// otherwise keep other slabs reachable for the leak checker.
#ifdef XMLTREE_POOL_ASAN
inline void poison(const void* p, std::size_t n) {
    ASAN_POISON_MEMORY_REGION(p, n);
}
inline void unpoison(const void* p, std::size_t n) {
    ASAN_UNPOISON_MEMORY_REGION(p, n);
}
inline void clearFreed(void* p, std::size_t n) {
    unpoison(p, n);
    std::memset(p, 0, n);
}
#else
inline void poison(const void*, std::size_t) {}
inline void unpoison(const void*, std::size_t) {}
inline void clearFreed(void*, std::size_t) {}
#endif

struct Cache;

struct FreeBlock {
    FreeBlock* next;
};

// Sits at the start of each slab. Blocks freed on the owner's thread go on the
// slab's own list for their class and `live` drops; the slab is empty the
// moment `live` reaches zero, and goes whole, whatever the order of the frees.
//
// Blocks freed on other threads only count down `balance`: they are not
// reused until the whole slab is. While the owner hands out blocks of the slab
// (it is carving it or the slab has free blocks), balance is minus the frees
// made elsewhere, so live + balance blocks are in use, and only the owner
// gives the slab up. Once it has no free block and is not being carved, the
// owner seals it: balance becomes kSealed plus the blocks in use, every free
// takes one off, and whichever thread brings it to kSealed gives the slab up.
// An owner freeing into its sealed slab unseals it to reuse the block. (A
// new thread whose cache sits where an ended one's did takes that thread's
// sealed slabs over the same way: a sealed slab is on no thread's lists.)
//
// The lists of slabs with free blocks of a class are linked by window number
// (address >> kSlabShift) rather than by pointer: leak checkers do not follow
// them, so a slab whose blocks are all leaked is reported.
struct Slab {
    std::atomic<Cache*> owner;  // kept when sealed, so that the owner knows it again
    std::atomic<std::int64_t> balance;
    std::int64_t live;   // owner only from here on
    std::uint32_t mask;  // classes with blocks on `heads`
    Slab* nextSpare;
    FreeBlock* heads[kClasses];
    std::uint32_t prev[kClasses];
    std::uint32_t next[kClasses];
};
constexpr std::size_t kSlabHeader = (sizeof(Slab) + 63) & ~std::size_t{63};

inline Slab* slabOf(const void* p) {
    return reinterpret_cast<Slab*>(reinterpret_cast<std::uintptr_t>(p) &
                                   ~(SmallObjectPool::kSlabBytes - 1));
}
inline std::uint32_t windowOf(const Slab* s) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(s) >> kSlabShift);
}
inline Slab* slabAt(std::uint32_t w) {
    return reinterpret_cast<Slab*>(static_cast<std::uintptr_t>(w) << kSlabShift);
}
inline char* slabStart(Slab* s) {
    return reinterpret_cast<char*>(s) + kSlabHeader;
}
inline char* slabEnd(Slab* s) {
    return reinterpret_cast<char*>(s) + kSlabUsable;
}

// A thread's state. Trivially destructible and zero at start, so that it
// stays usable while static and thread-local objects are destroyed.
struct Cache {
    std::uint32_t avail[kClasses];  // first slab with free blocks of each class
    Slab* slab;                     // the slab being carved
    char* bump;
    char* bumpEnd;
    Slab* spares;
    std::size_t spareCount;
    Cache* self;  // this cache from the first allocation until the thread ends
    bool dead;
};

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

// An empty slab goes to the shared spares, or back to malloc past their bound.
XMLTREE_POOL_RARE void giveUpShared(Slab* s) {
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

XMLTREE_POOL_RARE void giveUp(Cache& c, Slab* s) {
    if (c.self && c.spareCount < kThreadSpares) {
        s->nextSpare = c.spares;
        c.spares = s;
        ++c.spareCount;
        return;
    }
    giveUpShared(s);
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

// An empty slab for `c` to carve: a spare, or a fresh one from malloc.
XMLTREE_POOL_RARE Slab* newSlab(Cache& c) {
    Shared& sh = shared();
    const long limit = sh.slabLimit.load(std::memory_order_relaxed);
    if (limit == 0) return nullptr;
    if (limit > 0) sh.slabLimit.store(limit - 1, std::memory_order_relaxed);
    Slab* s = c.spares;
    if (s) {
        c.spares = s->nextSpare;
        --c.spareCount;
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
    return s;
}

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

inline void unlinkClass(Cache& c, Slab* s, std::size_t cls) {
    const std::uint32_t before = s->prev[cls];
    const std::uint32_t after = s->next[cls];
    if (before) {
        slabAt(before)->next[cls] = after;
    } else {
        c.avail[cls] = after;
    }
    if (after) slabAt(after)->prev[cls] = before;
    s->mask &= ~(std::uint32_t{1} << cls);
}

// Forgets the slab's free blocks: off every list, heads cleared.
void dropFreeBlocks(Cache& c, Slab* s) {
    while (s->mask) {
        const auto cls = static_cast<std::size_t>(__builtin_ctz(s->mask));
        unlinkClass(c, s, cls);
        s->heads[cls] = nullptr;
    }
}

// ---- giving slabs up -------------------------------------------------------

// The owner's slab has no block in use: it becomes a spare, or is carved
// again from the start when it is the one being carved.
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

// The owner will hand out no more blocks of `s` (it has none free, or its
// thread is ending); from now on the last free gives it up.
XMLTREE_POOL_RARE void seal(Cache& c, Slab* s) {
    dropFreeBlocks(c, s);
    const std::int64_t add = s->live + kSealed;
    s->live = 0;
    if (s->balance.fetch_add(add, std::memory_order_acq_rel) + add == kSealed) {
        s->balance.store(0, std::memory_order_relaxed);
        giveUp(c, s);
    }
}

// Takes into `live` what other threads freed, unsealing a sealed slab.
inline void absorb(Slab* s) {
    const std::int64_t b = s->balance.exchange(0, std::memory_order_acq_rel);
    s->live = b > 0 ? b - kSealed : s->live + b;
}

// ---- carving ---------------------------------------------------------------

inline void* carveFromCurrent(Cache& c, std::size_t cls, std::size_t n) {
    const std::size_t bytes = classBytes(cls);
    char* p = c.bump;
    if (!p) return nullptr;
    if (bytes % 16 == 0) p += reinterpret_cast<std::uintptr_t>(p) & 8;
    if (p + bytes > c.bumpEnd) return nullptr;
    c.bump = p + bytes;
    ++c.slab->live;
    unpoison(p, n);
    return p;
}

// Leaves the slab being carved: sealed unless it has free blocks to hand out,
// in which case the last of them seals it.
void retireCarved(Cache& c) {
    Slab* s = c.slab;
    if (!s) return;
    c.slab = nullptr;
    c.bump = c.bumpEnd = nullptr;
    if (!s->mask) seal(c, s);
}

void* carveNew(Cache& c, std::size_t cls, std::size_t n) {
    Slab* s = newSlab(c);
    if (!s) return nullptr;
    retireCarved(c);
    c.slab = s;
    c.bump = slabStart(s);
    c.bumpEnd = slabEnd(s);
    return carveFromCurrent(c, cls, n);
}

// ---- the owner's free blocks -----------------------------------------------

// Returns b, so that the caller's call is its last.
XMLTREE_POOL_RARE void* lastFreeTaken(Cache& c, Slab* s, std::size_t cls, void* b) noexcept {
    unlinkClass(c, s, cls);
    if (!s->mask && s != c.slab) seal(c, s);
    return b;
}

inline void* takeFree(Cache& c, std::size_t cls, std::size_t n) {
    Slab* s = slabAt(c.avail[cls]);
    FreeBlock* b = s->heads[cls];
    unpoison(b, sizeof(FreeBlock));
    FreeBlock* next = b->next;
    poison(b, classBytes(cls));
    unpoison(b, n);
    s->heads[cls] = next;
    ++s->live;
    if (!next) return lastFreeTaken(c, s, cls, b);
    // Freed blocks come back in no useful order and are cold by the time they
    // are reused; fetching the next one now hides most of that miss.
    __builtin_prefetch(next, 1);
    return b;
}

inline void putFree(Cache& c, Slab* s, std::size_t cls, void* p) {
    clearFreed(p, classBytes(cls));
    FreeBlock* b = static_cast<FreeBlock*>(p);
    b->next = s->heads[cls];
    if (!b->next) linkClass(c, s, cls);
    s->heads[cls] = b;
    poison(b, classBytes(cls));
}

// A free on a thread other than the slab's owner's.
XMLTREE_POOL_RARE void freeElsewhere(Slab* s, void* p, std::size_t cls) noexcept {
    clearFreed(p, classBytes(cls));
    poison(p, classBytes(cls));
    if (s->balance.fetch_sub(1, std::memory_order_acq_rel) - 1 == kSealed) {
        s->balance.store(0, std::memory_order_relaxed);
        giveUpShared(s);
    }
}

// A free into the owner's own slab that others freed into, or that is sealed.
XMLTREE_POOL_RARE void freeOwnedSlow(Cache& c, Slab* s, std::size_t cls, void* p) noexcept {
    absorb(s);
    putFree(c, s, cls, p);
    if (--s->live == 0) releaseEmpty(c, s);
}

// ---- threads ---------------------------------------------------------------

void arm(Cache& c) {
    t_reaper.arm();
    c.self = &c;
}

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
    if (!c.self) arm(c);
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

}  // namespace

namespace {

inline void* allocateBlock(std::size_t n) noexcept {
    if (n > SmallObjectPool::kMaxBlock || n == 0) return ::operator new(n, std::nothrow);
    const std::size_t cls = classOf(n);
    Cache& c = t_cache;
    if (c.avail[cls]) return takeFree(c, cls, n);
    if (void* p = carveFromCurrent(c, cls, n)) return p;
    return allocateSlow(c, cls, n);
}

// Counted allocations (tests only) take a path of their own, so that the
// common one keeps its registers free.
__attribute__((noinline)) void* allocateCounted(std::size_t n) noexcept {
    return xmltree::mem::countAllocation() ? nullptr : allocateBlock(n);
}

}  // namespace

void* SmallObjectPool::allocate(std::size_t n) noexcept {
    if (__builtin_expect(xmltree::mem::hookArmed(), 0)) return allocateCounted(n);
    return allocateBlock(n);
}

void SmallObjectPool::deallocate(void* p, std::size_t n) noexcept {
    if (!p) return;
    if (__builtin_expect(xmltree::mem::hookArmed(), 0)) xmltree::mem::countRelease();
    if (n > kMaxBlock || n == 0) {
        ::operator delete(p);
        return;
    }
    const std::size_t cls = classOf(n);
    Slab* s = slabOf(p);
    Cache& c = t_cache;
    if (s->owner.load(std::memory_order_relaxed) != c.self) {
        freeElsewhere(s, p, cls);
        return;
    }
    if (s->balance.load(std::memory_order_acquire) != 0) {
        freeOwnedSlow(c, s, cls, p);
        return;
    }
    putFree(c, s, cls, p);
    if (--s->live == 0) releaseEmpty(c, s);
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
