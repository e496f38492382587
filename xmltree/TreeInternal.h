#ifndef XMLTREE_TREEINTERNAL_H
#define XMLTREE_TREEINTERNAL_H

// Internal to the library: helpers that several subsystems of the tree share,
// so that each rule they carry is written once.

#include <cstddef>
#include <new>

#include "foundation/PoolSlabs.h"
#include "foundation/WithRoom.h"
#include "xmltree/TreeNode.h"

// The links between a node, its parent and its siblings, kept in step with
// the parent's children array. Every attach and detach goes through link()
// and unlink(); tree membership and references are their callers' part. A
// friend of TreeNode.
class TreeNodeLinks {
  public:
    // The children array, read without handing a parsed tree's arena over
    // as the public getter does.
    static ExtPtrArray* childrenOf(TreeNode* node) { return node->children; }

    // The children array of parent, made on first use: sized after the
    // previous sibling's, since siblings tend to have alike shapes, and to
    // hold at least `atLeast`. Null when memory runs out.
    static ExtPtrArray* childArray(TreeNode* parent, int atLeast = 0) {
        if (parent->children) return parent->children;
        int cap = 5;
        const ExtPtrArray* previous = parent->prevSibling ? parent->prevSibling->children : nullptr;
        if (previous && previous->getSize() > 0) cap = previous->getSize();
        if (cap < atLeast) cap = atLeast;
        return parent->children = xmltree::WithRoom::array(cap);
    }

    // Makes child the last of parent's children. False, with nothing
    // changed, when memory runs out.
    static bool linkLast(TreeNode* parent, TreeNode* child) {
        ExtPtrArray* kids = childArray(parent);
        if (!kids) return false;
        TreeNode* last = static_cast<TreeNode*>(kids->lastElement());
        if (!kids->append(child)) return false;
        if (last) last->nextSibling = child;
        child->prevSibling = last;
        child->nextSibling = nullptr;
        child->parent = parent;
        return true;
    }

    // Puts child at `index` (0 to the number of children) among parent's
    // children. False, with nothing changed, when memory runs out.
    static bool link(TreeNode* parent, int index, TreeNode* child);

    // Takes child out of its parent's array and joins its neighbours; its
    // own parent and sibling links end null. False, with nothing changed,
    // when the parent does not list it.
    static bool unlink(TreeNode* child);

    // Destroys the children in `kids` (which their dying parent no longer
    // holds) with their subtrees and frees the array; no recursion, no
    // allocation.
    static void destroyChildren(ExtPtrArray* kids);
};

// Inline: the parser makes one per element.
inline bool TreeNode::makeTag(const char* text, int len) {
    tag = new (tagSlot) StringBuffer(text, len, 0);
    if (!tag->hasFailed()) return true;
    tag->~StringBuffer();
    tag = nullptr;
    return false;
}

namespace treeinternal {

// Adds the pair as TreeNode::addAttribute does (the name cleaned, a leading
// digit, '.' or '-' prefixed with "A"), creating the set when there is none.
// An empty name adds nothing. False when memory runs out; the set then holds
// what it held.
bool addCleanedAttribute(AttributeSet*& set, const char* name, std::size_t nameLen,
                         const char* value, std::size_t valueLen);

}  // namespace treeinternal

#endif
