#ifndef XMLTREE_FOUNDATION_SMALLOBJECTPOOL_H
#define XMLTREE_FOUNDATION_SMALLOBJECTPOOL_H

#include <cstddef>
#include <new>

// Allocator for the many small objects of a tree (nodes, their buffers,
// children arrays, attribute sets). A parse makes several of these per
// element, and malloc was a quarter to a third of the parse time.
//
// Blocks come in size classes of 8 bytes up to kMaxBlock and are carved from
// 64 KB slabs taken from malloc. Each thread keeps its own free list per
// class, so allocating and freeing take no lock. A block freed on another
// thread than the one that allocated it simply joins the freeing thread's
// list: trees may be built on one thread and destroyed on another. When a
// thread ends, its free blocks go to a shared list that other threads draw
// from.
//
// Memory after the trees are gone: free blocks stay on the lists and are
// reused by the next tree. Once a thread's free blocks grow well beyond what
// it had after the last sweep, and whenever trim() is called, slabs whose
// every block is free on that thread's lists (or on the shared list) are
// given up: up to 16 MB of them are kept as spares for the next tree, the
// rest go back to malloc (trim() gives back the spares too). A table of all
// slabs lives for the whole process, so leak checkers see them as reachable.
//
// Sizes above kMaxBlock go to ::operator new. In builds with AddressSanitizer,
// or with XMLTREE_NO_SMALL_OBJECT_POOL defined, every request goes to
// ::operator new so that the sanitizer sees each use after free and leak.
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
    // Gives back to malloc the slabs whose blocks are all free on this
    // thread's lists or on the shared list.
    static void trim() noexcept;

    // Figures for tests and benchmarks.
    static std::size_t slabCount() noexcept;
    // Bytes on the calling thread's free lists.
    static std::size_t threadFreeBytes() noexcept;

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
