// Whole-subtree walks that keep tree membership and reference counts right.
// They run on an explicit stack so that document depth never reaches the
// call stack. Childless nodes are handled where they are found instead of
// being pushed: a node with a million leaf children then needs no stack
// room at all.

#include "xmltree/TreeNode.h"

void TreeNode::setInfoRecursive(TreeInfo* info) {
    treeInfo = info;
    if (getNumChildren() == 0) return;
    ExtPtrArray stack;
    stack.append(this);
    while (stack.getSize() > 0) {
        TreeNode* node = static_cast<TreeNode*>(stack.pop());
        void** items = node->children->getItems();
        int n = node->children->getSize();
        for (int i = 0; i < n; ++i) {
            TreeNode* child = static_cast<TreeNode*>(items[i]);
            child->treeInfo = info;
            if (child->getNumChildren() > 0) stack.append(child);
        }
    }
}

int TreeNode::localRefcountSum() {
    int sum = localRefCount;
    if (getNumChildren() == 0) return sum;
    ExtPtrArray stack;
    stack.append(this);
    while (stack.getSize() > 0) {
        TreeNode* node = static_cast<TreeNode*>(stack.pop());
        void** items = node->children->getItems();
        int n = node->children->getSize();
        for (int i = 0; i < n; ++i) {
            TreeNode* child = static_cast<TreeNode*>(items[i]);
            sum += child->localRefCount;
            if (child->getNumChildren() > 0) stack.append(child);
        }
    }
    return sum;
}

bool TreeNode::verifyRefCounts() {
    if (!treeInfo || !treeInfo->root) return false;
    return treeInfo->root->localRefcountSum() == treeInfo->refCount;
}
