// The ownership and iteration helpers of xmltree/Tree.h.

#include "tests/TestSupport.h"
#include "xmltree/Tree.h"

namespace {

// A node whose destruction the tests can count.
int probesFreed = 0;
struct Probe : TreeNode {
    ~Probe() override { ++probesFreed; }
};

xmltree::Tree docWithProbe() {
    xmltree::Tree doc;
    EXPECT_TRUE(doc.parseString("<doc><first/></doc>"));
    EXPECT_TRUE(doc->appendChild2(new Probe, 0));
    return doc;
}

std::string walkTags(TreeNode* start) {
    std::string out;
    for (TreeNode* n : xmltree::BreadthFirst(start))
        out += n->getTag();
    return out;
}

}  // namespace

TEST(TreeHandle, FreesOnceReleasesAndMoves) {
    probesFreed = 0;
    {
        xmltree::Tree doc = docWithProbe();
        EXPECT_EQ(doc->getTreeRefCount(), 1);  // the handle's reference on the root
        xmltree::Tree moved(std::move(doc));
        EXPECT_FALSE(doc);
        EXPECT_EQ(moved->getTreeRefCount(), 1);
    }
    EXPECT_EQ(probesFreed, 1);

    xmltree::Tree doc = docWithProbe();
    TreeNode* root = doc.release();
    EXPECT_FALSE(doc);
    EXPECT_EQ(root->getTreeRefCount(), 0);
    doc.reset();
    EXPECT_EQ(probesFreed, 1);
    root->deleteTree();
    EXPECT_EQ(probesFreed, 2);

    doc = docWithProbe();
    doc = docWithProbe();  // the first tree goes
    EXPECT_EQ(probesFreed, 3);
    EXPECT_FALSE(doc.parseFile("/nonexistent/x.xml"));  // a failed parse leaves it empty
    EXPECT_FALSE(doc);
    EXPECT_EQ(probesFreed, 4);
}

// Only a buffer without data fails; a text without an element parses to
// an empty handle.
TEST(TreeHandle, ParseResults) {
    xmltree::Tree doc;
    EXPECT_TRUE(doc.parseString("no element here"));
    EXPECT_FALSE(doc);
    EXPECT_TRUE(doc.parseString("<a>x</b>"));
    EXPECT_TRUE(doc);
    DataBuffer data;
    EXPECT_FALSE(doc.parseData(data));
    EXPECT_FALSE(doc);
    const char bytes[] = "<?xml version='1.0' encoding='iso-8859-1'?><a>\xE9</a>";
    ASSERT_TRUE(data.append(bytes, sizeof bytes - 1));
    ASSERT_TRUE(doc.parseData(data));
    EXPECT_STREQ(doc->getContent(), "\xC3\xA9");
}

// Nobody holds a reference on a freshly parsed tree, so removing a child
// used to free the whole document under the caller.
TEST(TreeHandle, HeldDocumentSurvivesEdits) {
    xmltree::Tree doc;
    ASSERT_TRUE(doc.parseString("<doc><first><glob/><keep/><glob/></first><x/></doc>"));
    TreeNode* first = doc->getChild(0);
    first->removeChild("glob");
    EXPECT_EQ(childTags(first), "keep");
    first->removeFromTree();  // the old tree keeps the handle's reference
    EXPECT_EQ(childTags(doc.root()), "x");
    xmltree::Tree detached(first);
    EXPECT_TRUE(treeIsConsistent(doc.root()));
    EXPECT_TRUE(treeIsConsistent(detached.root()));
}

TEST(NodeRef, KeepsARemovedSubtreeAlive) {
    xmltree::Tree doc;
    ASSERT_TRUE(doc.parseString("<r><a><b/></a><c/></r>"));
    TreeNode* a = doc->getChild(0);
    xmltree::Tree kept;
    {
        xmltree::NodeRef guard(a);
        EXPECT_EQ(doc->getTreeRefCount(), 2);
        doc->removeChild("a");  // deletes an unreferenced child
        EXPECT_EQ(a->getParent(), nullptr);
        EXPECT_EQ(a->getRoot(), a);
        EXPECT_EQ(childTags(a), "b");
        EXPECT_EQ(doc->getTreeRefCount(), 1);
        kept.reset(a);
    }
    EXPECT_EQ(kept->getTreeRefCount(), 1);
    EXPECT_TRUE(treeIsConsistent(kept.root()));

    xmltree::Tree c = xmltree::Tree::detach(doc->getChild(0));
    ASSERT_TRUE(c);
    EXPECT_STREQ(c->getTag(), "c");
    EXPECT_EQ(doc->getNumChildren(), 0);
    EXPECT_FALSE(xmltree::Tree::detach(doc.root()));  // a root has nothing to leave
}

TEST(BreadthFirst, LevelOrderDepthAndSkip) {
    xmltree::Tree doc;
    ASSERT_TRUE(doc.parseString("<r><a><b><d><g><i/></g></d></b><f/></a><c><e><h/></e></c></r>"));
    std::string order, depths;
    xmltree::BreadthFirst walk(doc.root());
    for (TreeNode* n : walk) {
        order += n->getTag();
        depths += static_cast<char>('0' + walk.depth());
    }
    EXPECT_EQ(order, "racbfedhgi");
    EXPECT_EQ(depths, "0112223345");

    std::string pruned;
    xmltree::BreadthFirst skipping(doc.root());
    for (TreeNode* n : skipping) {
        pruned += n->getTag();
        if (n->getTag()[0] == 'a') skipping.skipChildren();
    }
    EXPECT_EQ(pruned, "raceh");
    EXPECT_EQ(walkTags(nullptr), "");
    EXPECT_EQ(walkTags(doc->getChild(1)), "ceh");
}

TEST(ChildRange, OrderEmptyAndRemovalWhileIterating) {
    EXPECT_TRUE(xmltree::children(nullptr).empty());
    xmltree::Tree doc;
    ASSERT_TRUE(doc.parseString("<r><a/><b/><c/></r>"));
    std::string tags;
    for (TreeNode* child : xmltree::children(doc.root()))
        tags += child->getTag();
    EXPECT_EQ(tags, "abc");
    auto kids = xmltree::children(doc.root());
    EXPECT_EQ(
        std::find_if(kids.begin(), kids.end(), [](TreeNode* n) { return n->getTag()[0] == 'b'; }),
        std::next(kids.begin()));
    EXPECT_TRUE(xmltree::children(doc->getChild(0)).empty());  // no children array

    // The range rereads the array: removing as it goes never runs past the end.
    int steps = 0;
    for (TreeNode* child : xmltree::children(doc.root())) {
        (void)child;
        doc->removeChildByIndex(0);
        ++steps;
    }
    EXPECT_EQ(steps, 2);
    EXPECT_EQ(childTags(doc.root()), "c");
    doc->removeChildByIndex(0);
    EXPECT_EQ(xmltree::children(doc.root()).size(), 0);  // an emptied array
    EXPECT_TRUE(xmltree::children(doc.root()).begin() == xmltree::children(doc.root()).end());
}
