#include <gtest/gtest.h>

#include "tests/TreeCheck.h"

namespace {

constexpr int kMillion = 1000000;

// Built, walked, split and destroyed without the call stack growing with
// the depth.
TEST(TreeNodeWalks, MillionDeepChain) {
    TreeNode* root = TreeNode::createRoot("chain");
    TreeNode* node = root;
    TreeNode* middle = nullptr;
    for (int i = 0; i < kMillion; ++i) {
        node = TreeNode::createNode(node, "n");
        if (i == kMillion / 2) middle = node;
    }
    node->incTreeRefCount();
    root->incTreeRefCount();
    TreeInfo other;
    middle->setInfoRecursive(&other);
    EXPECT_EQ(node->getTreeInfo(), &other);
    middle->setInfoRecursive(root->getTreeInfo());
    EXPECT_EQ(root->localRefcountSum(), 2);
    EXPECT_TRUE(treeIsConsistent(node));
    middle->removeFromTree();
    EXPECT_EQ(node->getRoot(), middle);
    EXPECT_TRUE(middle->verifyRefCounts());
    EXPECT_TRUE(root->verifyRefCounts());
    root->deleteTree();
    middle->deleteTree();
}

TEST(TreeNodeWalks, MillionWideNode) {
    TreeNode* root = TreeNode::createRoot("wide");
    for (int i = 0; i < kMillion; ++i)
        TreeNode::createNode(root, "c");
    root->getLastChild()->incTreeRefCount();
    root->setInfoRecursive(root->getTreeInfo());
    EXPECT_EQ(root->localRefcountSum(), 1);
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();
}

}  // namespace
