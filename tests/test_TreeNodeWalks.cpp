#include <gtest/gtest.h>

#include "tests/TreeCheck.h"

namespace {

constexpr int kMillion = 1000000;

TEST(TreeNodeWalks, SumAndStampSubtrees) {
    TreeNode* root = makeTree("ab");
    TreeNode* deep = TreeNode::createNode(TreeNode::createNode(root->getChild(0), "a1"), "a2");
    deep->incTreeRefCount();
    root->getChild(1)->incTreeRefCount();
    EXPECT_EQ(root->localRefcountSum(), 2);
    EXPECT_EQ(root->getChild(0)->localRefcountSum(), 1);
    root->getTreeInfo()->refCount = 3;
    EXPECT_FALSE(deep->verifyRefCounts());
    root->getTreeInfo()->refCount = 2;

    TreeInfo other;
    root->getChild(0)->setInfoRecursive(&other);
    EXPECT_EQ(deep->getTreeInfo(), &other);
    EXPECT_EQ(root->getChild(1)->getTreeInfo(), root->getTreeInfo());
    root->getChild(0)->setInfoRecursive(root->getTreeInfo());
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();
}

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
    root->setInfoRecursive(root->getTreeInfo());
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
    ASSERT_EQ(root->getNumChildren(), kMillion);
    root->getLastChild()->incTreeRefCount();
    root->setInfoRecursive(root->getTreeInfo());
    EXPECT_EQ(root->localRefcountSum(), 1);
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();
}

}  // namespace
