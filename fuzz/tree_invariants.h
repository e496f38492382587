#ifndef XMLTREE_FUZZ_TREE_INVARIANTS_H
#define XMLTREE_FUZZ_TREE_INVARIANTS_H

// The bookkeeping every tree must keep whatever was done to it: one live
// record shared by all its nodes whose root points back, children arrays
// without holes whose parent and sibling links follow the array, and the
// record's reference count equal to the sum of the nodes' own; and while a
// parsed tree is still to be freed whole, its blocks and its arena's the
// same. Shared by the operations program and the unit tests; walked with an
// explicit stack so that trees a million deep can be checked, and through
// fields that asking leaves as they are (the public getters of the record
// and of the children array would hand the tree's arena over).

#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

#include "xmltree/TreeArenaCheck.h"
#include "xmltree/TreeNode.h"

namespace treecheck {

// "" when the tree holding `anyNode` is sound, else what is wrong first.
// `visit` sees every node (it may check more, returning "" or a problem);
// `seen`, when given, collects the nodes and fails on one reached twice.
inline std::string problemIn(TreeNode* anyNode,
                             const std::function<std::string(TreeNode*)>& visit = nullptr,
                             std::unordered_set<const TreeNode*>* seen = nullptr) {
    const TreeInfo* info = anyNode ? TreeArenaCheck::infoOf(anyNode) : nullptr;
    if (!info || info->magic != kTreeMagicAlive) return "no live record";
    TreeNode* root = info->root;
    if (!root || TreeArenaCheck::infoOf(root) != info)
        return "the record's root is not in the tree";
    if (root->getParent() || root->getPrevSibling() || root->getNextSibling())
        return "the root has a parent or siblings";
    int sum = 0;
    std::vector<TreeNode*> stack{root};
    while (!stack.empty()) {
        TreeNode* n = stack.back();
        stack.pop_back();
        if (n->getMagic() != kTreeMagicAlive) return "a node is not alive";
        if (TreeArenaCheck::infoOf(n) != info)
            return "<" + std::string(n->getTag()) + "> not in the tree";
        if (seen && !seen->insert(n).second) return "a node reachable twice";
        if (visit) {
            const std::string problem = visit(n);
            if (!problem.empty()) return problem;
        }
        sum += n->getLocalRefCount();
        const ExtPtrArray* kids = TreeArenaCheck::childrenOf(n);
        const int count = kids ? kids->getSize() : 0;
        if (n->getNumChildren() != count) return "getNumChildren differs from the array";
        for (int i = 0; i < count; ++i) {
            TreeNode* c = static_cast<TreeNode*>(kids->elementAt(i));
            if (!c) return "a null slot in a children array";
            if (c->getParent() != n || c->getPrevSibling() != n->getChild(i - 1) ||
                c->getNextSibling() != n->getChild(i + 1))
                return "links of child " + std::to_string(i) + " of <" + n->getTag() +
                       "> differ from the array";
            stack.push_back(c);
        }
    }
    if (info->refCount != sum) return "the tree's count is not the sum of its nodes'";
    if (!root->verifyRefCounts()) return "verifyRefCounts false";
    return TreeArenaCheck::problemIn(root);
}

}  // namespace treecheck

#endif
