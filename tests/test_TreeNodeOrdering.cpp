#include "tests/TestSupport.h"

namespace {

// The children's tags (or attribute "v", or contents) in array order; the
// tree's links must follow the array.
std::string order(TreeNode* parent, char key = 't') {
    EXPECT_TRUE(treeIsConsistent(parent));
    std::string out;
    for (int i = 0; i < parent->getNumChildren(); ++i) {
        TreeNode* kid = parent->getChild(i);
        StringBuffer v;
        kid->getAttributeValue("v", v);
        out += (i ? " " : "");
        out += key == 't' ? kid->getTag() : key == 'v' ? v.getString() : kid->getContent();
    }
    return out;
}

Tree children(std::initializer_list<const char*> tags, const char* attr = nullptr) {
    Tree root(TreeNode::createRoot("r"));
    for (const char* t : tags) {
        TreeNode* kid = add(root.get(), t);
        if (attr && *t != '-') kid->addAttribute(attr, t);
    }
    return root;
}

TEST(Sort, DirectionAndCaseOfTagAndAttributeSorts) {
    Tree r = children({"B", "a", "C"});
    r->sortByTag(1, false);
    EXPECT_EQ(order(r.get()), "B C a");
    r->sortByTag(1, true);
    EXPECT_EQ(order(r.get()), "a B C");
    r->sortByTag(0, false);
    EXPECT_EQ(order(r.get()), "a C B");

    Tree n = children({"10", "-", "9", "100"}, "v");  // "-" has no attributes: ""
    n->sortByAttributeInt("v", 1);                    // nonzero: decreasing
    EXPECT_EQ(order(n.get(), 'v'), "100 10 9 ");
    n->sortByAttributeInt("v", 0);
    EXPECT_EQ(order(n.get(), 'v'), " 9 10 100");
    n->sortByAttribute("v", 0, false);
    EXPECT_EQ(order(n.get(), 'v'), "9 100 10 ");
    n->sortByAttribute("v", 1, true);
    EXPECT_EQ(order(n.get(), 'v'), " 10 100 9");
}

// Records <id><other/><k a=key>key</k><k>0</k><sub>2</sub><sub>1</sub></id>.
Tree records(std::initializer_list<const char*> keys) {
    Tree root(TreeNode::createRoot("list"));
    for (const char* key : keys) {
        TreeNode* rec = add(root.get(), key);
        add(rec, "other", "zzz");
        add(rec, "k", key)->addAttribute("a", key);
        add(rec, "k", "0");
        add(rec, "sub", "2");
        add(rec, "sub", "1");
    }
    return root;
}

TEST(Sort, RecordFieldsAsIntegerTextAndAttribute) {
    Tree r = records({"12abc", "abc", "7"});
    r->sortRecordsByContentInt("k", 1);
    EXPECT_EQ(order(r.get()), "abc 7 12abc");
    r->sortRecordsByContentInt("k", 0);
    EXPECT_EQ(order(r.get()), "12abc 7 abc");

    Tree c = records({"b", "C", "a"});
    c->sortRecordsByContent("k", 1, false);
    EXPECT_EQ(order(c.get()), "C a b");
    c->sortRecordsByContent("k", 0, true);
    EXPECT_EQ(order(c.get()), "C b a");
    c->sortRecordsByAttribute("k", "a", 0, false);
    EXPECT_EQ(order(c.get()), "b a C");
    c->sortRecordsByAttribute("k", "a", 1, true);
    EXPECT_EQ(order(c.get()), "a b C");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(order(c->getChild(i), 'c'), "zzz " + std::string(c->getChild(i)->getTag()) +
                                                  " 0 2 1");  // grandchildren untouched
    }
}

TEST(InsertAscending, PlacesByTagThenContent) {
    Tree r = children({"a", "c"});
    r->insertAscending("b", nullptr);
    r->insertAscending("d", nullptr);
    r->insertAscending("A", nullptr);
    EXPECT_EQ(order(r.get()), "A a b c d");

    Tree x(TreeNode::createRoot("r"));
    add(x.get(), "x", "1");
    add(x.get(), "x", "3");
    add(x.get(), "y", "0");
    x->insertAscending("x", "2");
    TreeNode* three = x->insertAscending("x", "3");
    TreeNode* none = x->insertAscending("x", nullptr);
    TreeNode* empty = x->insertAscending("x", "");
    EXPECT_EQ(order(x.get(), 'c'), " 1 2 3 3  0");
    EXPECT_EQ(x->getChild(4), three);
    EXPECT_EQ(x->getChild(5), none);
    EXPECT_EQ(x->getChild(0), empty);
    EXPECT_EQ(empty->getContentSb(), nullptr);

    Tree lone(TreeNode::createRoot("r"));
    TreeNode* only = lone->insertAscending("only", "c");
    EXPECT_EQ(lone->getFirstChild(), only);
    TreeNode detached("d", nullptr, 0);
    EXPECT_EQ(detached.insertAscending("x", "y"), nullptr);
}

TEST(InsertAscending, CheckInsertFindsOrCreates) {
    Tree r = children({"a", "k", "z"});
    StringPair pair("id", "7");
    EXPECT_EQ(r->checkInsertAscending("k", nullptr), r->getChild(1));
    TreeNode* made = r->checkInsertAscending("k", &pair);
    EXPECT_EQ(r->getChild(2), made);  // after the existing k
    EXPECT_TRUE(made->hasAttributeWithValue("id", "7"));
    EXPECT_EQ(r->checkInsertAscending("k", &pair), made);
    EXPECT_EQ(order(r.get()), "a k k z");
}

}  // namespace
