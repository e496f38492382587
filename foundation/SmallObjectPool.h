#ifndef XMLTREE_FOUNDATION_SMALLOBJECTPOOL_H
#define XMLTREE_FOUNDATION_SMALLOBJECTPOOL_H

#include <cstddef>
#include <new>

// Allocator for the many small objects of a tree (nodes, their buffers,
// children arrays, attribute sets). A parse makes several of these per
// element, and malloc was a quarter to a third of the parse time.
//
// Blocks come in size classes of 8 bytes up to kMaxBlock and are carved in
// order from 64 KB slabs aligned to their size, so a block finds its slab by
// masking its address. Each slab belongs to the thread that carves it, which
// allocates and frees in it without a lock: a freed block goes on its slab's
// own list for its class and the slab's count of blocks in use drops. When
// the count reaches zero the slab is empty and goes whole, in whatever order
// the tree was freed.
//
// Trees may be built on one thread and destroyed on another. A block freed on
// another thread than its slab's owner only counts down an atomic balance in
// the slab and is not reused until the whole slab is. A slab the owner hands
// out nothing more from (full, no free block) is sealed, and whichever thread
// frees its last block gives it up; slabs the owner still hands out from are
// given up by the owner when it frees into them, in trim() or when it ends.
// A thread that ends seals all its slabs.
//
// A parse puts its tree in slabs of its own instead (a tree arena,
// foundation/PoolArena.h), so that the tree can be freed whole; a changed
// tree's slabs join the pool of the thread that changed it.
//
// Memory after the trees are gone: empty slabs are kept for the next tree, up
// to 1 MB per thread and 16 MB shared, and the rest go back to malloc. trim()
// gives back the spares too and asks malloc to return free memory to the
// system.
//
// Sanitizers: under AddressSanitizer free blocks and the uncarved rest of each
// slab are poisoned, so a use after free of a pooled object is reported. The
// pool points to slabs holding blocks in use only by window number, or as
// the slab a live thread is carving, so LeakSanitizer reports a slab whose
// every block is leaked (as a leak of the slab, with the stack of the
// allocation that made it) once its thread has moved on or ended; a leaked
// block sharing its slab with reachable ones goes unseen. Defining
// XMLTREE_NO_SMALL_OBJECT_POOL (CMake: -DXMLTREE_SMALL_OBJECT_POOL=OFF) sends
// every request to ::operator new for per-object reports. Sizes above
// kMaxBlock go to malloc.
class SmallObjectPool {
  public:
    static constexpr std::size_t kMaxBlock = 256;
    static constexpr std::size_t kSlabBytes = 64 * 1024;

    // Null when memory runs out.
    static void* allocate(std::size_t n) noexcept;
    // Throws std::bad_alloc when memory runs out.
    static void* allocateOrThrow(std::size_t n);
    // n must be the size given to allocate; null is ignored.
    static void deallocate(void* p, std::size_t n) noexcept;

    // True when blocks come from the slabs rather than from ::operator new.
    static bool enabled() noexcept;
    // Bytes of slab spent on an object of n bytes (n itself when disabled or
    // above kMaxBlock).
    static std::size_t blockBytes(std::size_t n) noexcept;
    // Gives back to malloc the empty slabs of the calling thread and the
    // shared spares, then asks malloc to return free memory to the system.
    static void trim() noexcept;

    // Slabs taken from malloc and not given back (for tests and benchmarks).
    static std::size_t slabCount() noexcept;

    // Makes slab allocation fail after `slabs` more slabs (negative: never),
    // so that running out of memory can be tested.
    static void limitSlabsForTesting(long slabs) noexcept;
};

// Defines, in the class's source file, the pooled allocation functions that
// XMLTREE_SMALL_OBJECT_POOLED (foundation/PooledObject.h) declares. Out of
// line so that the installed headers need nothing of the pool's.
#define XMLTREE_SMALL_OBJECT_POOLED_DEFINE(Class)                                 \
    void* Class::operator new(std::size_t n) {                                    \
        return SmallObjectPool::allocateOrThrow(n);                               \
    }                                                                             \
    void* Class::operator new(std::size_t n, const std::nothrow_t&) noexcept {    \
        return SmallObjectPool::allocate(n);                                      \
    }                                                                             \
    void Class::operator delete(void* p, std::size_t n) noexcept {                \
        SmallObjectPool::deallocate(p, n);                                        \
    }                                                                             \
    void Class::operator delete(void* p, const std::nothrow_t&) noexcept {        \
        SmallObjectPool::deallocate(p, sizeof(Class));                            \
    }

#endif
