#include "tests/TestSupport.h"

namespace {

TEST(ChildLookups, ExactTagsMissingTextIsEmptyAndCountsStayInRange) {
    Tree root(TreeNode::createRoot("r"));
    EXPECT_EQ(root->getNthChildExact(0, "", nullptr), nullptr);  // no children array
    EXPECT_EQ(root->numChildrenHavingTag(""), 0);
    TreeNode* untagged = add(root.get(), nullptr);
    TreeNode* x = add(root.get(), "item", "x");
    add(root.get(), "Item", "x");
    TreeNode* bare = add(root.get(), "item");

    EXPECT_EQ(root->getChild("", nullptr), untagged);
    EXPECT_EQ(root->numChildrenHavingTag("item"), 2);
    EXPECT_EQ(root->getNthChildWithTag(1, "item"), bare);
    EXPECT_EQ(root->getNthChildWithTag(2, "item"), nullptr);
    EXPECT_EQ(root->getNthChildWithTag(-1, "item"), nullptr);
    EXPECT_EQ(root->getNthChildWithContent(1, "x"), root->getChild(2));
    EXPECT_EQ(root->getNthChildWithContent(0, ""), untagged);
    EXPECT_FALSE(root->hasChildWithTagAndContent("Item", ""));
    EXPECT_FALSE(root->hasChildWithContent(nullptr));

    // A null content means "", and an empty slot is passed over.
    root->getChildrenArray()->insertAt(0, nullptr);
    EXPECT_EQ(root->getNthChildExact(0, "item", nullptr), bare);
    EXPECT_EQ(root->getNthChildExact(0, "item", "x"), x);
    root->getChildrenArray()->removeAt(0);
}

TEST(ChildLookups, AttributeLookupsAndRecords) {
    Tree root(TreeNode::createRoot("r"));
    TreeNode* plain = add(root.get(), "t");
    add(root.get(), "t")->addAttribute("k", "w");
    TreeNode* right = add(root.get(), "t");
    right->addAttribute("k", "v");
    StringPair pair("k", "v");
    EXPECT_EQ(root->getChild("t", nullptr), plain);
    EXPECT_EQ(root->getChild("t", &pair), right);
    EXPECT_EQ(root->getChildWithAttr("t", "k", "v*"), right);

    TreeNode* r1 = add(root.get(), "rec");
    add(r1, "id", "a");
    add(r1, "id", "b");  // only the first field is the key
    TreeNode* r2 = add(root.get(), "rec");
    add(r2, "id", "bee");
    EXPECT_EQ(r1->nextMatchingRecord("id", "a"), r1);
    EXPECT_EQ(r1->nextMatchingRecord("id", "b*"), r2);
    EXPECT_EQ(r2->nextMatchingRecord("id", "B*"), nullptr);
}

// r{ a{ b:x }, c:x }: c is found before b, though b comes first in the document.
struct LevelTree {
    Tree root{TreeNode::createRoot("r")};
    TreeNode* a = add(root.get(), "a");
    TreeNode* b = add(a, "x", "deep");
    TreeNode* c = add(root.get(), "x", "shallow");
};

TEST(SubtreeSearch, BreadthFirstAndResumable) {
    LevelTree t;
    LevelTree other;
    TreeNode* r = t.root.get();
    EXPECT_EQ(r->searchForTag(nullptr, "x"), t.c);
    EXPECT_EQ(r->searchForTag(t.c, "x"), t.b);
    EXPECT_EQ(r->searchForTag(t.b, "x"), nullptr);
    EXPECT_EQ(r->searchForTag(nullptr, "r"), r);
    EXPECT_EQ(r->searchAllForMatchingNode(r, "*"), t.a);  // after = start skips it
    EXPECT_EQ(r->searchForTag(other.c, "x"), nullptr);
    EXPECT_EQ(r->searchForMatchingNode(nullptr, "x", "d*"), t.b);
    EXPECT_EQ(r->searchForMatchingNode(nullptr, "X", "*"), nullptr);
    EXPECT_EQ(r->searchForTag(nullptr, nullptr), nullptr);
}

TEST(SubtreeSearch, AttributeSearchesNeedTheSetAndExactContent) {
    Tree root(TreeNode::createRoot("r"));
    add(root.get(), "e");
    TreeNode* noContent = add(root.get(), "e");
    noContent->addAttribute("k", "v");
    TreeNode* emptied = add(root.get(), "e", "z");
    emptied->setContentUtf8("");
    emptied->addAttribute("k", "v");
    EXPECT_EQ(root->searchForAttribute(nullptr, "e", "k", "*"), noContent);
    EXPECT_EQ(root->searchForAttribute(noContent, "e", "k", "v"), emptied);
    EXPECT_EQ(root->searchExactAttrAndContent(nullptr, "e", "k", "v", ""), emptied);
    EXPECT_EQ(root->searchExactAttrAndContent(nullptr, "e", "k", "*", ""), nullptr);
}

}  // namespace
