#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/TreeCheck.h"

namespace {

// Records the order in which node destructors start, and whether the tree
// record was still alive at that moment.
std::vector<std::string> gLog;

class ProbeNode : public TreeNode {
  public:
    explicit ProbeNode(const char* name) : TreeNode(name, nullptr, 0) {}
    ~ProbeNode() override {
        bool dead = getTreeInfo() && getTreeInfo()->magic != kTreeMagicAlive;
        gLog.push_back(std::string(getTag()) + (dead ? "!" : ""));
    }
};

TreeNode* probeUnder(TreeNode* parent, const char* name) {
    TreeNode* n = new ProbeNode(name);
    EXPECT_TRUE(parent->appendChild2(n, 0));
    return n;
}

TEST(TreeNodeModel, EmptyThingsStayUnallocated) {
    TreeNode named("a b<c>", "text", 0);
    EXPECT_STREQ(named.getTag(), "abc");
    TreeNode copy(named);
    EXPECT_EQ(copy._getMyTagSB2(), nullptr);
    EXPECT_EQ(copy.getContentSb(), nullptr);
    DataBuffer empty;
    TreeNode* roots[] = {TreeNode::createRoot(nullptr), TreeNode::createRoot(""),
                         TreeNode::createRoot2("r", ""), TreeNode::createRoot3("r", empty)};
    for (TreeNode* r : roots) {
        EXPECT_EQ(r->getContentSb(), nullptr);
        EXPECT_EQ(r->getRoot(), r);
        EXPECT_EQ(r->getTreeRefCount(), 0);
        r->deleteTree();
    }
    named.setTag(nullptr);  // a name becomes an existing, empty one
    EXPECT_NE(named._getMyTagSB2(), nullptr);
    EXPECT_STREQ(named.getTag(), "");
    copy.setTag(nullptr);
    EXPECT_EQ(copy._getMyTagSB2(), nullptr);
}

TEST(TreeNodeModel, TreeIdsComeFromOneCounter) {
    int first = TreeInfo().treeId;
    TreeNode* a = TreeNode::createRoot("a");
    EXPECT_EQ(a->getTreeId(), first + 1);
    TreeNode* child = TreeNode::createNode(a, "child");
    a->incTreeRefCount();
    child->removeFromTree();
    EXPECT_EQ(child->getTreeId(), first + 2);
    EXPECT_EQ(TreeInfo().treeId, first + 3);
    child->deleteTree();
    a->deleteTree();
}

TEST(TreeNodeModel, ReferenceCountRules) {
    TreeNode loose;
    EXPECT_FALSE(loose.incTreeRefCount());
    EXPECT_EQ(loose.getLocalRefCount(), 1);
    EXPECT_TRUE(loose.decTreeRefCount());
    EXPECT_EQ(loose.getLocalRefCount(), 0);

    TreeNode* root = makeTree("c");
    TreeNode* child = root->getChild(0);
    child->incTreeRefCount();
    root->getTreeInfo()->refCount = 0;
    EXPECT_FALSE(child->decTreeRefCount());  // tree already at 0
    EXPECT_EQ(child->getLocalRefCount(), 0);
    EXPECT_EQ(root->getTreeRefCount(), 0);

    root->getTreeInfo()->refCount = 2;
    EXPECT_FALSE(child->decTreeRefCount());  // no local reference, tree still drops
    EXPECT_EQ(root->getTreeRefCount(), 1);
    root->getTreeInfo()->refCount = 0;

    root->getTreeInfo()->magic = kTreeMagicDead;
    EXPECT_FALSE(child->incTreeRefCount());
    EXPECT_EQ(child->getTreeRefCount(), 0);
    EXPECT_FALSE(child->decTreeRefCount());
    root->getTreeInfo()->magic = kTreeMagicAlive;
    EXPECT_TRUE(child->incTreeRefCount());
    EXPECT_TRUE(child->decTreeRefCount());  // reaching 0 destroys nothing
    EXPECT_TRUE(treeIsConsistent(root));
    child->deleteTree();  // from a member: the whole tree goes
    loose.deleteTree();   // no tree: nothing happens
    EXPECT_EQ(loose.getMagic(), kTreeMagicAlive);
}

TEST(TreeNodeModel, DestructionIsPreOrderBeforeTheRecordGoes) {
    gLog.clear();
    TreeNode* root = TreeNode::createRoot("r");
    TreeNode* a = probeUnder(root, "a");
    probeUnder(a, "a1");
    probeUnder(probeUnder(a, "a2"), "a21");
    probeUnder(root, "b");
    root->deleteTree();
    EXPECT_EQ(gLog, (std::vector<std::string>{"a", "a1", "a2", "a21", "b"}));
}

TEST(TreeNodeModel, RecordTakesItsPrologNodesAlong) {
    gLog.clear();
    // A prolog node with children of its own: its destruction must run on
    // its own after the main tree's walk has finished.
    TreeNode* holder = TreeNode::createRoot("holder");
    TreeNode* decl = probeUnder(holder, "decl");
    probeUnder(decl, "decl-inner");
    decl->removeFromTree();  // nothing referenced: the holder goes
    TreeNode* root = TreeNode::createRoot("r");
    TreeInfo* info = root->getTreeInfo();
    info->xmlDecl = decl;
    info->styleSheets.append(new ProbeNode("sheet"));
    info->styleSheets.append(nullptr);
    info->docType = StringBuffer::createNewSB("<!DOCTYPE r>");
    probeUnder(root, "child");
    root->deleteTree();
    EXPECT_EQ(gLog, (std::vector<std::string>{"child", "decl", "decl-inner", "sheet"}));
}

}  // namespace
