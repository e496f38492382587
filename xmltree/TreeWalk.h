#ifndef XMLTREE_TREEWALK_H
#define XMLTREE_TREEWALK_H

// Internal to the library: the breadth-first walk that content extraction and
// the subtree searches share, so that every one of them sees the nodes in the
// same order.

#include "foundation/ExtPtrArray.h"
#include "foundation/mxQueue.h"
#include "xmltree/TreeNode.h"

// What a visitor tells the walk after looking at a node.
enum class WalkStep {
    kDescend,       // carry on, and visit this node's children in their turn
    kSkipChildren,  // carry on, but leave this node's subtree out
    kStop           // end the walk now
};

// Visits start and its descendants level by level, each level in document
// order. Two queues keep memory small on wide trees: the visit queue only
// ever holds the children of one parent, and the parent queue holds visited
// nodes whose children are still to come, not those children themselves.
// No recursion, so depth costs no stack.
template <class Visitor>
void walkBreadthFirst(TreeNode* start, Visitor&& visit) {
    _mxQueue toVisit;
    _mxQueue parents;
    toVisit.push(start);
    while (toVisit.hasObjects()) {
        TreeNode* node = static_cast<TreeNode*>(toVisit.pop());
        WalkStep step = visit(node);
        if (step == WalkStep::kStop) return;
        ExtPtrArray* kids = node->getChildrenArray();
        if (step == WalkStep::kDescend && kids && kids->getSize() > 0) parents.push(node);
        // Refill from one parent; a parent whose slots are all empty gives
        // nothing, so take the next one rather than end the walk early.
        while (!toVisit.hasObjects()) {
            TreeNode* parent = static_cast<TreeNode*>(parents.pop());
            if (!parent) return;
            ExtPtrArray* parentKids = parent->getChildrenArray();
            void** slots = parentKids->getItems();
            int n = parentKids->getSize();
            for (int i = 0; i < n; ++i) {
                if (slots[i]) toVisit.push(slots[i]);
            }
        }
    }
}

#endif
