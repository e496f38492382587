#include "tests/TestSupport.h"

namespace {

TEST(TreeNodeChildren, AttachGuardsAndReferences) {
    TreeNode* root = makeTree("ab");
    TreeNode* a = root->getChild(0);
    TreeNode loose;
    EXPECT_EQ(TreeNode::createNode(&loose, "x"), nullptr);
    EXPECT_FALSE(root->appendChild2(a, 0));
    EXPECT_FALSE(a->appendChild2(root, 0));
    EXPECT_FALSE(root->getChild(1)->appendChild2(a, 0));
    EXPECT_FALSE(root->insertChild(0, a));
    TreeNode* other = makeTree("xy");
    other->getChild(0)->incTreeRefCount();
    other->getChild(1)->incTreeRefCount();
    other->getTreeInfo()->xmlDecl = new TreeNode("xml", nullptr, 0);
    EXPECT_FALSE(root->insertChild(3, other));
    ASSERT_TRUE(root->getChild(1)->appendChild2(other, 0));
    EXPECT_EQ(root->getTreeRefCount(), 2);
    EXPECT_EQ(other->getChild(1)->getTreeId(), root->getTreeId());
    ASSERT_TRUE(root->insertChild(0, new TreeNode("n", nullptr, 0)));
    ASSERT_TRUE(root->insertChild(2, new TreeNode("m", nullptr, 0)));
    EXPECT_EQ(childTags(root), "n,a,m,b");
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();
}

// A reference on the parent keeps the rest of the tree when a child goes
// (the child is deleted); a reference on the child only makes it a tree of
// its own and ends the old one.
TEST(TreeNodeChildren, DetachingFollowsTheReferences) {
    TreeNode* root = makeTree("abc");
    root->incTreeRefCount();
    TreeNode* b = root->getChild(1);
    TreeNode::createNode(b, "inner")->incTreeRefCount();
    b->removeFromTree();
    EXPECT_NE(b->getTreeId(), root->getTreeId());
    EXPECT_EQ(b->getTreeRefCount(), 1);
    EXPECT_EQ(root->getTreeRefCount(), 1);
    root->removeChildByIndex(0);
    EXPECT_EQ(childTags(root), "c");
    EXPECT_TRUE(treeIsConsistent(root) && treeIsConsistent(b));
    b->deleteTree();
    root->deleteTree();
    root = makeTree("ab");
    TreeNode* a = root->getChild(0);
    a->incTreeRefCount();
    root->removeChildByIndex(0);
    EXPECT_EQ(a->getRoot(), a);
    EXPECT_EQ(a->getTreeRefCount(), 1);
    a->deleteTree();
}

TEST(TreeNodeChildren, RemoveEveryMatch) {
    TreeNode* root = makeTree("axbxxc");
    root->incTreeRefCount();
    TreeNode* kept = root->getChild(3);
    kept->incTreeRefCount();
    root->removeChild("x");
    EXPECT_EQ(childTags(root), "a,b,c");
    EXPECT_EQ(kept->getRoot(), kept);  // survives as its own tree
    TreeNode::createNode(root, "d");   // no content buffer reads as ""
    root->getChild(1)->setContentN("", 0);
    root->removeChildWithContent("");
    EXPECT_EQ(childTags(root), "a,c");
    kept->deleteTree();
    root->deleteTree();

    // The only reference is on the first match: the rest of the tree is
    // destroyed by that detach, and the loop must not touch it afterwards.
    root = makeTree("xyx");
    kept = root->getChild(0);
    kept->incTreeRefCount();
    root->removeChild("x");
    EXPECT_TRUE(treeIsConsistent(kept));
    kept->deleteTree();
}

TEST(TreeNodeChildren, MovesAndRenames) {
    TreeNode* root = makeTree("abcd");
    root->incTreeRefCount();
    root->getChild(2)->setContentN("a", 1);
    root->moveUpChildWithContent("a");  // child 0 is never looked at
    root->moveDownChildWithContent("d");
    root->moveDownChildWithContent("b");
    EXPECT_EQ(childTags(root), "a,c,d,b");
    root->renameChildTag("a", "n e w");
    root->renameChildTag("c", "new");
    EXPECT_EQ(childTags(root), "new,new,d,b");
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();
}

}  // namespace
