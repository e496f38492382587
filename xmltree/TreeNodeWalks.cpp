// Whole-subtree walks that keep tree membership and reference counts right.
// They run on an explicit stack so that document depth never reaches the
// call stack. Childless nodes are handled where they are found instead of
// being pushed: a node with a million leaf children then needs no stack
// room at all.

#include "xmltree/TreeInternal.h"
#include "xmltree/TreeNode.h"

namespace {

// Calls visit(child) for every node below `top`, in no particular order.
template <class Visit>
void forEachDescendant(TreeNode* top, Visit visit) {
    if (top->getNumChildren() == 0) return;
    ExtPtrArray stack;
    stack.append(top);
    while (stack.getSize() > 0) {
        ExtPtrArray* kids = TreeNodeLinks::childrenOf(static_cast<TreeNode*>(stack.pop()));
        void** items = kids->getItems();
        int n = kids->getSize();
        for (int i = 0; i < n; ++i) {
            TreeNode* child = static_cast<TreeNode*>(items[i]);
            visit(child);
            if (child->getNumChildren() > 0) stack.append(child);
        }
    }
}

}  // namespace

void TreeNode::setInfoRecursive(TreeInfo* info) {
    editing();
    treeInfo = info;
    forEachDescendant(this, [info](TreeNode* n) { n->treeInfo = info; });
}

int TreeNode::localRefcountSum() {
    int sum = localRefCount;
    forEachDescendant(this, [&sum](TreeNode* n) { sum += n->localRefCount; });
    return sum;
}

bool TreeNode::verifyRefCounts() {
    if (!treeInfo || !treeInfo->root) return false;
    return treeInfo->root->localRefcountSum() == treeInfo->refCount;
}
