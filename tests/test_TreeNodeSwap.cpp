#include <gtest/gtest.h>

#include "tests/TreeCheck.h"

namespace {

TEST(TreeNodeSwap, SwapNodeMovesOnlyTagContentAndAttributes) {
    TreeNode a("a", "x", 0);
    a.addAttribute("p", "1");
    a.setCdata(true);
    TreeNode b;
    b.ensureContentObj();
    a.swapNode(b);
    EXPECT_STREQ(a.getTag(), "");
    EXPECT_NE(a._getMyTagSB2(), nullptr);
    EXPECT_EQ(a.getContentSb(), nullptr);  // empty content ends as no buffer
    EXPECT_EQ(a.getAttributeSet(), nullptr);
    EXPECT_TRUE(a.getCdata());
    EXPECT_STREQ(b.getTag(), "a");
    EXPECT_STREQ(b.getContent(), "x");
    EXPECT_TRUE(b.hasAttributeWithValue("p", "1"));
}

TEST(TreeNodeSwap, SwapTreeMovesReferencesBetweenTrees) {
    TreeNode* one = makeTree("ab");
    one->incTreeRefCount();  // on the node itself: stays in tree one
    TreeNode::createNode(one->getChild(0), "a1")->incTreeRefCount();
    TreeNode* two = makeTree("x");
    TreeNode::createNode(two->getChild(0), "x1")->incTreeRefCount();
    two->getChild(0)->incTreeRefCount();
    one->swapTree(*two);
    EXPECT_EQ(childTags(one), "x");
    EXPECT_EQ(childTags(two), "a,b");
    EXPECT_EQ(one->getTreeRefCount(), 3);
    EXPECT_EQ(two->getTreeRefCount(), 1);
    EXPECT_TRUE(treeIsConsistent(one));
    EXPECT_TRUE(treeIsConsistent(two));
    one->deleteTree();
    two->deleteTree();
}

TEST(TreeNodeSwap, SwapTreeWithNodeWithoutArray) {
    TreeNode* root = makeTree("xy");
    TreeNode* x = root->getChild(0);
    TreeNode* y = root->getChild(1);
    for (int i = 0; i < 7; ++i)
        TreeNode::createNode(x, "k")->incTreeRefCount();
    x->swapTree(*y);
    EXPECT_EQ(x->getNumChildren(), 0);
    EXPECT_NE(x->getChildrenArray(), nullptr);
    EXPECT_EQ(y->getChildrenArray()->getCapacity(), 7);
    EXPECT_EQ(root->getTreeRefCount(), 7);
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();
}

}  // namespace
