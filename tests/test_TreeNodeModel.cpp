#include "tests/TestSupport.h"

namespace {

// Logs when each destructor starts, and "!" if the tree record was already
// dead by then.
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

TEST(TreeNodeModel, EveryNewRecordTakesTheNextId) {
    int id = TreeInfo().treeId;
    TreeNode* root = TreeNode::createRoot("r");
    TreeNode* child = TreeNode::createNode(root, "c");
    root->incTreeRefCount();
    child->removeFromTree();
    EXPECT_EQ(root->getTreeId(), id + 1);
    EXPECT_EQ(child->getTreeId(), id + 2);
    child->deleteTree();
    root->deleteTree();
}

TEST(TreeNodeModel, ReferenceCountRules) {
    TreeNode loose;
    EXPECT_FALSE(loose.incTreeRefCount());
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
    root->getTreeInfo()->magic = kTreeMagicDead;
    EXPECT_FALSE(child->incTreeRefCount());
    EXPECT_EQ(child->getTreeRefCount(), 0);
    root->getTreeInfo()->magic = kTreeMagicAlive;
    EXPECT_TRUE(child->decTreeRefCount());  // reaching 0 destroys nothing
    EXPECT_TRUE(treeIsConsistent(root));
    child->deleteTree();  // from a member: the whole tree goes
}

// Pre-order, all while the record lives; the record then takes its prolog
// nodes along, a declaration taken from another tree included.
TEST(TreeNodeModel, DestructionIsPreOrderThenThePrologNodes) {
    gLog.clear();
    TreeNode* holder = TreeNode::createRoot("holder");
    TreeNode* decl = probeUnder(holder, "decl");
    probeUnder(decl, "decl-inner");
    decl->removeFromTree();  // nothing referenced: the holder goes
    TreeNode* root = TreeNode::createRoot("r");
    root->getTreeInfo()->xmlDecl = decl;
    root->getTreeInfo()->styleSheets.append(new ProbeNode("sheet"));
    root->getTreeInfo()->docType = StringBuffer::createNewSB("<!DOCTYPE r>");
    TreeNode* a = probeUnder(root, "a");
    probeUnder(a, "a1");
    probeUnder(probeUnder(a, "a2"), "a21");
    probeUnder(root, "b");
    root->deleteTree();
    EXPECT_EQ(gLog, (std::vector<std::string>{"a", "a1", "a2", "a21", "b", "decl", "decl-inner",
                                              "sheet"}));
}

}  // namespace
