#include "foundation/mxQueue.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "foundation/MemoryHook.h"
_mxQueue::~_mxQueue() {
    xmltree::mem::release(m_items);
}

bool _mxQueue::push(void* p) {
    if (m_count == m_cap && !grow()) return false;
    int tail = m_head + m_count;
    if (tail >= m_cap) tail -= m_cap;
    m_items[tail] = p;
    ++m_count;
    return true;
}

// Doubles the ring and unwraps it so the front sits at slot 0.
bool _mxQueue::grow() {
    if (m_cap > INT_MAX / 2) return false;
    const int newCap = m_cap ? m_cap * 2 : 16;
    void** block =
        static_cast<void**>(xmltree::mem::allocate(static_cast<size_t>(newCap) * sizeof(void*)));
    if (!block) return false;
    const int firstRun = (m_head + m_count <= m_cap) ? m_count : m_cap - m_head;
    if (m_count) {
        std::memcpy(block, m_items + m_head, static_cast<size_t>(firstRun) * sizeof(void*));
        std::memcpy(block + firstRun, m_items,
                    static_cast<size_t>(m_count - firstRun) * sizeof(void*));
    }
    xmltree::mem::release(m_items);
    m_items = block;
    m_cap = newCap;
    m_head = 0;
    return true;
}
