#ifndef XMLTREE_FOUNDATION_MXQUEUE_H
#define XMLTREE_FOUNDATION_MXQUEUE_H

// First-in first-out queue of untyped pointers, kept in a ring buffer that
// is reused as elements come and go. It owns nothing it holds. Not copyable.
class _mxQueue {
public:
    // An empty queue; storage comes with the first push.
    _mxQueue() : m_items(nullptr), m_cap(0), m_head(0), m_count(0) {}
    _mxQueue(const _mxQueue&) = delete;
    _mxQueue& operator=(const _mxQueue&) = delete;
    // Frees the queue's storage, not what it holds.
    virtual ~_mxQueue();

    // Adds p at the back.
    bool push(void* p);  // false only when memory runs out
    // Front element (the one pushed earliest), or null when empty.
    void* pop() {
        if (!m_count) return nullptr;
        void* p = m_items[m_head];
        m_head = (m_head + 1 == m_cap) ? 0 : m_head + 1;
        --m_count;
        return p;
    }
    // Front element without taking it out; null when empty.
    void* peek() const { return m_count ? m_items[m_head] : nullptr; }
    // True while at least one element is queued.
    bool hasObjects() const { return m_count != 0; }
    // Number of elements queued.
    int getSize() const { return m_count; }
    // Drops every element (keeps the storage).
    void clear() { m_head = m_count = 0; }

private:
    bool grow();

    void** m_items;
    int m_cap;
    int m_head;
    int m_count;
};

#endif
