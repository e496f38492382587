#include "foundation/SmallObjectPool.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>

#include "foundation/MemoryHook.h"

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
static_assert(kClasses <= 32, "a sweep keeps the classes of a slab in 32 bits");
constexpr unsigned kSlabShift = 16;
static_assert(SmallObjectPool::kSlabBytes == std::size_t{1} << kSlabShift,
              "slab windows are kSlabBytes wide");
// Free bytes a thread may gather before it looks for whole free slabs. Small
// enough that the blocks just freed are still in cache when a sweep walks
// them.
constexpr std::size_t kMinSweepBytes = 1024 * 1024;
// Blocks a sweep notes down in its first pass so that the second reads an
// array instead of chasing the lists again (a sweep of kMinSweepBytes needs
// a fraction of this).
constexpr std::size_t kScratchBlocks = 32 * 1024;
// Whole free slabs kept for the next tree rather than given back to malloc:
// malloc may hand the pages back to the system, and faulting them in again
// costs more than the parse writing them.
constexpr std::size_t kMaxSpareSlabs = 256;
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
// thread carves from the slab after that. The other fields belong to a sweep
// and are only touched under the slab mutex; between sweeps they are zero.
struct alignas(16) Slab {
    std::size_t carved;
    std::atomic<bool> retired;
    bool whole;             // every carved byte is on the swept lists
    std::uint32_t classes;  // size classes of the blocks found on them
    std::size_t tally;      // free bytes found on the swept lists
    Slab* nextTouched;      // slabs with a tally, then the whole ones
};
constexpr std::size_t kSlabHeader = (sizeof(Slab) + 15) & ~std::size_t{15};

inline std::uint64_t windowOf(const void* p) {
    return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(p)) >> kSlabShift;
}

// Every slab, keyed by the kSlabBytes-wide address window its first byte lies
// in. Slabs come from plain malloc, unaligned, so no two start in one window
// and a block lies in the slab starting in its own window or in the one
// before. Open addressing with linear probing; erasing shifts back.
class SlabTable {
  public:
    std::size_t size() const { return count_; }

    Slab* slabOf(const void* p) const {
        const std::uint64_t w = windowOf(p);
        Slab* s = find(w);
        if (s && static_cast<const void*>(s) <= p) return s;
        return find(w - 1);
    }

    bool insert(Slab* s) {
        if ((count_ + 1) * 2 > capacity() && !grow()) return false;
        place(s);
        ++count_;
        return true;
    }

    void erase(Slab* s) {
        std::size_t i = home(windowOf(s));
        while (slots_[i] != s)
            i = (i + 1) & mask_;
        slots_[i] = nullptr;
        --count_;
        for (std::size_t j = (i + 1) & mask_; slots_[j]; j = (j + 1) & mask_) {
            const std::size_t k = home(windowOf(slots_[j]));
            // Move slots_[j] into the hole unless its home lies cyclically in (i, j].
            const bool stays = i < j ? (k > i && k <= j) : (k > i || k <= j);
            if (stays) continue;
            slots_[i] = slots_[j];
            slots_[j] = nullptr;
            i = j;
        }
    }

  private:
    std::size_t capacity() const { return slots_ ? mask_ + 1 : 0; }

    std::size_t home(std::uint64_t w) const {
        return static_cast<std::size_t>((w * 0x9E3779B97F4A7C15ull) >> shift_) & mask_;
    }

    Slab* find(std::uint64_t w) const {
        if (!slots_) return nullptr;
        for (std::size_t i = home(w); slots_[i]; i = (i + 1) & mask_)
            if (windowOf(slots_[i]) == w) return slots_[i];
        return nullptr;
    }

    void place(Slab* s) {
        std::size_t i = home(windowOf(s));
        while (slots_[i])
            i = (i + 1) & mask_;
        slots_[i] = s;
    }

    bool grow() {
        const std::size_t oldCap = capacity();
        const std::size_t newCap = oldCap ? 2 * oldCap : 64;
        Slab** fresh = new (std::nothrow) Slab*[newCap]();
        if (!fresh) return false;
        Slab** old = slots_;
        slots_ = fresh;
        mask_ = newCap - 1;
        shift_ = 64;
        for (std::size_t c = newCap; c > 1; c >>= 1)
            --shift_;
        for (std::size_t i = 0; i < oldCap; ++i)
            if (old[i]) place(old[i]);
        delete[] old;
        return true;
    }

    Slab** slots_ = nullptr;
    std::size_t mask_ = 0;
    unsigned shift_ = 64;
    std::size_t count_ = 0;
};

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
// the table keeps the slabs reachable for leak checkers.
struct Shared {
    std::mutex mutex;  // guards `cache` and `avail`
    Cache cache{};
    std::atomic<std::size_t> avail[kClasses]{};
    std::mutex slabMutex;  // guards `slabs`, the spares and the sweep fields of every slab
    SlabTable slabs;
    Slab* spares = nullptr;  // whole free slabs kept, linked through nextTouched
    std::size_t spareCount = 0;
    FreeBlock** scratch = nullptr;  // kScratchBlocks entries once a sweep has run
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

Slab* initSlab(void* mem) {
    return new (mem) Slab{0, {false}, false, 0, 0, nullptr};
}

Slab* takeSpare(Shared& s) {
    std::lock_guard<std::mutex> lock(s.slabMutex);
    Slab* slab = s.spares;
    if (!slab) return nullptr;
    s.spares = slab->nextTouched;
    --s.spareCount;
    return initSlab(slab);
}

Slab* newSlab() {
    Shared& s = shared();
    long limit = s.slabLimit.load(std::memory_order_relaxed);
    if (limit == 0) return nullptr;
    if (limit > 0) s.slabLimit.store(limit - 1, std::memory_order_relaxed);
    if (Slab* spare = takeSpare(s)) return spare;
    void* mem = std::malloc(SmallObjectPool::kSlabBytes);
    if (!mem) return nullptr;
    Slab* slab = initSlab(mem);
    std::lock_guard<std::mutex> lock(s.slabMutex);
    if (!s.slabs.insert(slab)) {
        std::free(mem);
        return nullptr;
    }
    return slab;
}

// Keeps a whole free slab as a spare, or gives it back to malloc when there
// are enough. The caller holds the slab mutex.
void releaseSlab(Shared& s, Slab* slab) {
    slab->whole = false;
    slab->tally = 0;
    slab->classes = 0;
    if (s.spareCount < kMaxSpareSlabs) {
        slab->nextTouched = s.spares;
        s.spares = slab;
        ++s.spareCount;
        return;
    }
    s.slabs.erase(slab);
    std::free(slab);
}

void freeSpares(Shared& s) {
    std::lock_guard<std::mutex> lock(s.slabMutex);
    while (Slab* slab = s.spares) {
        s.spares = slab->nextTouched;
        s.slabs.erase(slab);
        std::free(slab);
    }
    s.spareCount = 0;
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

// Carves from the slab in hand when it has room, else null. While a thread
// builds a tree its lists are mostly empty, so this is the common request;
// the shared list is looked at when the slab runs out.
inline void* carveFromCurrent(Cache& c, std::size_t cls) {
    const std::size_t bytes = classBytes(cls);
    char* p = c.bump;
    if (!p) return nullptr;
    if (bytes % 16 == 0) p += reinterpret_cast<std::uintptr_t>(p) & 8;
    if (p + bytes > c.bumpEnd) return nullptr;
    c.bump = p + bytes;
    c.carved += bytes;
    return p;
}

inline void* pop(Cache& c, std::size_t cls) {
    FreeBlock* b = c.heads[cls];
    if (!b) return nullptr;
    c.heads[cls] = b->next;
    c.freeBytes -= classBytes(cls);
    // Freed blocks come back in no useful order and are cold by the time they
    // are reused; fetching the next one now hides most of that miss behind
    // the work done before the next allocation of this size.
    __builtin_prefetch(b->next, 1);
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

// The free blocks a sweep found, in list order, and where each class's run
// ends; classes past `recorded` did not fit and are walked again instead.
struct SweepNotes {
    FreeBlock** blocks;
    std::size_t ends[kClasses];
    std::size_t recorded;  // classes below this one are noted in full
};

// Adds every free block of the cache to its slab's tally and notes it down
// while there is room; returns the slabs tallied, linked through nextTouched.
Slab* tallyFreeBlocks(const Cache& c, const SlabTable& slabs, SweepNotes& notes) {
    Slab* touched = nullptr;
    std::size_t n = 0;
    const std::size_t room = notes.blocks ? kScratchBlocks : 0;
    notes.recorded = kClasses;
    for (std::size_t cls = 0; cls < kClasses; ++cls) {
        const std::size_t bytes = classBytes(cls);
        for (FreeBlock* b = c.heads[cls]; b; b = b->next) {
            Slab* slab = slabs.slabOf(b);
            if (!slab) continue;
            if (slab->tally == 0) {
                slab->nextTouched = touched;
                touched = slab;
            }
            slab->tally += bytes;
            slab->classes |= std::uint32_t{1} << cls;
            if (n < room) notes.blocks[n] = b;
            ++n;
        }
        if (n > room && notes.recorded == kClasses) notes.recorded = cls;
        notes.ends[cls] = n;
    }
    return touched;
}

// Marks the tallied slabs whose every carved byte is free and returns them;
// the others go back to a zero tally.
Slab* pickWholeSlabs(Slab* touched, std::uint32_t& classes) {
    Slab* whole = nullptr;
    classes = 0;
    while (Slab* slab = touched) {
        touched = slab->nextTouched;
        if (slab->retired.load(std::memory_order_acquire) && slab->tally == slab->carved) {
            slab->whole = true;
            classes |= slab->classes;
            slab->nextTouched = whole;
            whole = slab;
        } else {
            slab->tally = 0;
            slab->classes = 0;
            slab->nextTouched = nullptr;
        }
    }
    return whole;
}

inline bool inWholeSlab(const SlabTable& slabs, const FreeBlock* b) {
    const Slab* slab = slabs.slabOf(b);
    return slab && slab->whole;
}

// Relinks a class's list from the noted blocks, leaving out those in whole slabs.
void relinkNoted(Cache& c, std::size_t cls, const SlabTable& slabs, const SweepNotes& notes) {
    const std::size_t bytes = classBytes(cls);
    FreeBlock** link = &c.heads[cls];
    for (std::size_t i = cls ? notes.ends[cls - 1] : 0; i < notes.ends[cls]; ++i) {
        FreeBlock* b = notes.blocks[i];
        if (inWholeSlab(slabs, b)) {
            c.freeBytes -= bytes;
        } else {
            *link = b;
            link = &b->next;
        }
    }
    *link = nullptr;
}

void unlinkWalking(Cache& c, std::size_t cls, const SlabTable& slabs) {
    const std::size_t bytes = classBytes(cls);
    FreeBlock** link = &c.heads[cls];
    while (FreeBlock* b = *link) {
        if (inWholeSlab(slabs, b)) {
            *link = b->next;
            c.freeBytes -= bytes;
        } else {
            link = &b->next;
        }
    }
}

// Takes out of the cache's lists the blocks that lie in whole slabs.
void dropBlocksOfWholeSlabs(Cache& c, const SlabTable& slabs, std::uint32_t classes,
                            const SweepNotes& notes) {
    for (std::size_t cls = 0; cls < kClasses; ++cls) {
        if (!(classes & (std::uint32_t{1} << cls))) continue;
        if (cls < notes.recorded) {
            relinkNoted(c, cls, slabs, notes);
        } else {
            unlinkWalking(c, cls, slabs);
        }
    }
}

// Gives up the slabs all of whose carved bytes sit on this cache's lists:
// one pass tallies the free bytes per slab, a second takes the blocks of the
// whole ones off the lists. The caller holds whatever lock guards the cache.
void sweep(Cache& c) {
    Shared& s = shared();
    std::lock_guard<std::mutex> lock(s.slabMutex);
    if (!s.scratch)
        s.scratch = new (std::nothrow) FreeBlock*[kScratchBlocks];
    SweepNotes notes;
    notes.blocks = s.scratch;
    std::uint32_t classes = 0;
    Slab* whole = pickWholeSlabs(tallyFreeBlocks(c, s.slabs, notes), classes);
    if (!whole) return;
    dropBlocksOfWholeSlabs(c, s.slabs, classes, notes);
    while (Slab* slab = whole) {
        whole = slab->nextTouched;
        releaseSlab(s, slab);
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

namespace {

inline void* allocateBlock(std::size_t n) noexcept {
    if (n > SmallObjectPool::kMaxBlock || n == 0) return ::operator new(n, std::nothrow);
    const std::size_t cls = classOf(n);
    Cache& c = t_cache;
    if (void* p = pop(c, cls)) return p;
    if (void* p = carveFromCurrent(c, cls)) return p;
    return allocateSlow(c, cls);
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
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        sweep(s.cache);
        for (std::size_t cls = 0; cls < kClasses; ++cls)
            s.avail[cls].store(s.cache.heads[cls] ? 1 : 0, std::memory_order_relaxed);
    }
    freeSpares(s);
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
