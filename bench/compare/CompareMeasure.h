#ifndef XMLTREE_BENCH_COMPARE_COMPAREMEASURE_H
#define XMLTREE_BENCH_COMPARE_COMPAREMEASURE_H

// The arithmetic and tree walks behind bench/compare: medians, geometric
// means of ratios, and where an xmltree tree's heap goes. Header-only so that
// the tests can reach it without the peer libraries.

#include <malloc.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "foundation/SmallObjectPool.h"
#include "foundation/StringBuffer.h"
#include "xmltree/TreeNode.h"

namespace benchcompare {

inline double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return (n % 2) ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

// Geometric mean of ratios; non-positive ratios (a missing figure) are
// left out rather than poisoning the mean.
class GeoMean {
  public:
    void add(double ratio) {
        if (ratio > 0) {
            logSum_ += std::log(ratio);
            ++count_;
        }
    }
    int count() const { return count_; }
    double value() const { return count_ ? std::exp(logSum_ / count_) : 0; }

  private:
    double logSum_ = 0;
    int count_ = 0;
};

// Number of elements in the tree under root, root included; null gives 0.
// Iterative, so that any depth is fine.
inline size_t countElements(TreeNode* root) {
    size_t n = 0;
    std::vector<TreeNode*> stack;
    if (root) stack.push_back(root);
    while (!stack.empty()) {
        TreeNode* node = stack.back();
        stack.pop_back();
        ++n;
        const int kids = node->getNumChildren();
        for (int i = 0; i < kids; ++i)
            stack.push_back(node->getChild(i));
    }
    return n;
}

// The malloc chunk behind a block: its usable size plus the 8-byte header
// glibc keeps in front of it.
inline size_t chunkBytes(const void* p) {
    return p ? malloc_usable_size(const_cast<void*>(p)) + sizeof(size_t) : 0;
}

// Heap held by a tree, summed by kind of object. Attribute sets report only
// their object: their text arena and entry array are private, so they show
// up as the remainder against the heap total measured around the parse.
struct HeapBreakdown {
    size_t nodes = 0, nodeBytes = 0;
    size_t tags = 0, tagBytes = 0, tagHeapTexts = 0;
    size_t contents = 0, contentBytes = 0, contentHeapTexts = 0;
    size_t attrSets = 0, attrSetBytes = 0;
    size_t childArrays = 0, childArrayBytes = 0;

    size_t knownBytes() const {
        return nodeBytes + tagBytes + contentBytes + attrSetBytes + childArrayBytes;
    }
};

// An object of a pooled class costs its pool block (which has no header);
// in builds without the pool, its malloc chunk.
template <class T>
inline size_t objectBytes(const T* p) {
    if (!p) return 0;
    return SmallObjectPool::enabled() ? SmallObjectPool::blockBytes(sizeof(T)) : chunkBytes(p);
}

// A tag buffer lives inside its node (objectBytes of the node counts it):
// only a text too long for its own bytes adds to it. A text inside its
// buffer object with more room than the object's own bytes is a buffer the
// parser made with room after it, in the same block.
inline void addBufferBytes(const StringBuffer* sb, size_t& count, size_t& bytes,
                           size_t& heapTexts, bool insideNode = false) {
    if (!sb) return;
    ++count;
    const size_t cap = static_cast<size_t>(sb->getCapacity());
    const size_t inlineCap = static_cast<size_t>(StringBuffer::kInlineCapacity);
    const char* object = reinterpret_cast<const char*>(sb);
    const char* text = sb->getString();
    if (text > object && text < object + sizeof(StringBuffer)) {
        if (!insideNode) {
            bytes += cap > inlineCap && SmallObjectPool::enabled()
                         ? SmallObjectPool::blockBytes(sizeof(StringBuffer) + cap - inlineCap)
                         : objectBytes(sb);
        }
        return;
    }
    if (!insideNode) bytes += objectBytes(sb);
    // Texts that fit the pool's largest block live in the pool.
    ++heapTexts;
    bytes += SmallObjectPool::enabled() && cap < SmallObjectPool::kMaxBlock
                 ? SmallObjectPool::blockBytes(cap + 1)
                 : chunkBytes(text);
}

inline HeapBreakdown breakDown(TreeNode* root) {
    HeapBreakdown b;
    std::vector<TreeNode*> stack;
    if (root) stack.push_back(root);
    while (!stack.empty()) {
        TreeNode* node = stack.back();
        stack.pop_back();
        ++b.nodes;
        b.nodeBytes += objectBytes(node);
        addBufferBytes(node->_getMyTagSB2(), b.tags, b.tagBytes, b.tagHeapTexts, true);
        addBufferBytes(node->getContentSb_const(), b.contents, b.contentBytes, b.contentHeapTexts);
        if (AttributeSet* attrs = node->getAttributeSet()) {
            ++b.attrSets;
            b.attrSetBytes += objectBytes(attrs);
        }
        if (ExtPtrArray* kids = node->getChildrenArray()) {
            ++b.childArrays;
            // Slots that fit the pool's largest block live in the pool; the
            // first ones may be inside the array's own block, after it.
            const size_t slots = static_cast<size_t>(kids->getCapacity()) * sizeof(void*);
            const char* items = reinterpret_cast<const char*>(kids->getItems());
            const char* object = reinterpret_cast<const char*>(kids);
            if (items > object && items < object + sizeof(ExtPtrArray)) {
                const size_t inside = sizeof(ExtPtrArray) - sizeof(void*) + slots;
                b.childArrayBytes += SmallObjectPool::enabled() ? SmallObjectPool::blockBytes(inside)
                                                                : chunkBytes(kids);
            } else {
                b.childArrayBytes += objectBytes(kids);
                b.childArrayBytes +=
                    SmallObjectPool::enabled() && slots <= SmallObjectPool::kMaxBlock
                        ? SmallObjectPool::blockBytes(slots)
                        : chunkBytes(kids->getItems());
            }
            for (int i = 0; i < kids->getSize(); ++i) {
                stack.push_back(static_cast<TreeNode*>(kids->elementAt(i)));
            }
        }
    }
    return b;
}

}  // namespace benchcompare

#endif
