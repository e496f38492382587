#include "foundation/SmallObjectPool.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#define XMLTREE_POOL_OFF 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define XMLTREE_POOL_OFF 1
#endif
#endif
#if defined(XMLTREE_NO_SMALL_OBJECT_POOL)
#define XMLTREE_POOL_OFF 1
#endif

#ifndef XMLTREE_POOL_OFF

namespace {

constexpr std::size_t kGrain = 8;
constexpr std::size_t kClasses = SmallObjectPool::kMaxBlock / kGrain;
// Free bytes a thread may gather before it looks for whole free slabs.
constexpr std::size_t kMinSweepBytes = 4 * 1024 * 1024;
constexpr int kRefillBatch = 128;

inline std::size_t classOf(std::size_t n) {
    return (n + kGrain - 1) / kGrain - 1;
}
inline std::size_t classBytes(std::size_t cls) {
    return (cls + 1) * kGrain;
}

struct FreeBlock {
    FreeBlock* next;
};

// Sits at the start of each slab. `carved` counts the bytes of the blocks cut
// from it (alignment gaps left out); it is final once `retired` is set, as no
// thread carves from the slab after that.
struct alignas(16) Slab {
    std::size_t carved;
    std::atomic<bool> retired;
};
constexpr std::size_t kSlabHeader = (sizeof(Slab) + 15) & ~std::size_t{15};

// Free lists and the slab being carved. Trivially destructible and zero at
// start, so that it stays usable while static objects are destroyed.
struct Cache {
    FreeBlock* heads[kClasses];
    std::size_t freeBytes;
    std::size_t sweepAt;
    Slab* slab;
    std::size_t carved;  // block bytes carved from `slab` so far
    char* bump;
    char* bumpEnd;
    bool dead;
    bool armed;
};

// Shared state. Never destroyed: trees may outlive every static object, and
// the registry keeps the slabs reachable for leak checkers.
struct Shared {
    std::mutex mutex;  // guards `cache` and `avail`
    Cache cache{};
    std::atomic<std::size_t> avail[kClasses]{};
    std::mutex slabMutex;      // guards `slabs`
    std::vector<Slab*> slabs;  // sorted by address
    std::atomic<long> slabLimit{-1};
};

Shared& shared() {
    static Shared* s = new Shared();
    return *s;
}

thread_local Cache t_cache;

void flushToShared(Cache& c);

// Its destructor hands the thread's free blocks to the shared list.
struct Reaper {
    void arm() {}
    ~Reaper() { flushToShared(t_cache); }
};
thread_local Reaper t_reaper;

Slab* newSlab() {
    Shared& s = shared();
    long limit = s.slabLimit.load(std::memory_order_relaxed);
    if (limit == 0) return nullptr;
    if (limit > 0) s.slabLimit.store(limit - 1, std::memory_order_relaxed);
    void* mem = std::malloc(SmallObjectPool::kSlabBytes);
    if (!mem) return nullptr;
    Slab* slab = new (mem) Slab{0, {false}};
    std::lock_guard<std::mutex> lock(s.slabMutex);
    try {
        s.slabs.insert(std::upper_bound(s.slabs.begin(), s.slabs.end(), slab), slab);
    } catch (...) {
        std::free(mem);
        return nullptr;
    }
    return slab;
}

void retire(Cache& c) {
    if (!c.slab) return;
    c.slab->carved = c.carved;
    c.slab->retired.store(true, std::memory_order_release);
    c.slab = nullptr;
    c.bump = c.bumpEnd = nullptr;
}

// Carves a block of class `cls` from the cache's slab, starting a new slab
// when this one is full.
void* carve(Cache& c, std::size_t cls) {
    const std::size_t bytes = classBytes(cls);
    char* p = c.bump;
    if (p && bytes % 16 == 0) p += reinterpret_cast<std::uintptr_t>(p) & 8;
    if (!p || p + bytes > c.bumpEnd) {
        retire(c);
        Slab* slab = newSlab();
        if (!slab) return nullptr;
        c.slab = slab;
        c.carved = 0;
        p = reinterpret_cast<char*>(slab) + kSlabHeader;
        c.bumpEnd = reinterpret_cast<char*>(slab) + SmallObjectPool::kSlabBytes;
    }
    c.bump = p + bytes;
    c.carved += bytes;
    return p;
}

inline void* pop(Cache& c, std::size_t cls) {
    FreeBlock* b = c.heads[cls];
    if (!b) return nullptr;
    c.heads[cls] = b->next;
    c.freeBytes -= classBytes(cls);
    return b;
}

inline void push(Cache& c, std::size_t cls, void* p) {
    FreeBlock* b = static_cast<FreeBlock*>(p);
    b->next = c.heads[cls];
    c.heads[cls] = b;
    c.freeBytes += classBytes(cls);
}

// Moves up to kRefillBatch blocks of the shared list into the thread's.
void* refillFromShared(Cache& c, std::size_t cls) {
    Shared& s = shared();
    if (s.avail[cls].load(std::memory_order_relaxed) == 0) return nullptr;
    std::lock_guard<std::mutex> lock(s.mutex);
    for (int i = 0; i < kRefillBatch; ++i) {
        void* p = pop(s.cache, cls);
        if (!p) break;
        push(c, cls, p);
    }
    s.avail[cls].store(s.cache.heads[cls] ? 1 : 0, std::memory_order_relaxed);
    return pop(c, cls);
}

// Frees the slabs all of whose carved bytes sit on this cache's lists. The
// caller holds whatever lock guards the cache.
void sweep(Cache& c) {
    std::vector<std::pair<char*, std::size_t>> blocks;
    try {
        blocks.reserve(c.freeBytes / kGrain / 4 + 16);
        for (std::size_t cls = 0; cls < kClasses; ++cls) {
            for (FreeBlock* b = c.heads[cls]; b; b = b->next)
                blocks.emplace_back(reinterpret_cast<char*>(b), classBytes(cls));
        }
    } catch (...) {
        return;
    }
    std::sort(blocks.begin(), blocks.end());
    Shared& s = shared();
    std::vector<Slab*> whole;
    std::unique_lock<std::mutex> lock(s.slabMutex);
    std::size_t i = 0;
    while (i < blocks.size()) {
        auto it = std::upper_bound(s.slabs.begin(), s.slabs.end(),
                                   reinterpret_cast<Slab*>(blocks[i].first));
        Slab* slab = *(it - 1);
        char* end = reinterpret_cast<char*>(slab) + SmallObjectPool::kSlabBytes;
        std::size_t bytes = 0;
        for (; i < blocks.size() && blocks[i].first < end; ++i)
            bytes += blocks[i].second;
        if (!slab->retired.load(std::memory_order_acquire)) continue;
        if (bytes != slab->carved) continue;
        try {
            whole.push_back(slab);
        } catch (...) {
            break;
        }
    }
    if (whole.empty()) return;
    for (std::size_t cls = 0; cls < kClasses; ++cls) {
        FreeBlock** link = &c.heads[cls];
        while (FreeBlock* b = *link) {
            auto it = std::upper_bound(whole.begin(), whole.end(), reinterpret_cast<Slab*>(b));
            char* start = it == whole.begin() ? nullptr : reinterpret_cast<char*>(*(it - 1));
            if (start && reinterpret_cast<char*>(b) < start + SmallObjectPool::kSlabBytes) {
                *link = b->next;
                c.freeBytes -= classBytes(cls);
            } else {
                link = &b->next;
            }
        }
    }
    for (Slab* slab : whole) {
        s.slabs.erase(std::lower_bound(s.slabs.begin(), s.slabs.end(), slab));
        std::free(slab);
    }
}

void sweepThread(Cache& c) {
    sweep(c);
    c.sweepAt = std::max(kMinSweepBytes, 2 * c.freeBytes);
}

void flushToShared(Cache& c) {
    Shared& s = shared();
    std::lock_guard<std::mutex> lock(s.mutex);
    retire(c);
    for (std::size_t cls = 0; cls < kClasses; ++cls) {
        while (void* p = pop(c, cls))
            push(s.cache, cls, p);
        if (s.cache.heads[cls]) s.avail[cls].store(1, std::memory_order_relaxed);
    }
    c.dead = true;
    sweep(s.cache);
}

void* allocateShared(std::size_t cls) {
    Shared& s = shared();
    std::lock_guard<std::mutex> lock(s.mutex);
    void* p = pop(s.cache, cls);
    return p ? p : carve(s.cache, cls);
}

void deallocateShared(std::size_t cls, void* p) {
    Shared& s = shared();
    std::lock_guard<std::mutex> lock(s.mutex);
    push(s.cache, cls, p);
    s.avail[cls].store(1, std::memory_order_relaxed);
}

// Registers the thread's exit hook on its first use of the pool.
void arm(Cache& c) {
    t_reaper.arm();
    c.armed = true;
    c.sweepAt = kMinSweepBytes;
}

void deallocateSlow(Cache& c) {
    if (!c.armed) {
        arm(c);
    } else {
        sweepThread(c);
    }
}

void* allocateSlow(Cache& c, std::size_t cls) {
    if (c.dead) return allocateShared(cls);
    if (!c.armed) arm(c);
    if (void* p = refillFromShared(c, cls)) return p;
    return carve(c, cls);
}

}  // namespace

void* SmallObjectPool::allocate(std::size_t n) noexcept {
    if (n > kMaxBlock || n == 0) return ::operator new(n, std::nothrow);
    const std::size_t cls = classOf(n);
    Cache& c = t_cache;
    if (void* p = pop(c, cls)) return p;
    return allocateSlow(c, cls);
}

void SmallObjectPool::deallocate(void* p, std::size_t n) noexcept {
    if (!p) return;
    if (n > kMaxBlock || n == 0) {
        ::operator delete(p);
        return;
    }
    const std::size_t cls = classOf(n);
    Cache& c = t_cache;
    if (c.dead) {
        deallocateShared(cls, p);
        return;
    }
    push(c, cls, p);
    if (c.freeBytes > c.sweepAt) deallocateSlow(c);
}

bool SmallObjectPool::enabled() noexcept {
    return true;
}

std::size_t SmallObjectPool::blockBytes(std::size_t n) noexcept {
    return n > kMaxBlock || n == 0 ? n : classBytes(classOf(n));
}

void SmallObjectPool::trim() noexcept {
    Cache& c = t_cache;
    if (!c.dead) sweepThread(c);
    Shared& s = shared();
    std::lock_guard<std::mutex> lock(s.mutex);
    sweep(s.cache);
    for (std::size_t cls = 0; cls < kClasses; ++cls)
        s.avail[cls].store(s.cache.heads[cls] ? 1 : 0, std::memory_order_relaxed);
}

std::size_t SmallObjectPool::slabCount() noexcept {
    Shared& s = shared();
    std::lock_guard<std::mutex> lock(s.slabMutex);
    return s.slabs.size();
}

std::size_t SmallObjectPool::threadFreeBytes() noexcept {
    return t_cache.freeBytes;
}

void SmallObjectPool::limitSlabsForTesting(long slabs) noexcept {
    shared().slabLimit.store(slabs, std::memory_order_relaxed);
}

#else

void* SmallObjectPool::allocate(std::size_t n) noexcept {
    return ::operator new(n, std::nothrow);
}

void SmallObjectPool::deallocate(void* p, std::size_t) noexcept {
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

std::size_t SmallObjectPool::threadFreeBytes() noexcept {
    return 0;
}

void SmallObjectPool::limitSlabsForTesting(long) noexcept {}

#endif

void* SmallObjectPool::allocateOrThrow(std::size_t n) {
    void* p = allocate(n);
    if (!p) throw std::bad_alloc();
    return p;
}
