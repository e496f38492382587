#include <gtest/gtest.h>

#include "tests/TreeCheck.h"

namespace {

TEST(TreeNodeSwap, SwapNodeExchangesTagContentAndAttributesOnly) {
    TreeNode a("a", "x", 0);
    a.addAttribute("p", "1");
    a.setCdata(true);
    TreeNode b("b", nullptr, 0);
    b.ensureContentObj();  // empty content ends as no buffer at all
    a.swapNode(b);
    EXPECT_STREQ(a.getTag(), "b");
    EXPECT_EQ(a.getContentSb(), nullptr);
    EXPECT_EQ(a.getAttributeSet(), nullptr);
    EXPECT_TRUE(a.getCdata());
    EXPECT_STREQ(b.getTag(), "a");
    EXPECT_STREQ(b.getContent(), "x");
    EXPECT_TRUE(b.hasAttributeWithValue("p", "1"));

    TreeNode c;
    TreeNode d;
    c.swapNode(d);
    EXPECT_NE(c._getMyTagSB2(), nullptr);
    EXPECT_NE(d._getMyTagSB2(), nullptr);
}

TEST(TreeNodeSwap, SwapTreeBetweenTreesMovesReferences) {
    TreeNode* one = makeTree("ab");
    one->incTreeRefCount();  // on the node itself: stays in tree one
    TreeNode::createNode(one->getChild(0), "a1")->incTreeRefCount();
    TreeNode* two = makeTree("x");
    two->getChild(0)->incTreeRefCount();
    TreeNode::createNode(two->getChild(0), "x1")->incTreeRefCount();

    one->swapTree(*two);
    EXPECT_EQ(childTags(one), "x");
    EXPECT_EQ(childTags(two), "a,b");
    EXPECT_EQ(one->getTreeRefCount(), 3);
    EXPECT_EQ(two->getTreeRefCount(), 1);
    EXPECT_EQ(one->getChild(0)->getChild(0)->getTreeId(), one->getTreeId());
    EXPECT_TRUE(treeIsConsistent(one));
    EXPECT_TRUE(treeIsConsistent(two));
    one->deleteTree();
    two->deleteTree();
}

TEST(TreeNodeSwap, SwapTreeInsideOneTreeAndWithoutArray) {
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
    y->swapTree(*x);
    EXPECT_EQ(x->getNumChildren(), 7);
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();
}

}  // namespace
