#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "xmltree/TreeNode.h"

namespace {

using Tree = std::unique_ptr<TreeNode>;

TreeNode* add(TreeNode* parent, const char* tag, const char* content = nullptr) {
    return TreeNode::createNode2(parent, tag, content);
}

// r
// +-- a
// |   +-- b (x)
// +-- c (x)
struct LevelTree {
    Tree root{TreeNode::createRoot("r")};
    TreeNode* a = add(root.get(), "a");
    TreeNode* b = add(a, "x", "deep");
    TreeNode* c = add(root.get(), "x", "shallow");
};

TEST(ChildLookups, NodeWithoutChildrenAnswersNotFound) {
    Tree root(TreeNode::createRoot("r"));
    ASSERT_EQ(root->getChildrenArray(), nullptr);
    StringPair pair("k", "v");
    EXPECT_FALSE(root->hasChildWithTag("a"));
    EXPECT_FALSE(root->hasChildWithContent(""));
    EXPECT_FALSE(root->hasChildWithTagAndContent("a", ""));
    EXPECT_EQ(root->numChildrenHavingTag(""), 0);
    EXPECT_EQ(root->getNthChildWithTag(0, ""), nullptr);
    EXPECT_EQ(root->getNthChildWithContent(0, ""), nullptr);
    EXPECT_EQ(root->getNthChildExact(0, "", nullptr), nullptr);
    EXPECT_EQ(root->getChild("", nullptr), nullptr);
    EXPECT_EQ(root->getChild("", &pair), nullptr);
    EXPECT_EQ(root->getChildWithAttr("", "k", "*"), nullptr);
    EXPECT_EQ(root->getChildrenArray(), nullptr);  // lookups never create it
}

TEST(ChildLookups, TagsCompareExactlyAndMissingTagIsEmpty) {
    Tree root(TreeNode::createRoot("r"));
    TreeNode* untagged = add(root.get(), nullptr, "u");
    TreeNode* item1 = add(root.get(), "item", "1");
    add(root.get(), "Item", "2");
    TreeNode* item3 = add(root.get(), "item", "3");

    EXPECT_TRUE(root->hasChildWithTag("item"));
    EXPECT_FALSE(root->hasChildWithTag("ITEM"));
    EXPECT_FALSE(root->hasChildWithTag("ite"));
    EXPECT_FALSE(root->hasChildWithTag(nullptr));
    EXPECT_EQ(root->numChildrenHavingTag("item"), 2);
    EXPECT_EQ(root->numChildrenHavingTag("Item"), 1);
    EXPECT_EQ(root->numChildrenHavingTag(nullptr), 0);
    EXPECT_EQ(root->getChild("", nullptr), untagged);
    EXPECT_EQ(root->getNthChildWithTag(0, ""), untagged);
    EXPECT_EQ(root->getNthChildWithTag(1, ""), nullptr);

    EXPECT_EQ(root->getNthChildWithTag(0, "item"), item1);
    EXPECT_EQ(root->getNthChildWithTag(0, "item"), root->getChild("item", nullptr));
    EXPECT_EQ(root->getNthChildWithTag(1, "item"), item3);
    EXPECT_EQ(root->getNthChildWithTag(2, "item"), nullptr);
    EXPECT_EQ(root->getNthChildWithTag(-1, "item"), nullptr);
    EXPECT_EQ(root->getNthChildWithTag(0, nullptr), nullptr);
}

TEST(ChildLookups, ContentLookupsTreatMissingContentAsEmpty) {
    Tree root(TreeNode::createRoot("r"));
    TreeNode* empty = add(root.get(), "t");
    TreeNode* x = add(root.get(), "t", "x");
    TreeNode* otherX = add(root.get(), "u", "x");

    EXPECT_TRUE(root->hasChildWithContent(""));
    EXPECT_TRUE(root->hasChildWithContent("x"));
    EXPECT_FALSE(root->hasChildWithContent("X"));
    EXPECT_FALSE(root->hasChildWithContent(nullptr));
    EXPECT_TRUE(root->hasChildWithTagAndContent("u", "x"));
    EXPECT_FALSE(root->hasChildWithTagAndContent("u", ""));
    EXPECT_FALSE(root->hasChildWithTagAndContent("u", nullptr));
    EXPECT_FALSE(root->hasChildWithTagAndContent(nullptr, "x"));

    EXPECT_EQ(root->getNthChildWithContent(0, ""), empty);
    EXPECT_EQ(root->getNthChildWithContent(0, "x"), x);
    EXPECT_EQ(root->getNthChildWithContent(1, "x"), otherX);
    EXPECT_EQ(root->getNthChildWithContent(2, "x"), nullptr);
    EXPECT_EQ(root->getNthChildWithContent(-1, "x"), nullptr);
    EXPECT_EQ(root->getNthChildWithContent(0, nullptr), nullptr);
}

TEST(ChildLookups, NthChildExactTakesNullContentAsEmptyAndSkipsEmptySlots) {
    Tree root(TreeNode::createRoot("r"));
    TreeNode* x = add(root.get(), "t", "x");
    TreeNode* bare = add(root.get(), "t");
    TreeNode* emptied = add(root.get(), "t", "y");
    emptied->setContentUtf8("");
    ASSERT_NE(emptied->getContentSb(), nullptr);

    EXPECT_EQ(root->getNthChildExact(0, "t", nullptr), bare);
    EXPECT_EQ(root->getNthChildExact(1, "t", nullptr), emptied);
    EXPECT_EQ(root->getNthChildExact(1, "t", ""), emptied);
    EXPECT_EQ(root->getNthChildExact(2, "t", nullptr), nullptr);
    EXPECT_EQ(root->getNthChildExact(0, "t", "x"), x);
    EXPECT_EQ(root->getNthChildExact(0, "T", "x"), nullptr);
    EXPECT_EQ(root->getNthChildExact(0, nullptr, "x"), nullptr);

    // An empty slot in the array is passed over, not counted.
    ExtPtrArray* kids = root->getChildrenArray();
    kids->insertAt(0, nullptr);
    EXPECT_EQ(root->getNthChildExact(0, "t", "x"), x);
    EXPECT_EQ(root->getNthChildExact(0, "t", nullptr), bare);
    kids->removeAt(0);
}

TEST(ChildLookups, GetChildWithPairAndWithAttr) {
    Tree root(TreeNode::createRoot("r"));
    TreeNode* plain = add(root.get(), "t");
    TreeNode* wrong = add(root.get(), "t");
    wrong->addAttribute("k", "w");
    TreeNode* right = add(root.get(), "t");
    right->addAttribute("k", "v");
    TreeNode* otherTag = add(root.get(), "u");
    otherTag->addAttribute("k", "v");

    StringPair pair("k", "v");
    StringPair caseDiffers("k", "V");
    EXPECT_EQ(root->getChild("t", nullptr), plain);
    EXPECT_EQ(root->getChild("t", &pair), right);
    EXPECT_EQ(root->getChild("u", &pair), otherTag);
    EXPECT_EQ(root->getChild("t", &caseDiffers), nullptr);

    EXPECT_EQ(root->getChildWithAttr("t", "k", "*"), wrong);
    EXPECT_EQ(root->getChildWithAttr("t", "k", "v"), right);
    EXPECT_EQ(root->getChildWithAttr("t", "missing", "*"), nullptr);
    EXPECT_EQ(root->getChildWithAttr(nullptr, "k", "v"), nullptr);
}

TEST(ChildLookups, NextMatchingRecordUsesFirstFieldOnly) {
    Tree root(TreeNode::createRoot("list"));
    TreeNode* r1 = add(root.get(), "rec");
    add(r1, "id", "a");
    add(r1, "id", "b");  // a second field of the tag is not the key
    TreeNode* r2 = add(root.get(), "rec");
    add(r2, "name", "b");
    TreeNode* r3 = add(root.get(), "rec");
    add(r3, "id", "bee");

    EXPECT_EQ(r1->nextMatchingRecord("id", "a"), r1);
    EXPECT_EQ(r1->nextMatchingRecord("id", "b*"), r3);
    EXPECT_EQ(r3->nextMatchingRecord("id", "b?e"), r3);
    EXPECT_EQ(r3->nextMatchingRecord("id", "B*"), nullptr);  // case-sensitive
    EXPECT_EQ(r2->nextMatchingRecord("id", "a"), nullptr);
    EXPECT_EQ(r1->nextMatchingRecord(nullptr, "*"), nullptr);
}

TEST(SubtreeSearch, ShallowerMatchComesFirstThenResumesToNull) {
    LevelTree t;
    TreeNode* r = t.root.get();
    EXPECT_EQ(r->searchForTag(nullptr, "x"), t.c);
    EXPECT_EQ(r->searchForTag(t.c, "x"), t.b);
    EXPECT_EQ(r->searchForTag(t.b, "x"), nullptr);

    EXPECT_EQ(r->searchAllForMatchingNode(nullptr, "*o*"), t.c);
    EXPECT_EQ(r->searchAllForMatchingNode(t.c, "*e*"), t.b);
    EXPECT_EQ(r->searchForMatchingNode(nullptr, "x", "d*"), t.b);
    EXPECT_EQ(r->searchForMatchingNode(nullptr, "X", "*"), nullptr);
}

TEST(SubtreeSearch, StartNodeIsACandidateUnlessItIsAfter) {
    LevelTree t;
    TreeNode* r = t.root.get();
    EXPECT_EQ(r->searchForTag(nullptr, "r"), r);
    EXPECT_EQ(r->searchForTag(r, "r"), nullptr);
    EXPECT_EQ(r->searchAllForMatchingNode(nullptr, "*"), r);
    EXPECT_EQ(r->searchAllForMatchingNode(r, "*"), t.a);
    EXPECT_EQ(r->searchForTag(nullptr, nullptr), nullptr);

    // A search started below the root sees only that subtree.
    EXPECT_EQ(t.a->searchForTag(nullptr, "x"), t.b);
    EXPECT_EQ(t.b->searchForTag(nullptr, "x"), t.b);
    EXPECT_EQ(t.b->searchForTag(t.b, "x"), nullptr);
}

TEST(SubtreeSearch, AfterFromAnotherTreeFindsNothing) {
    LevelTree t;
    LevelTree other;
    TreeNode* r = t.root.get();
    EXPECT_EQ(r->searchForTag(other.c, "x"), nullptr);
    EXPECT_EQ(r->searchAllForMatchingNode(other.root.get(), "*"), nullptr);
    EXPECT_EQ(r->searchForMatchingNode(other.b, "x", "*"), nullptr);
    EXPECT_EQ(r->searchForAttribute(other.a, "x", "k", "*"), nullptr);
    EXPECT_EQ(r->searchExactAttrAndContent(other.a, "x", "k", "v", ""), nullptr);
}

TEST(SubtreeSearch, AttributeSearchesNeedAnAttributeSet) {
    Tree root(TreeNode::createRoot("r"));
    TreeNode* bare = add(root.get(), "e");
    TreeNode* noContent = add(root.get(), "e");
    noContent->addAttribute("k", "v");
    TreeNode* emptied = add(root.get(), "e", "z");
    emptied->setContentUtf8("");
    emptied->addAttribute("k", "v");
    TreeNode* full = add(root.get(), "e", "body");
    full->addAttribute("k", "v");
    (void)bare;

    EXPECT_EQ(root->searchForAttribute(nullptr, "e", "k", "*"), noContent);
    EXPECT_EQ(root->searchForAttribute(noContent, "e", "k", "v"), emptied);
    EXPECT_EQ(root->searchForAttribute(nullptr, "e", "k", "V"), nullptr);
    EXPECT_EQ(root->searchForAttribute(nullptr, nullptr, "k", "*"), nullptr);

    // Content must exist and equal exactly; "" does not match a node without content.
    EXPECT_EQ(root->searchExactAttrAndContent(nullptr, "e", "k", "v", ""), emptied);
    EXPECT_EQ(root->searchExactAttrAndContent(nullptr, "e", "k", "v", "body"), full);
    EXPECT_EQ(root->searchExactAttrAndContent(nullptr, "e", "k", "v", "Body"), nullptr);
    EXPECT_EQ(root->searchExactAttrAndContent(nullptr, "e", "k", "*", "body"), nullptr);
}

TEST(SubtreeSearch, StepsThroughEveryMatchLevelByLevel) {
    // Two levels of n/2 matches each, the deeper ones under the first child.
    Tree root(TreeNode::createRoot("r"));
    TreeNode* first = add(root.get(), "m", "0");
    for (int i = 0; i < 4; ++i)
        add(first, "m", "deep");
    for (int i = 1; i < 4; ++i)
        add(root.get(), "m", "top");

    std::vector<TreeNode*> seen;
    for (TreeNode* n = root->searchForTag(nullptr, "m"); n; n = root->searchForTag(n, "m")) {
        seen.push_back(n);
    }
    ASSERT_EQ(seen.size(), 8u);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(seen[i], root->getChild(i));
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(seen[4 + i], first->getChild(i));
}

TEST(SubtreeSearch, MillionDeepChainAndMillionWideNode) {
    const int kCount = 1000000;
    Tree deep(TreeNode::createRoot("n"));
    TreeNode* leaf = deep.get();
    for (int i = 0; i < kCount; ++i)
        leaf = add(leaf, "n");
    leaf->setTag("end");
    EXPECT_EQ(deep->searchForTag(nullptr, "end"), leaf);

    Tree wide(TreeNode::createRoot("w"));
    TreeNode* last = nullptr;
    for (int i = 0; i < kCount; ++i)
        last = add(wide.get(), "c");
    last->setContentUtf8("last");
    EXPECT_EQ(wide->searchAllForMatchingNode(nullptr, "la*"), last);
    EXPECT_EQ(wide->numChildrenHavingTag("c"), kCount);
}

}  // namespace
