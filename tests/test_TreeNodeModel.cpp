#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/TreeCheck.h"
#include "xmltree/TreeNode.h"

namespace {

// A node that records when its destructor starts, and what it then sees of
// its tree record.
std::vector<std::string>* gDestroyed = nullptr;

class ProbeNode : public TreeNode {
  public:
    explicit ProbeNode(const char* name) : TreeNode(name, nullptr, 0) {}
    ~ProbeNode() override {
        std::string entry = getTag();
        if (getTreeInfo() && getTreeInfo()->magic != kTreeMagicAlive) entry += "!deadinfo";
        if (gDestroyed) gDestroyed->push_back(entry);
    }
};

TEST(TreeNodeModel, ConstructorsMakeOnlyWhatIsGiven) {
    TreeNode empty;
    EXPECT_STREQ(empty.getTag(), "");
    EXPECT_EQ(empty._getMyTagSB2(), nullptr);
    EXPECT_EQ(empty.getContentSb(), nullptr);
    EXPECT_EQ(empty.getTreeInfo(), nullptr);
    EXPECT_EQ(empty.getMagic(), kTreeMagicAlive);

    TreeNode named("a b<c>", "text", 0);
    EXPECT_STREQ(named.getTag(), "abc");
    EXPECT_STREQ(named.getContent(), "text");
    named.addAttribute("x", "1");

    TreeNode copy(named);
    EXPECT_EQ(copy._getMyTagSB2(), nullptr);
    EXPECT_EQ(copy.getContentSb(), nullptr);
    EXPECT_EQ(copy.getNumAttributes(), 0);
    EXPECT_EQ(copy.getTreeInfo(), nullptr);

    TreeNode noTag("", "", 0);
    EXPECT_EQ(noTag._getMyTagSB2(), nullptr);
    EXPECT_EQ(noTag.getContentSb(), nullptr);

    DataBuffer none;
    TreeNode fromEmptyBytes("t", none, 0);
    EXPECT_EQ(fromEmptyBytes.getContentSb(), nullptr);

    DataBuffer bytes;
    bytes.append("a\0b", 3);
    TreeNode fromBytes("t", bytes, 0);
    ASSERT_NE(fromBytes.getContentSb(), nullptr);
    EXPECT_EQ(fromBytes.getContentSize(), 3);
}

TEST(TreeNodeModel, CreateRootVariants) {
    for (const char* tag : {static_cast<const char*>(nullptr), ""}) {
        TreeNode* root = TreeNode::createRoot(tag);
        ASSERT_NE(root, nullptr);
        EXPECT_EQ(root->_getMyTagSB2(), nullptr);
        EXPECT_STREQ(root->getTag(), "");
        EXPECT_EQ(root->getTreeRefCount(), 0);
        EXPECT_EQ(root->getRoot(), root);
        EXPECT_EQ(root->getParent(), nullptr);
        root->deleteTree();
    }
    TreeNode* withContent = TreeNode::createRoot2("r", "");
    EXPECT_EQ(withContent->getContentSb(), nullptr);
    withContent->deleteTree();

    DataBuffer empty;
    TreeNode* fromBytes = TreeNode::createRoot3("r", empty);
    EXPECT_EQ(fromBytes->getContentSb(), nullptr);
    fromBytes->deleteTree();

    DataBuffer bytes;
    bytes.append("xyz", 3);
    fromBytes = TreeNode::createRoot3("r", bytes);
    EXPECT_STREQ(fromBytes->getContent(), "xyz");
    EXPECT_TRUE(treeIsConsistent(fromBytes));
    fromBytes->deleteTree();
}

TEST(TreeNodeModel, TreeIdsFollowOneCounter) {
    int first;
    {
        TreeInfo info;
        first = info.treeId;
        EXPECT_GE(first, 100);
        EXPECT_EQ(info.refCount, 0);
        EXPECT_EQ(info.root, nullptr);
    }
    TreeInfo next;
    EXPECT_EQ(next.treeId, first + 1);
    TreeNode* a = TreeNode::createRoot("a");
    TreeNode* b = TreeNode::createRoot2("b", "c");
    EXPECT_EQ(a->getTreeId(), first + 2);
    EXPECT_EQ(b->getTreeId(), first + 3);

    // Detaching makes a new tree and uses up an id.
    TreeNode* child = TreeNode::createNode(a, "child");
    EXPECT_EQ(child->getTreeId(), first + 2);
    a->incTreeRefCount();
    child->removeFromTree();
    EXPECT_EQ(child->getTreeId(), first + 4);
    TreeNode* later = TreeNode::createRoot("z");
    EXPECT_EQ(later->getTreeId(), first + 5);
    later->deleteTree();
    child->deleteTree();
    a->deleteTree();
    b->deleteTree();
}

TEST(TreeNodeModel, TagsAreCleanedAndBufferReused) {
    TreeNode node;
    node.setTag(nullptr);
    EXPECT_EQ(node._getMyTagSB2(), nullptr);
    node.setTag("");
    ASSERT_NE(node._getMyTagSB2(), nullptr);
    EXPECT_STREQ(node.getTag(), "");

    StringBuffer* buffer = node._getMyTagSB2();
    node._setMyTag("ns:my-tag.1 \t<bad>&");
    EXPECT_EQ(node._getMyTagSB2(), buffer);
    EXPECT_STREQ(node.getTag(), "ns:my-tag.1bad");
    node._setMyTag("a-much-longer-name-that-does-not-fit-inline");
    EXPECT_STREQ(node.getTag(), "a-much-longer-name-that-does-not-fit-inline");
    node.setTag(nullptr);
    EXPECT_EQ(node._getMyTagSB2(), buffer);
    EXPECT_STREQ(node.getTag(), "");
    node._setMyTag("\xC3\xA9l\xC3\xA9ment");  // UTF-8 bytes stay
    EXPECT_STREQ(node.getTag(), "\xC3\xA9l\xC3\xA9ment");

    node._releaseMyTagSB();
    EXPECT_EQ(node._getMyTagSB2(), nullptr);
    node._releaseMyTagSB();
    EXPECT_STREQ(node.getTag(), "");
}

TEST(TreeNodeModel, ReferenceCountingOnDetachedNode) {
    TreeNode node;
    EXPECT_FALSE(node.incTreeRefCount());
    EXPECT_EQ(node.getLocalRefCount(), 1);
    EXPECT_EQ(node.getTreeRefCount(), 0);
    EXPECT_TRUE(node.decTreeRefCount());
    EXPECT_EQ(node.getLocalRefCount(), 0);
    EXPECT_FALSE(node.decTreeRefCount());
    EXPECT_EQ(node.getLocalRefCount(), 0);
}

TEST(TreeNodeModel, ReferenceCountingInTree) {
    TreeNode* root = TreeNode::createRoot("r");
    TreeNode* child = TreeNode::createNode(root, "c");

    EXPECT_TRUE(child->incTreeRefCount());
    EXPECT_EQ(root->getTreeRefCount(), 1);
    EXPECT_EQ(child->getTreeRefCount(), 1);
    EXPECT_TRUE(child->decTreeRefCount());
    EXPECT_EQ(root->getTreeRefCount(), 0);

    // Local count 1 but the tree already at 0: the tree part fails.
    child->incTreeRefCount();
    root->getTreeInfo()->refCount = 0;
    EXPECT_FALSE(child->decTreeRefCount());
    EXPECT_EQ(child->getLocalRefCount(), 0);
    EXPECT_EQ(root->getTreeRefCount(), 0);

    // Local count 0 with a tree count of 2: the tree still goes down.
    root->incTreeRefCount();
    root->incTreeRefCount();
    EXPECT_FALSE(child->decTreeRefCount());
    EXPECT_EQ(root->getTreeRefCount(), 1);
    EXPECT_EQ(child->getLocalRefCount(), 0);

    // Reaching 0 destroys nothing.
    EXPECT_TRUE(root->decTreeRefCount());
    EXPECT_EQ(root->getTreeRefCount(), 0);
    EXPECT_EQ(root->getMagic(), kTreeMagicAlive);
    EXPECT_EQ(child->getMagic(), kTreeMagicAlive);
    root->decTreeRefCount();
    EXPECT_TRUE(treeIsConsistent(root));

    // A record that is no longer alive is not counted on.
    TreeInfo* info = root->getTreeInfo();
    info->magic = kTreeMagicDead;
    EXPECT_FALSE(child->incTreeRefCount());
    EXPECT_EQ(child->getTreeRefCount(), 0);
    EXPECT_FALSE(child->decTreeRefCount());
    info->magic = kTreeMagicAlive;
    root->deleteTree();
}

TEST(TreeNodeModel, DeleteTreeFromAnyNodeDestroysEverything) {
    TreeNode* root = TreeNode::createRoot("r");
    TreeNode* a = TreeNode::createNode2(root, "a", "text");
    TreeNode::createNode(root, "b")->addAttribute("k", "v");
    TreeNode* deep = TreeNode::createNode(TreeNode::createNode(a, "a1"), "a2");
    deep->incTreeRefCount();
    deep->deleteTree();  // the sanitizer run reports anything left behind

    TreeNode detached("d", "x", 0);
    detached.deleteTree();
    EXPECT_EQ(detached.getMagic(), kTreeMagicAlive);
    EXPECT_STREQ(detached.getTag(), "d");
}

TEST(TreeNodeModel, DestructionIsPreOrderAndRecordOutlivesChildren) {
    std::vector<std::string> log;
    gDestroyed = &log;
    TreeNode* root = TreeNode::createRoot("r");
    auto add = [](TreeNode* parent, const char* name) {
        TreeNode* n = new ProbeNode(name);
        EXPECT_TRUE(parent->appendChild2(n, 0));
        return n;
    };
    TreeNode* a = add(root, "a");
    add(a, "a1");
    TreeNode* a2 = add(a, "a2");
    add(a2, "a21");
    add(root, "b");
    add(add(root, "c"), "c1");
    root->deleteTree();
    gDestroyed = nullptr;
    std::vector<std::string> expected{"a", "a1", "a2", "a21", "b", "c", "c1"};
    EXPECT_EQ(log, expected);
}

TEST(TreeNodeModel, RecordOwnsPrologNodes) {
    std::vector<std::string> log;
    gDestroyed = &log;
    // Prolog nodes that are roots of their own small trees, so that their
    // destruction starts a walk of its own after the main tree is gone.
    auto prologNode = [](const char* name, const char* innerName) {
        TreeNode* holder = TreeNode::createRoot("holder");
        TreeNode* node = new ProbeNode(name);
        holder->appendChild2(node, 0);
        node->appendChild2(new ProbeNode(innerName), 0);
        node->removeFromTree();  // no reference held: the holder goes
        return node;
    };
    TreeNode* root = TreeNode::createRoot("r");
    TreeInfo* info = root->getTreeInfo();
    info->xmlDecl = prologNode("decl", "decl-inner");
    info->styleSheets.append(prologNode("sheet", "sheet-inner"));
    info->styleSheets.append(nullptr);
    info->styleSheets.append(new ProbeNode("sheet2"));
    info->docType = StringBuffer::createNewSB("<!DOCTYPE r>");
    info->processing = StringBuffer::createNewSB("<?pi?>");
    root->appendChild2(new ProbeNode("child"), 0);
    root->deleteTree();
    gDestroyed = nullptr;
    std::vector<std::string> expected{"child", "decl",        "decl-inner",
                                      "sheet", "sheet-inner", "sheet2"};
    EXPECT_EQ(log, expected);
}

}  // namespace
