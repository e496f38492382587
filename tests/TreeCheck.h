#ifndef XMLTREE_TESTS_TREECHECK_H
#define XMLTREE_TESTS_TREECHECK_H

// Structural invariants of a whole tree, checked without recursion so that
// it also serves for very deep trees.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "xmltree/TreeNode.h"

inline ::testing::AssertionResult treeIsConsistent(TreeNode* anyNode) {
    if (!anyNode || !anyNode->getTreeInfo()) {
        return ::testing::AssertionFailure() << "node has no tree";
    }
    TreeInfo* info = anyNode->getTreeInfo();
    TreeNode* root = info->root;
    if (!root || root->getTreeInfo() != info) {
        return ::testing::AssertionFailure() << "record's root does not point back";
    }
    if (root->getParent() || root->getPrevSibling() || root->getNextSibling()) {
        return ::testing::AssertionFailure() << "root has a parent or siblings";
    }
    std::vector<TreeNode*> stack{root};
    while (!stack.empty()) {
        TreeNode* node = stack.back();
        stack.pop_back();
        if (node->getMagic() != kTreeMagicAlive) {
            return ::testing::AssertionFailure() << "dead node in tree";
        }
        if (node->getTreeInfo() != info) {
            return ::testing::AssertionFailure()
                   << "node <" << node->getTag() << "> has another tree record";
        }
        int n = node->getNumChildren();
        for (int i = 0; i < n; ++i) {
            TreeNode* child = node->getChild(i);
            TreeNode* prev = i > 0 ? node->getChild(i - 1) : nullptr;
            TreeNode* next = i + 1 < n ? node->getChild(i + 1) : nullptr;
            if (child->getParent() != node) {
                return ::testing::AssertionFailure()
                       << "child " << i << " of <" << node->getTag() << "> has wrong parent";
            }
            if (child->getPrevSibling() != prev || child->getNextSibling() != next) {
                return ::testing::AssertionFailure() << "sibling links of child " << i << " of <"
                                                     << node->getTag() << "> are off";
            }
            stack.push_back(child);
        }
    }
    if (!root->verifyRefCounts()) {
        return ::testing::AssertionFailure()
               << "refCount " << info->refCount << " != sum " << root->localRefcountSum();
    }
    return ::testing::AssertionSuccess();
}

// Tag texts of the children, joined with commas: "a,b,c".
inline std::string childTags(TreeNode* node) {
    std::string out;
    for (int i = 0; i < node->getNumChildren(); ++i) {
        if (i) out += ',';
        out += node->getChild(i)->getTag();
    }
    return out;
}

#endif
