#include <gtest/gtest.h>

#include "tests/TreeCheck.h"
#include "xmltree/TreeNode.h"

namespace {

TEST(TreeNodeSwap, SwapNodeExchangesOwnData) {
    TreeNode a("a", "x", 0);
    a.addAttribute("p", "1");
    a.setCdata(true);
    a.incTreeRefCount();
    TreeNode b("b", nullptr, 0);
    AttributeSet* set = a.getAttributeSet();

    a.swapNode(b);
    EXPECT_STREQ(a.getTag(), "b");
    EXPECT_EQ(a.getContentSb(), nullptr);
    EXPECT_EQ(a.getNumAttributes(), 0);
    EXPECT_EQ(a.getAttributeSet(), nullptr);
    EXPECT_STREQ(b.getTag(), "a");
    EXPECT_STREQ(b.getContent(), "x");
    EXPECT_EQ(b.getAttributeSet(), set);
    EXPECT_TRUE(b.hasAttributeWithValue("p", "1"));
    // What stays with the node object.
    EXPECT_TRUE(a.getCdata());
    EXPECT_FALSE(b.getCdata());
    EXPECT_EQ(a.getLocalRefCount(), 1);
    EXPECT_EQ(b.getLocalRefCount(), 0);
    a.decTreeRefCount();
}

TEST(TreeNodeSwap, SwapNodeNormalisesEmptyParts) {
    TreeNode a;
    TreeNode b;
    a.swapNode(b);
    ASSERT_NE(a._getMyTagSB2(), nullptr);
    ASSERT_NE(b._getMyTagSB2(), nullptr);
    EXPECT_STREQ(a.getTag(), "");
    EXPECT_STREQ(b.getTag(), "");

    // An empty content buffer on either side ends as no buffer at all.
    TreeNode c("c", nullptr, 0);
    c.ensureContentObj();
    TreeNode d("d", "long enough content to live outside the inline room", 0);
    c.swapNode(d);
    EXPECT_STREQ(c.getContent(), "long enough content to live outside the inline room");
    EXPECT_EQ(d.getContentSb(), nullptr);
    d.setContentN("new", 3);
    c.swapNode(d);
    EXPECT_STREQ(c.getContent(), "new");
    EXPECT_STREQ(d.getContent(), "long enough content to live outside the inline room");

    a.swapNode(a);  // with itself: nothing lost
    EXPECT_STREQ(a.getTag(), "");
    d.swapNode(d);
    EXPECT_STREQ(d.getContent(), "long enough content to live outside the inline room");
}

TEST(TreeNodeSwap, SwapTreeBetweenTreesMovesReferences) {
    TreeNode* one = TreeNode::createRoot("one");
    TreeNode* a1 = TreeNode::createNode(one, "a1");
    TreeNode::createNode(a1, "a1x")->incTreeRefCount();
    TreeNode::createNode(one, "a2");
    one->incTreeRefCount();  // held on the root itself: stays in tree one

    TreeNode* two = TreeNode::createRoot("two");
    TreeNode* b1 = TreeNode::createNode(two, "b1");
    b1->incTreeRefCount();
    TreeNode::createNode(b1, "b1x")->incTreeRefCount();

    one->swapTree(*two);
    EXPECT_STREQ(one->getTag(), "two");
    EXPECT_STREQ(two->getTag(), "one");
    EXPECT_EQ(childTags(one), "b1");
    EXPECT_EQ(childTags(two), "a1,a2");
    EXPECT_EQ(one->getTreeRefCount(), 3);  // its own 1 plus b1 and b1x
    EXPECT_EQ(two->getTreeRefCount(), 1);  // a1x
    EXPECT_EQ(b1->getChild(0)->getTreeId(), one->getTreeId());
    EXPECT_EQ(a1->getChild(0)->getTreeId(), two->getTreeId());
    EXPECT_TRUE(treeIsConsistent(one));
    EXPECT_TRUE(treeIsConsistent(two));
    one->deleteTree();
    two->deleteTree();
}

TEST(TreeNodeSwap, SwapTreeWithinOneTree) {
    TreeNode* root = TreeNode::createRoot("r");
    TreeNode* x = TreeNode::createNode(root, "x");
    TreeNode* y = TreeNode::createNode(root, "y");
    TreeNode::createNode(x, "x1")->incTreeRefCount();
    TreeNode::createNode(x, "x2");
    TreeNode::createNode(y, "y1");
    x->swapTree(*y);
    EXPECT_STREQ(x->getTag(), "y");
    EXPECT_EQ(childTags(x), "y1");
    EXPECT_EQ(childTags(y), "x1,x2");
    EXPECT_EQ(root->getTreeRefCount(), 1);
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();
}

TEST(TreeNodeSwap, SwapTreeWithNodeWithoutArray) {
    TreeNode* root = TreeNode::createRoot("r");
    TreeNode* full = TreeNode::createNode(root, "full");
    TreeNode* bare = TreeNode::createNode(root, "bare");
    for (int i = 0; i < 7; ++i)
        TreeNode::createNode(full, "k");
    full->swapTree(*bare);
    ASSERT_NE(full->getChildrenArray(), nullptr);
    EXPECT_EQ(full->getNumChildren(), 0);
    ASSERT_NE(bare->getChildrenArray(), nullptr);
    EXPECT_EQ(bare->getNumChildren(), 7);
    EXPECT_EQ(bare->getChildrenArray()->getCapacity(), 7);
    EXPECT_TRUE(treeIsConsistent(root));

    // Back again: the empty array receives them.
    full->swapTree(*bare);
    EXPECT_EQ(full->getNumChildren(), 7);
    EXPECT_EQ(bare->getNumChildren(), 0);
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();
}

TEST(TreeNodeSwap, SwapTreeWithDetachedNode) {
    TreeNode* root = TreeNode::createRoot("r");
    TreeNode* c = TreeNode::createNode(root, "c");
    c->incTreeRefCount();
    TreeNode loose("loose", nullptr, 0);
    root->swapTree(loose);
    EXPECT_EQ(root->getNumChildren(), 0);
    EXPECT_EQ(root->getTreeRefCount(), 0);
    EXPECT_EQ(c->getParent(), &loose);
    EXPECT_EQ(c->getTreeInfo(), nullptr);
    root->swapTree(loose);  // and back
    EXPECT_EQ(c->getParent(), root);
    EXPECT_EQ(root->getTreeRefCount(), 1);
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();
}

}  // namespace
