#include "tests/TestSupport.h"

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
    TreeNode* bare = two->getChild(1);  // no array yet: gets one sized to fit
    two->getChild(0)->swapTree(*bare);
    EXPECT_EQ(bare->getChildrenArray()->getCapacity(), 1);
    EXPECT_EQ(two->getChild(0)->getNumChildren(), 0);
    EXPECT_TRUE(treeIsConsistent(two));
    one->deleteTree();
    two->deleteTree();
}

}  // namespace
