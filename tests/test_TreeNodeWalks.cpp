#include <gtest/gtest.h>

#include "tests/TreeCheck.h"
#include "xmltree/TreeNode.h"

namespace {

constexpr int kMillion = 1000000;

TEST(TreeNodeWalks, SumsAndVerify) {
    TreeNode leaf;
    EXPECT_EQ(leaf.localRefcountSum(), 0);
    leaf.incTreeRefCount();
    leaf.incTreeRefCount();
    EXPECT_EQ(leaf.localRefcountSum(), 2);
    EXPECT_FALSE(leaf.verifyRefCounts());  // no tree

    TreeNode* root = TreeNode::createRoot("r");
    EXPECT_TRUE(root->verifyRefCounts());
    TreeNode* a = TreeNode::createNode(root, "a");
    TreeNode* a1 = TreeNode::createNode(a, "a1");
    TreeNode* b = TreeNode::createNode(root, "b");
    a1->incTreeRefCount();
    b->incTreeRefCount();
    EXPECT_EQ(root->localRefcountSum(), 2);
    EXPECT_EQ(a->localRefcountSum(), 1);
    EXPECT_TRUE(a1->verifyRefCounts());

    // A count changed behind the tree's back is caught.
    root->getTreeInfo()->refCount = 3;
    EXPECT_FALSE(b->verifyRefCounts());
    EXPECT_EQ(root->getTreeInfo()->refCount, 3);
    root->getTreeInfo()->refCount = 2;
    EXPECT_TRUE(root->verifyRefCounts());
    root->deleteTree();
}

TEST(TreeNodeWalks, SetInfoRecursiveStampsWholeSubtree) {
    TreeInfo other;
    TreeNode leaf;
    leaf.setInfoRecursive(&other);
    EXPECT_EQ(leaf.getTreeInfo(), &other);
    leaf.setInfoRecursive(nullptr);

    TreeNode* root = TreeNode::createRoot("r");
    TreeNode* a = TreeNode::createNode(root, "a");
    TreeNode* a1 = TreeNode::createNode(a, "a1");
    TreeNode* a2 = TreeNode::createNode(TreeNode::createNode(a, "a2"), "a21");
    TreeNode* b = TreeNode::createNode(root, "b");
    TreeInfo* own = root->getTreeInfo();
    a->setInfoRecursive(&other);
    EXPECT_EQ(a->getTreeInfo(), &other);
    EXPECT_EQ(a1->getTreeInfo(), &other);
    EXPECT_EQ(a2->getTreeInfo(), &other);
    EXPECT_EQ(b->getTreeInfo(), own);
    EXPECT_EQ(root->getTreeInfo(), own);
    a->setInfoRecursive(own);
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();
}

// A chain a million deep and a node with a million children: built, walked
// and destroyed without the call stack growing with the tree.
TEST(TreeNodeWalks, MillionDeepChain) {
    TreeNode* root = TreeNode::createRoot("chain");
    TreeNode* node = root;
    TreeNode* middle = nullptr;
    for (int i = 0; i < kMillion; ++i) {
        node = TreeNode::createNode(node, "n");
        ASSERT_NE(node, nullptr);
        if (i == kMillion / 2) middle = node;
    }
    node->incTreeRefCount();
    EXPECT_EQ(root->localRefcountSum(), 1);
    EXPECT_TRUE(node->verifyRefCounts());

    TreeInfo* own = root->getTreeInfo();
    TreeInfo other;
    root->setInfoRecursive(&other);
    EXPECT_EQ(node->getTreeInfo(), &other);
    root->setInfoRecursive(own);
    EXPECT_TRUE(treeIsConsistent(node));

    // Splitting the chain moves the reference with the lower half.
    root->incTreeRefCount();
    middle->removeFromTree();
    EXPECT_EQ(root->getTreeRefCount(), 1);
    EXPECT_EQ(middle->getTreeRefCount(), 1);
    EXPECT_EQ(node->getRoot(), middle);
    EXPECT_TRUE(middle->verifyRefCounts());
    root->deleteTree();
    middle->deleteTree();
}

TEST(TreeNodeWalks, MillionWideNode) {
    TreeNode* root = TreeNode::createRoot("wide");
    for (int i = 0; i < kMillion; ++i) {
        ASSERT_NE(TreeNode::createNode(root, "c"), nullptr);
    }
    ASSERT_EQ(root->getNumChildren(), kMillion);
    TreeNode* last = root->getLastChild();
    last->incTreeRefCount();
    root->getChild(kMillion / 2)->incTreeRefCount();
    EXPECT_EQ(root->localRefcountSum(), 2);
    EXPECT_TRUE(root->verifyRefCounts());
    EXPECT_EQ(last->getPrevSibling(), root->getChild(kMillion - 2));

    TreeInfo* own = root->getTreeInfo();
    TreeInfo other;
    root->setInfoRecursive(&other);
    EXPECT_EQ(last->getTreeInfo(), &other);
    root->setInfoRecursive(own);
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();
}

}  // namespace
