#ifndef XMLTREE_FOUNDATION_POOLEDOBJECT_H
#define XMLTREE_FOUNDATION_POOLEDOBJECT_H

#include <cstddef>
#include <new>

// Put inside a class body: objects of the class made with new come from the
// library's small-object pool instead of the global heap. Declares plain and
// nothrow new, placement new (a class-scope new hides the global one), sized
// delete, and the delete that runs when a constructor throws after a nothrow
// new. The library defines them; new-expressions and delete work as usual.
#define XMLTREE_SMALL_OBJECT_POOLED(Class)                                          \
    static void* operator new(std::size_t n);                                       \
    static void* operator new(std::size_t n, const std::nothrow_t&) noexcept;       \
    static void* operator new(std::size_t, void* where) noexcept { return where; }  \
    static void operator delete(void* p, std::size_t n) noexcept;                   \
    static void operator delete(void* p, const std::nothrow_t&) noexcept;           \
    static void operator delete(void*, void*) noexcept {}

#endif
