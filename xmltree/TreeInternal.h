#ifndef XMLTREE_TREEINTERNAL_H
#define XMLTREE_TREEINTERNAL_H

// Internal to the library: helpers that several subsystems of the tree share,
// so that each rule they carry is written once.

#include <cstddef>

class AttributeSet;
class ExtPtrArray;
class TreeNode;

// Link work on a node's fields; a friend of TreeNode.
class TreeNodeLinks {
  public:
    // Destroys the children in `kids` (which their dying parent no longer
    // holds) with their subtrees and frees the array; no recursion, no
    // allocation.
    static void destroyChildren(ExtPtrArray* kids);
};

namespace treeinternal {

// Adds the pair as TreeNode::addAttribute does (the name cleaned, a leading
// digit, '.' or '-' prefixed with "A"), creating the set when there is none.
// An empty name adds nothing. False when memory runs out; the set then holds
// what it held.
bool addCleanedAttribute(AttributeSet*& set, const char* name, std::size_t nameLen,
                         const char* value, std::size_t valueLen);

}  // namespace treeinternal

#endif
