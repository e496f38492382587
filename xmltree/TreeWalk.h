#ifndef XMLTREE_TREEWALK_H
#define XMLTREE_TREEWALK_H

// Internal to the library: the breadth-first walk as content extraction and
// the subtree searches use it, so that every one of them, and every caller of
// xmltree::BreadthFirst, sees the nodes in the same order.

#include "xmltree/Tree.h"
#include "xmltree/TreeNode.h"

// What a visitor tells the walk after looking at a node.
enum class WalkStep {
    kDescend,       // carry on, and visit this node's children in their turn
    kSkipChildren,  // carry on, but leave this node's subtree out
    kStop           // end the walk now
};

// Visits start and its descendants level by level, each level in document
// order: the public walk (xmltree/Tree.h), driven by a visitor.
template <class Visitor>
void walkBreadthFirst(TreeNode* start, Visitor&& visit) {
    xmltree::BreadthFirst walk(start);
    for (TreeNode* node : walk) {
        const WalkStep step = visit(node);
        if (step == WalkStep::kStop) return;
        if (step == WalkStep::kSkipChildren) walk.skipChildren();
    }
}

#endif
