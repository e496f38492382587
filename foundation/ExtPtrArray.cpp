#include "foundation/ExtPtrArray.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "foundation/MemoryHook.h"
#include "foundation/PoolArena.h"
#include "foundation/SmallObjectPool.h"
#include "foundation/StringBuffer.h"

namespace {

// Most children arrays hold a few slots: those come from the pool, which a
// tree's parse and release use anyway. Past kMaxBlock bytes the slots move to
// malloc, where realloc may grow them in place.
constexpr int kPooledSlots = static_cast<int>(SmallObjectPool::kMaxBlock / sizeof(void*));

void releaseSlots(void** items, int cap) {
    if (cap <= kPooledSlots) {
        SmallObjectPool::deallocate(items, static_cast<size_t>(cap) * sizeof(void*));
    } else {
        xmltree::TreeArena::releaseLarge(items);
    }
}

// Slots for `capacity` holding the first `size` of `items`, whose pooled
// storage of `cap` slots goes back unless it is inside the array object;
// null (and `items` untouched) when memory runs out.
void** moveSlots(void** items, int size, int cap, bool inside, int capacity) {
    const size_t bytes = static_cast<size_t>(capacity) * sizeof(void*);
    void* block = capacity <= kPooledSlots ? SmallObjectPool::allocate(bytes)
                                           : xmltree::TreeArena::allocateLarge(bytes);
    if (!block) return nullptr;
    if (size) std::memcpy(block, items, static_cast<size_t>(size) * sizeof(void*));
    if (!inside) releaseSlots(items, cap);
    return static_cast<void**>(block);
}

}  // namespace

XMLTREE_SMALL_OBJECT_POOLED_DEFINE(ExtPtrArray)

ExtPtrArray::ExtPtrArray(int initialCapacity, int /*growBy*/) : ExtPtrArray() {
    // Exactly what was asked: most children arrays stay small.
    if (initialCapacity > m_cap) reserve(initialCapacity);
}

ExtPtrArray::~ExtPtrArray() {
    if (!slotsInside()) releaseSlots(m_items, m_cap);
}

bool ExtPtrArray::reserve(int capacity) {
    if (capacity <= m_cap) return true;
    if (static_cast<size_t>(capacity) > SIZE_MAX / sizeof(void*)) return false;
    // Slots inside the object are never more than a pool block holds.
    void** block = m_cap > kPooledSlots
                       ? static_cast<void**>(xmltree::TreeArena::reallocateLarge(
                             m_items, static_cast<size_t>(capacity) * sizeof(void*)))
                       : moveSlots(m_items, m_size, m_cap, slotsInside(), capacity);
    if (!block) return false;
    if (slotsInside()) {
        const int inside = m_cap;
        std::memcpy(m_inline, &inside, sizeof inside);
    }
    m_items = block;
    m_cap = capacity;
    return true;
}

int ExtPtrArray::insideCapacity() const {
    if (slotsInside()) return m_cap;
    int inside;
    std::memcpy(&inside, m_inline, sizeof inside);
    return inside;
}

bool ExtPtrArray::grow() {
    if (m_size < m_cap) return true;
    if (m_cap == INT_MAX) return false;
    // Geometric growth (x2, at least 8 slots) whatever growBy asked for.
    int newCap = (m_cap <= INT_MAX / 2) ? m_cap * 2 : INT_MAX;
    if (newCap < 8) newCap = 8;
    return reserve(newCap);
}

bool ExtPtrArray::insertAt(int index, void* p) {
    if (index < 0) index = 0;
    if (index >= m_size) return append(p);
    if (m_size == m_cap && !grow()) return false;
    std::memmove(m_items + index + 1, m_items + index,
                 static_cast<size_t>(m_size - index) * sizeof(void*));
    m_items[index] = p;
    ++m_size;
    return true;
}

void* ExtPtrArray::removeAt(int index) {
    if (static_cast<unsigned>(index) >= static_cast<unsigned>(m_size)) return nullptr;
    void* p = m_items[index];
    std::memmove(m_items + index, m_items + index + 1,
                 static_cast<size_t>(m_size - index - 1) * sizeof(void*));
    --m_size;
    return p;
}

void ExtPtrArray::removeAllObjects() {
    // Empty the array first, so that nothing reachable from a destructor
    // sees half-deleted elements.
    const int n = m_size;
    m_size = 0;
    for (int i = 0; i < n; ++i)
        delete static_cast<StringBuffer*>(m_items[i]);
}

void ExtPtrArray::sort(int (*compare)(const void*, const void*)) {
    if (!compare || m_size < 2) return;
    std::stable_sort(m_items, m_items + m_size,
                     [compare](void* const& a, void* const& b) { return compare(&a, &b) < 0; });
}
