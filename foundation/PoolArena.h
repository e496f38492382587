#ifndef XMLTREE_FOUNDATION_POOLARENA_H
#define XMLTREE_FOUNDATION_POOLARENA_H

// Internal to the library: tree arenas, which let a parsed tree be freed
// whole instead of object by object.
//
// While a parse runs, an arena takes every pooled allocation of its thread
// into slabs of its own, and records the storage blocks above the pool's
// sizes that the tree's classes (StringBuffer, AttributeSet, ExtPtrArray)
// take from malloc. As long as the tree is not changed, every block of the
// arena belongs to the tree and every block of the tree to the arena, so
// deleting the tree can give the slabs back whole and free the recorded
// blocks without reading a single node (drop). The first change to the tree,
// or any free of one of its blocks, hands the slabs over to the calling
// thread's pool instead, where they live on as any other slab and the tree's
// objects are freed one by one (release).
//
// A tree of fewer than kKeepFromSlabs slabs is handed over when its parse
// ends: the rest of its last slab then serves other trees, and freeing a
// small tree is quick anyway.

#include <cstddef>

namespace xmltree {

struct PoolArena;

class TreeArena {
  public:
    static constexpr std::size_t kKeepFromSlabs = 4;

    // Makes an arena active on the calling thread until close(). Null when
    // none can be had (no memory for its record, or the pool is off):
    // allocations then go to the thread's pool as always.
    static PoolArena* open() noexcept;
    // Ends the parse's allocations into `a` (null is ignored). Returns `a`
    // when the tree is to keep its arena; otherwise its slabs join the
    // calling thread's pool, its record is freed and the result is null.
    static PoolArena* close(PoolArena* a) noexcept;
    // Hands the arena's slabs over to the calling thread's pool and frees
    // its record; the tree's objects are then freed one by one. Null is
    // ignored.
    static void release(PoolArena* a) noexcept;
    // Frees every block of the arena at once but `keep` (null, or a pooled
    // block of keepBytes in the arena, left for its own deallocate to free),
    // and the record. False when the slabs were handed over before (a block
    // of the tree was freed while it still kept its arena): then only the
    // record goes, and the caller frees the tree's objects one by one.
    static bool drop(PoolArena* a, void* keep, std::size_t keepBytes) noexcept;

    // The arena active on this thread, and making another one active: a
    // parse sets none while it calls a caller's logger or monitor, whose
    // allocations are not the tree's.
    static PoolArena* active() noexcept;
    static void setActive(PoolArena* a) noexcept;

    // Storage blocks above the pool's sizes for the classes that a tree owns
    // (xmltree::mem's functions otherwise): recorded by the active arena.
    static void* allocateLarge(std::size_t n) noexcept;
    static void* reallocateLarge(void* p, std::size_t n) noexcept;
    static void releaseLarge(void* p) noexcept;

    // For tests and fuzzers: arenas of at least `slabs` slabs are kept from
    // now on (kKeepFromSlabs at start), so that small documents exercise the
    // release of whole trees too.
    static void keepFromSlabsForTesting(std::size_t slabs) noexcept;

    // For checks. Whether the block of n bytes at p belongs to the arena.
    static bool holds(const PoolArena* a, const void* p, std::size_t n) noexcept;
    // Blocks of the arena in use: pooled and recorded.
    static std::size_t blocksInUse(const PoolArena* a) noexcept;
};

// Makes no arena active for its lifetime.
class TreeArenaPause {
  public:
    TreeArenaPause() noexcept : saved_(TreeArena::active()) { TreeArena::setActive(nullptr); }
    ~TreeArenaPause() { TreeArena::setActive(saved_); }
    TreeArenaPause(const TreeArenaPause&) = delete;
    TreeArenaPause& operator=(const TreeArenaPause&) = delete;

  private:
    PoolArena* saved_;
};

}  // namespace xmltree

#endif
