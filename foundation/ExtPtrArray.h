#ifndef XMLTREE_FOUNDATION_EXTPTRARRAY_H
#define XMLTREE_FOUNDATION_EXTPTRARRAY_H

#include "foundation/PooledObject.h"

#include <cstdint>

class StringBuffer;
class TreeArenaCheck;
namespace xmltree {
class WithRoom;
}

// An ordered array of untyped pointers. The array never owns its elements,
// except that removeAllObjects deletes them (only for StringBuffer lists).
//
// Growth is geometric whatever growBy asks, so appending is amortised O(1).
// ExtPtrArray(n, growBy) reserves exactly n slots, which keeps the many small
// children arrays of a tree small. The first slot is inside the object; more
// slots of up to SmallObjectPool::kMaxBlock bytes come from the small-object
// pool, larger ones from malloc. Not copyable.
class ExtPtrArray {
public:
    // Heap instances come from the small-object pool.
    XMLTREE_SMALL_OBJECT_POOLED(ExtPtrArray)
    // Room for one element, inside the object; allocates on the second append.
    ExtPtrArray() : m_items(m_inline), m_size(0), m_cap(1) {}
    // Room for exactly initialCapacity elements (at least the one inside);
    // growBy is only a hint.
    ExtPtrArray(int initialCapacity, int growBy);
    ExtPtrArray(const ExtPtrArray&) = delete;
    ExtPtrArray& operator=(const ExtPtrArray&) = delete;
    virtual ~ExtPtrArray();  // frees the slots only

    // Adds p after the last element; false when memory runs out.
    bool append(void* p) {
        if (m_size == m_cap && !grow()) return false;
        m_items[m_size++] = p;
        return true;
    }
    // Inserts before `index`; a negative index reads as 0 and one past the
    // end appends.
    bool insertAt(int index, void* p);
    // Takes out the element at index, keeping the order of the rest, and
    // returns it; null (and nothing changes) when index is out of range.
    void* removeAt(int index);
    // The element at index; null when index is out of range.
    void* elementAt(int index) const {
        return (static_cast<unsigned>(index) < static_cast<unsigned>(m_size)) ? m_items[index]
                                                                             : nullptr;
    }
    // The last element; null when the array is empty.
    void* lastElement() const { return m_size ? m_items[m_size - 1] : nullptr; }
    void* pop() { return m_size ? m_items[--m_size] : nullptr; }  // null when empty
    // Number of elements.
    int getSize() const { return m_size; }
    void removeAll() { m_size = 0; }  // keeps the storage
    // Deletes every element as a StringBuffer (through its virtual
    // destructor), then empties the array. Only for arrays of StringBuffer*.
    void removeAllObjects();
    // elementAt(index) as a StringBuffer*.
    StringBuffer* sbAt(int index) const { return static_cast<StringBuffer*>(elementAt(index)); }
    // Stable sort; compare receives pointers to two slots (void* const*).
    void sort(int (*compare)(const void*, const void*));

    // Direct access to the slots for tight loops; valid until the next change.
    void** getItems() const { return m_items; }
    // Room for capacity elements in all; false when memory runs out.
    bool reserve(int capacity);
    // Elements that fit before the array must grow.
    int getCapacity() const { return m_cap; }

private:
    friend class ::TreeArenaCheck;  // reads where the slots live
    // For arrays made with room (foundation/WithRoom.h, internal): the object
    // is followed in its block by `room` more bytes of slots, which continue
    // m_inline.
    friend class xmltree::WithRoom;
    explicit ExtPtrArray(uint32_t room)
        : m_items(m_inline), m_size(0), m_cap(1 + static_cast<int>(room / sizeof(void*))) {}
    bool grow();  // room for at least one more element
    // The slots are the object's own (m_inline and any room after it).
    bool slotsInside() const { return m_items == m_inline; }
    // How many slots the object holds: m_cap while they are in use, noted
    // in m_inline once the slots have moved out (a made-with-room array's
    // delete needs its block's size).
    int insideCapacity() const;

    void** m_items;
    int m_size;
    int m_cap;
    void* m_inline[1];
};

static_assert(sizeof(void*) != 8 || sizeof(ExtPtrArray) == 32,
              "ExtPtrArray is meant to be 32 bytes on 64-bit targets");

#endif
