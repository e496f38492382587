#ifndef XMLTREE_TREEARENACHECK_H
#define XMLTREE_TREEARENACHECK_H

// Internal to the library, for its tests and fuzzers: a parsed tree's arena
// (foundation/PoolArena.h) seen from outside. The public getters of a node's
// record, children array, attribute set and buffers hand the arena over, so
// a check that used them would change what it checks; these read the fields
// instead.

#include <string>

#include "xmltree/TreeNode.h"

class TreeArenaCheck {
  public:
    // Whether the tree holding `anyNode` is still to be freed whole.
    static bool keepsArena(const TreeNode* anyNode);
    // A node's fields, read without handing the arena over.
    static const TreeInfo* infoOf(const TreeNode* node);
    static const ExtPtrArray* childrenOf(const TreeNode* node);
    static const AttributeSet* attributesOf(const TreeNode* node);
    static const StringBuffer* contentOf(const TreeNode* node);
    // "" when the tree holding `anyNode` keeps no arena, or when every block
    // of the tree (nodes, records, buffers, arrays, sets and the blocks
    // behind them, the prolog's included) lies in its arena and the arena
    // has no other block in use; else what is wrong first.
    static std::string problemIn(const TreeNode* anyNode);
};

#endif
