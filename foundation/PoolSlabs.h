#ifndef XMLTREE_FOUNDATION_POOLSLABS_H
#define XMLTREE_FOUNDATION_POOLSLABS_H

// Internal to the small-object pool: the slabs, the per-thread caches and
// the steps on them that the thread caches (SmallObjectPool.cpp) and the
// tree arenas (PoolArena.cpp) share. foundation/SmallObjectPool.h tells how
// the pool works as a whole.

#ifndef XMLTREE_NO_SMALL_OBJECT_POOL

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "foundation/MemoryHook.h"
#include "foundation/SmallObjectPool.h"

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

// Kept out of line so that the fast paths, which call them rarely, stay small.
#define XMLTREE_POOL_RARE __attribute__((noinline))
// Folded into the caller whatever the compiler would choose: the parser's
// loop, left with a call, saves and restores its registers around it.
#if defined(__GNUC__)
#define XMLTREE_ALWAYS_INLINE inline __attribute__((always_inline))
#else
#define XMLTREE_ALWAYS_INLINE inline
#endif

namespace xmltree {

struct PoolArena;

namespace pool {

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
//
// A slab of a tree arena (PoolArena.cpp) names its arena and is linked to the
// arena's other slabs through nextInArena, by window number too; its `live`
// holds one count more than its blocks in use for as long as the arena keeps
// it, so that no free can give it up.
struct Slab {
    std::atomic<Cache*> owner;  // kept when sealed, so that the owner knows it again
    std::atomic<std::int64_t> balance;
    std::int64_t live;   // owner only from here on
    std::uint32_t mask;  // classes with blocks on `heads`
    std::uint32_t nextInArena;
    PoolArena* arena;  // the arena that keeps the slab; null for a thread's
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

// A thread's state, or an arena's while its parse runs. Trivially
// destructible and zero at start, so that a thread's stays usable while
// static and thread-local objects are destroyed.
struct Cache {
    std::uint32_t avail[kClasses];  // first slab with free blocks of each class
    Slab* slab;                     // the slab being carved
    char* bump;
    char* bumpEnd;
    Slab* spares;
    std::size_t spareCount;
    Cache* self;       // this cache from the first allocation until the thread ends
    PoolArena* arena;  // set in an arena's cache: new slabs join the arena
    bool dead;
};

}  // namespace pool

// A tree arena: the slabs one parse carved, kept together so that the tree
// can be freed whole (PoolArena.cpp, foundation/PoolArena.h).
struct PoolArena {
    pool::Cache cache;  // carving and free lists while the parse runs
    // The cache of the thread whose parse fills the arena; null once the
    // parse is over. Frees on that thread go into the arena.
    pool::Cache* home;
    PoolArena* outer;     // the arena that was active before this one opened
    std::uint32_t first;  // window of the first slab, linked by nextInArena
    std::size_t slabs;
    // Blocks above the pool's sizes made during the parse, which a drop
    // frees: an open-addressed table of their addresses while the parse
    // runs, packed into a plain array (`packed`) once it is over.
    std::uintptr_t* large;
    std::size_t largeCap;
    std::size_t largeCount;
    bool packed;
    bool unrecorded;  // a large block could not be recorded: never dropped
    bool handedOver;  // its slabs went to a thread's pool: never dropped
};

namespace pool {

// ---- steps shared by the thread caches and the arenas (SmallObjectPool.cpp)

// The arena of the parse running on this thread, which takes its
// allocations; null for none. A plain __thread rather than thread_local, so
// that the inline allocateFast below reads it with one load from any source.
extern __thread PoolArena* t_arena;

// The calling thread's cache.
Cache& threadCache() noexcept;
// The owner that sealed slabs of no live cache carry (the cache of ended
// threads): no thread's `self` is ever equal to it.
Cache* orphanOwner() noexcept;
// Makes c a live thread's cache (its `self` set) on first use.
void armThread(Cache& c) noexcept;

// An empty slab goes to the shared spares, or back to malloc past their bound.
void giveUpShared(Slab* s) noexcept;
// A chain of empty slabs linked through nextSpare goes to c's spares, the
// shared ones, and the rest back to malloc.
void giveUpAll(Cache& c, Slab* chain) noexcept;
// The owner will hand out no more blocks of `s`; from now on the last free
// gives it up.
void seal(Cache& c, Slab* s) noexcept;
// The owner's slab has no block in use: it becomes a spare, or is carved
// again from the start when it is the one being carved.
void releaseEmpty(Cache& c, Slab* s) noexcept;
void linkClass(Cache& c, Slab* s, std::size_t cls) noexcept;
// Returns b, so that the caller's call is its last.
void* lastFreeTaken(Cache& c, Slab* s, std::size_t cls, void* b) noexcept;
// A free into the owner's own slab that others freed into, or that is sealed.
void freeOwnedSlow(Cache& c, Slab* s, std::size_t cls, void* p) noexcept;
// Counts `n` releases for the memory hook's tests.
void noteReleases(std::size_t n) noexcept;
// Leaves the slab being carved: sealed unless it has free blocks to hand out.
void retireCarved(Cache& c) noexcept;
// Frees a pooled block of class cls, on whichever thread.
void freeSmall(void* p, std::size_t cls) noexcept;

// ---- the arenas' side (PoolArena.cpp) -------------------------------------

// A new slab of the arena's: the arena keeps it until it is dropped or
// handed over.
void joinArena(PoolArena& a, Slab* s) noexcept;
// A free into a slab the arena keeps.
void freeIntoArena(PoolArena& a, Slab* s, std::size_t cls, void* p) noexcept;

// ---- hot steps, inline --------------------------------------------------------

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

// Takes into `live` what other threads freed, unsealing a sealed slab.
inline void absorb(Slab* s) {
    const std::int64_t b = s->balance.exchange(0, std::memory_order_acq_rel);
    s->live = b > 0 ? b - kSealed : s->live + b;
}

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

// SmallObjectPool::allocate for the library's own sources, which the parser
// calls for every element: a block carved from the running parse's arena
// without a call, where the size is often a constant.
inline void* allocateFast(std::size_t n) noexcept {
    PoolArena* const a = t_arena;
    if (a && n && n <= SmallObjectPool::kMaxBlock && !mem::hookArmed()) {
        Cache& c = a->cache;
        const std::size_t cls = classOf(n);
        if (!c.avail[cls]) {
            if (void* p = carveFromCurrent(c, cls, n)) return p;
        }
    }
    return SmallObjectPool::allocate(n);
}

// `new (std::nothrow) T(args...)` for a pooled class whose constructor does
// not throw, through allocateFast; `delete` frees it as usual.
template <class T, class... Args>
XMLTREE_ALWAYS_INLINE T* make(Args&&... args) noexcept {
    void* p = allocateFast(sizeof(T));
    return p ? new (p) T(static_cast<Args&&>(args)...) : nullptr;
}

// A free by the slab's owner (`c`, the thread's cache or the running
// parse's arena).
inline void freeOwned(Cache& c, Slab* s, std::size_t cls, void* p) {
    if (s->balance.load(std::memory_order_acquire) != 0) {
        freeOwnedSlow(c, s, cls, p);
        return;
    }
    putFree(c, s, cls, p);
    if (--s->live == 0) releaseEmpty(c, s);
}

}  // namespace pool
}  // namespace xmltree

#else  // XMLTREE_NO_SMALL_OBJECT_POOL: every object from ::operator new

#include "foundation/SmallObjectPool.h"

namespace xmltree {
namespace pool {

inline void* allocateFast(std::size_t n) noexcept {
    return SmallObjectPool::allocate(n);
}

// `new (std::nothrow) T(args...)` for a pooled class whose constructor does
// not throw, through allocateFast; `delete` frees it as usual.
template <class T, class... Args>
T* make(Args&&... args) noexcept {
    void* p = allocateFast(sizeof(T));
    return p ? new (p) T(static_cast<Args&&>(args)...) : nullptr;
}

}  // namespace pool
}  // namespace xmltree

#endif  // XMLTREE_NO_SMALL_OBJECT_POOL

#endif
