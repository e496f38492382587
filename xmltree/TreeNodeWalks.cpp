// Whole-subtree walks that keep tree membership and reference counts right.
// They run on an explicit stack so that document depth never reaches the
// call stack.

#include "xmltree/TreeNode.h"

namespace {

void pushChildren(ExtPtrArray& stack, const ExtPtrArray* kids) {
    if (!kids) return;
    void** items = kids->getItems();
    int n = kids->getSize();
    for (int i = 0; i < n; ++i)
        stack.append(items[i]);
}

}  // namespace

void TreeNode::setInfoRecursive(TreeInfo* info) {
    if (getNumChildren() == 0) {
        treeInfo = info;
        return;
    }
    ExtPtrArray stack;
    stack.append(this);
    while (stack.getSize() > 0) {
        TreeNode* node = static_cast<TreeNode*>(stack.pop());
        node->treeInfo = info;
        pushChildren(stack, node->children);
    }
}

int TreeNode::localRefcountSum() {
    if (getNumChildren() == 0) return localRefCount;
    int sum = 0;
    ExtPtrArray stack;
    stack.append(this);
    while (stack.getSize() > 0) {
        TreeNode* node = static_cast<TreeNode*>(stack.pop());
        sum += node->localRefCount;
        pushChildren(stack, node->children);
    }
    return sum;
}

bool TreeNode::verifyRefCounts() {
    if (!treeInfo || !treeInfo->root) return false;
    return treeInfo->root->localRefcountSum() == treeInfo->refCount;
}
