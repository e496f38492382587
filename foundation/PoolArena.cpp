// Tree arenas (foundation/PoolArena.h): the slabs of one parse kept together,
// dropped whole with the tree or handed over to a thread's pool.

#include "foundation/PoolArena.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>

#include "foundation/MemoryHook.h"
#include "foundation/PoolSlabs.h"

namespace xmltree {

#ifndef XMLTREE_NO_SMALL_OBJECT_POOL

using namespace pool;

namespace {

std::atomic<std::size_t> g_keepFromSlabs{TreeArena::kKeepFromSlabs};

// ---- the record of large blocks: open addressing, linear probing ------------

std::size_t slotOf(std::uintptr_t key, std::size_t cap) {
    std::uint64_t h = static_cast<std::uint64_t>(key >> 4) * 0x9E3779B97F4A7C15ull;
    h ^= h >> 29;
    return static_cast<std::size_t>(h) & (cap - 1);
}

void placeLarge(PoolArena& a, std::uintptr_t key) {
    std::size_t i = slotOf(key, a.largeCap);
    while (a.large[i])
        i = (i + 1) & (a.largeCap - 1);
    a.large[i] = key;
}

// Half full at most, so that probes stay short.
bool growLarge(PoolArena& a) {
    const std::size_t cap = a.largeCap ? a.largeCap * 2 : 16;
    auto* table = static_cast<std::uintptr_t*>(mem::allocate(cap * sizeof(std::uintptr_t)));
    if (!table) return false;
    std::memset(table, 0, cap * sizeof(std::uintptr_t));
    std::uintptr_t* old = a.large;
    const std::size_t oldCap = a.largeCap;
    a.large = table;
    a.largeCap = cap;
    for (std::size_t i = 0; i < oldCap; ++i) {
        if (old[i]) placeLarge(a, old[i]);
    }
    mem::release(old);
    return true;
}

// Takes key out, moving later entries of its run back so that no probe
// stops short of them. False when key is not recorded.
bool eraseLarge(PoolArena& a, std::uintptr_t key) {
    if (!a.largeCount) return false;
    const std::size_t mask = a.largeCap - 1;
    std::size_t i = slotOf(key, a.largeCap);
    while (a.large[i] != key) {
        if (!a.large[i]) return false;
        i = (i + 1) & mask;
    }
    for (std::size_t j = (i + 1) & mask; a.large[j]; j = (j + 1) & mask) {
        const std::size_t home = slotOf(a.large[j], a.largeCap);
        // Entry j may move to the hole at i unless its home lies in (i, j].
        const bool stays = i <= j ? (home > i && home <= j) : (home > i || home <= j);
        if (!stays) {
            a.large[i] = a.large[j];
            i = j;
        }
    }
    a.large[i] = 0;
    --a.largeCount;
    return true;
}

// After the parse the record is only walked (to free the blocks) and, in
// checks, searched: it keeps the addresses sorted and no room, where the
// table is at most half full. Left as it is when there is no memory for the
// copy.
void packLarge(PoolArena& a) {
    if (a.largeCount == a.largeCap) return;
    std::uintptr_t* packed = nullptr;
    if (a.largeCount) {
        packed = static_cast<std::uintptr_t*>(mem::allocate(a.largeCount * sizeof(std::uintptr_t)));
        if (!packed) return;
        std::size_t k = 0;
        for (std::size_t i = 0; i < a.largeCap; ++i) {
            if (a.large[i]) packed[k++] = a.large[i];
        }
        std::sort(packed, packed + k);
    }
    mem::release(a.large);
    a.large = packed;
    a.largeCap = a.largeCount;
    a.packed = true;
}

// Records a block above the pool's sizes made while the arena runs. A block
// that finds no room in the record is kept all the same, and the arena is
// then never dropped.
void recordLarge(PoolArena& a, void* p) noexcept {
    if (a.unrecorded) return;
    if ((a.largeCount + 1) * 2 > a.largeCap && !growLarge(a)) {
        a.unrecorded = true;
        return;
    }
    placeLarge(a, reinterpret_cast<std::uintptr_t>(p));
    ++a.largeCount;
}

void freeRecord(PoolArena* a) {
    mem::release(a->large);
    mem::release(a);
}

// Blocks in use in a slab the arena keeps (its own count excluded).
std::int64_t inUse(const Slab* s) {
    const std::int64_t b = s->balance.load(std::memory_order_acquire);
    return (b > 0 ? b - kSealed : s->live + b) - 1;
}

// Leaves a slab to no live thread, holding `inUse` blocks (its balance
// absorbed before): whichever free brings that to zero gives it up, as for
// the sealed slabs of an ended thread. Its free blocks are never handed out
// again, since no thread owns it.
void orphan(Slab* s, std::int64_t inUse) {
    s->live = 0;
    s->owner.store(orphanOwner(), std::memory_order_relaxed);
    if (s->balance.fetch_add(kSealed + inUse, std::memory_order_acq_rel) + kSealed + inUse ==
        kSealed) {
        s->balance.store(0, std::memory_order_relaxed);
        giveUpShared(s);
    }
}

// The arena's slabs join the calling thread's pool: slabs with free blocks
// go on its lists, full ones are sealed, empty ones given up. When the parse
// is just over (`carving`), the slab it was carving becomes the thread's if
// it has more room left than the thread's own. A thread that has ended
// takes nothing: the slabs are sealed for whoever frees their last block.
void handOver(PoolArena& a, bool carving) {
    Cache& tc = threadCache();
    const bool alive = !tc.dead;
    if (alive && !tc.self) armThread(tc);
    Slab* const next = carving ? a.cache.slab : nullptr;
    const bool takeCarving =
        next && alive && (!tc.slab || a.cache.bumpEnd - a.cache.bump > tc.bumpEnd - tc.bump);
    if (takeCarving) {
        retireCarved(tc);
        tc.slab = next;
        tc.bump = a.cache.bump;
        tc.bumpEnd = a.cache.bumpEnd;
    }
    for (std::uint32_t w = a.first; w;) {
        Slab* s = slabAt(w);
        w = s->nextInArena;
        s->arena = nullptr;
        absorb(s);
        --s->live;  // the arena's own count
        if (!alive) {
            orphan(s, s->live);
            continue;
        }
        const std::uint32_t classes = s->mask;
        s->mask = 0;
        s->owner.store(&tc, std::memory_order_relaxed);
        for (std::uint32_t m = classes; m; m &= m - 1)
            linkClass(tc, s, static_cast<std::size_t>(__builtin_ctz(m)));
        if (s->live == 0) {
            releaseEmpty(tc, s);
        } else if (!s->mask && s != tc.slab) {
            seal(tc, s);
        }
    }
    a.first = 0;
    a.slabs = 0;
    mem::release(a.large);
    a.large = nullptr;
    a.largeCap = a.largeCount = 0;
    a.packed = false;
    a.handedOver = true;
}

}  // namespace

namespace pool {

void joinArena(PoolArena& a, Slab* s) noexcept {
    s->arena = &a;
    s->live = 1;
    s->nextInArena = a.first;
    a.first = windowOf(s);
    ++a.slabs;
}

void freeIntoArena(PoolArena& a, Slab* s, std::size_t cls, void* p) noexcept {
    if (a.home == &threadCache()) {
        freeOwned(a.cache, s, cls, p);
        return;
    }
    // The tree lost a block without handing its arena over first: it can no
    // longer be dropped whole, and its slabs go where any other slab would.
    handOver(a, false);
    freeSmall(p, cls);
}

}  // namespace pool

PoolArena* TreeArena::open() noexcept {
    Cache& tc = threadCache();
    if (tc.dead) return nullptr;
    auto* a = static_cast<PoolArena*>(mem::allocate(sizeof(PoolArena)));
    if (!a) return nullptr;
    a = new (a) PoolArena{};
    a->cache.arena = a;
    a->cache.self = &a->cache;
    a->home = &tc;
    a->outer = t_arena;
    t_arena = a;
    return a;
}

PoolArena* TreeArena::close(PoolArena* a) noexcept {
    if (!a) return nullptr;
    if (t_arena == a) t_arena = a->outer;
    a->home = nullptr;
    if (a->slabs >= g_keepFromSlabs.load(std::memory_order_relaxed) && a->slabs > 0 &&
        !a->unrecorded) {
        packLarge(*a);
        return a;
    }
    handOver(*a, true);
    freeRecord(a);
    return nullptr;
}

void TreeArena::release(PoolArena* a) noexcept {
    if (!a) return;
    if (!a->handedOver) handOver(*a, false);
    freeRecord(a);
}

bool TreeArena::drop(PoolArena* a, void* keep, std::size_t keepBytes) noexcept {
    if (!a) return false;
    if (a->handedOver) {
        freeRecord(a);
        return false;
    }
    Cache& tc = threadCache();
    if (!tc.dead && !tc.self) armThread(tc);
    Slab* kept = keep ? slabOf(keep) : nullptr;
    if (kept && kept->arena != a) kept = nullptr;
    std::int64_t blocks = 0;
    Slab* chain = nullptr;
    for (std::uint32_t w = a->first; w;) {
        Slab* s = slabAt(w);
        w = s->nextInArena;
        blocks += inUse(s);
        s->arena = nullptr;
        if (s == kept) continue;
        poison(slabStart(s), kSlabUsable - kSlabHeader);
        s->nextSpare = chain;
        chain = s;
    }
    if (kept) {  // the deallocate of `keep` gives it up
        absorb(kept);
        orphan(kept, 1);
        poison(slabStart(kept), kSlabUsable - kSlabHeader);
        unpoison(keep, keepBytes);
        --blocks;
    }
    giveUpAll(tc, chain);
    for (std::size_t i = 0; i < a->largeCap; ++i) {
        if (a->large[i]) mem::release(reinterpret_cast<void*>(a->large[i]));
    }
    noteReleases(blocks > 0 ? static_cast<std::size_t>(blocks) : 0);
    freeRecord(a);
    return true;
}

PoolArena* TreeArena::active() noexcept {
    return t_arena;
}

void TreeArena::keepFromSlabsForTesting(std::size_t slabs) noexcept {
    g_keepFromSlabs.store(slabs, std::memory_order_relaxed);
}

void TreeArena::setActive(PoolArena* a) noexcept {
    t_arena = a;
}

void* TreeArena::allocateLarge(std::size_t n) noexcept {
    void* p = mem::allocate(n);
    if (p) {
        if (PoolArena* a = t_arena) recordLarge(*a, p);
    }
    return p;
}

void* TreeArena::reallocateLarge(void* p, std::size_t n) noexcept {
    if (!p) return allocateLarge(n);
    // Taken out of the record first and put back as it ends: the block is
    // not to be touched, even as a number, once it is reallocated.
    PoolArena* a = t_arena;
    const bool recorded = a && eraseLarge(*a, reinterpret_cast<std::uintptr_t>(p));
    void* q = mem::reallocate(p, n);
    if (recorded) recordLarge(*a, q ? q : p);
    return q;
}

void TreeArena::releaseLarge(void* p) noexcept {
    if (!p) return;
    if (PoolArena* a = t_arena) eraseLarge(*a, reinterpret_cast<std::uintptr_t>(p));
    mem::release(p);
}

bool TreeArena::holds(const PoolArena* a, const void* p, std::size_t n) noexcept {
    if (!a || !p) return false;
    if (n && n <= SmallObjectPool::kMaxBlock) return slabOf(p)->arena == a;
    if (!a->largeCount) return false;
    const auto key = reinterpret_cast<std::uintptr_t>(p);
    if (a->packed) return std::binary_search(a->large, a->large + a->largeCount, key);
    for (std::size_t i = slotOf(key, a->largeCap); a->large[i]; i = (i + 1) & (a->largeCap - 1)) {
        if (a->large[i] == key) return true;
    }
    return false;
}

std::size_t TreeArena::blocksInUse(const PoolArena* a) noexcept {
    if (!a) return 0;
    std::int64_t blocks = 0;
    for (std::uint32_t w = a->first; w;) {
        const Slab* s = slabAt(w);
        w = s->nextInArena;
        blocks += inUse(s);
    }
    return static_cast<std::size_t>(blocks) + a->largeCount;
}

#else  // XMLTREE_NO_SMALL_OBJECT_POOL: no arenas, every object freed alone

PoolArena* TreeArena::open() noexcept {
    return nullptr;
}
PoolArena* TreeArena::close(PoolArena*) noexcept {
    return nullptr;
}
void TreeArena::release(PoolArena*) noexcept {}
bool TreeArena::drop(PoolArena*, void*, std::size_t) noexcept {
    return false;
}
PoolArena* TreeArena::active() noexcept {
    return nullptr;
}
void TreeArena::keepFromSlabsForTesting(std::size_t) noexcept {}
void TreeArena::setActive(PoolArena*) noexcept {}
void* TreeArena::allocateLarge(std::size_t n) noexcept {
    return mem::allocate(n);
}
void* TreeArena::reallocateLarge(void* p, std::size_t n) noexcept {
    return mem::reallocate(p, n);
}
void TreeArena::releaseLarge(void* p) noexcept {
    mem::release(p);
}
bool TreeArena::holds(const PoolArena*, const void*, std::size_t) noexcept {
    return false;
}
std::size_t TreeArena::blocksInUse(const PoolArena*) noexcept {
    return 0;
}

#endif

}  // namespace xmltree
