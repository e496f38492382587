#ifndef XMLTREE_TESTS_TREECHECK_H
#define XMLTREE_TESTS_TREECHECK_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "xmltree/TreeNode.h"

// Whole-tree invariants, walked with an explicit stack so deep trees work:
// one shared record whose root points back, parent and sibling links that
// match the children arrays, and the reference count equal to the sum.
inline ::testing::AssertionResult treeIsConsistent(TreeNode* anyNode) {
    TreeInfo* info = anyNode ? anyNode->getTreeInfo() : nullptr;
    TreeNode* root = info ? info->root : nullptr;
    if (!root || root->getTreeInfo() != info || root->getParent() || root->getPrevSibling() ||
        root->getNextSibling()) {
        return ::testing::AssertionFailure() << "bad root or record";
    }
    std::vector<TreeNode*> stack{root};
    while (!stack.empty()) {
        TreeNode* node = stack.back();
        stack.pop_back();
        if (node->getMagic() != kTreeMagicAlive || node->getTreeInfo() != info) {
            return ::testing::AssertionFailure() << "<" << node->getTag() << "> not in tree";
        }
        int n = node->getNumChildren();
        for (int i = 0; i < n; ++i) {
            TreeNode* c = node->getChild(i);
            if (c->getParent() != node || c->getPrevSibling() != node->getChild(i - 1) ||
                c->getNextSibling() != node->getChild(i + 1)) {
                return ::testing::AssertionFailure()
                       << "links of child " << i << " of <" << node->getTag() << ">";
            }
            stack.push_back(c);
        }
    }
    if (!root->verifyRefCounts()) return ::testing::AssertionFailure() << "refCount off";
    return ::testing::AssertionSuccess();
}

// Children's tags joined with commas: "a,b,c".
inline std::string childTags(TreeNode* node) {
    std::string out;
    for (int i = 0; i < node->getNumChildren(); ++i) {
        out += (i ? "," : "") + std::string(node->getChild(i)->getTag());
    }
    return out;
}

// Deletes the whole tree when the root goes out of scope.
using Tree = std::unique_ptr<TreeNode>;

inline TreeNode* add(TreeNode* parent, const char* tag, const char* content = nullptr) {
    return TreeNode::createNode2(parent, tag, content);
}

// A root with one child per letter of `names`, each tagged and filled with
// its letter.
inline TreeNode* makeTree(const char* names) {
    TreeNode* root = TreeNode::createRoot("root");
    for (const char* p = names; *p; ++p) {
        char text[2] = {*p, 0};
        TreeNode::createNode2(root, text, text);
    }
    return root;
}

#endif
