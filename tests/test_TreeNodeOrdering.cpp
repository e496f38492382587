#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "xmltree/TreeNode.h"

namespace {

using Tree = std::unique_ptr<TreeNode>;

TreeNode* add(TreeNode* parent, const char* tag, const char* content = nullptr) {
    return TreeNode::createNode2(parent, tag, content);
}

// Children's tags (or contents, or an attribute) in array order, joined by
// blanks; also checks that the sibling links agree with the array both ways.
enum class Key { kTag, kContent, kAttr };

std::string order(TreeNode* parent, Key key = Key::kTag, const char* attr = "v") {
    std::string out;
    TreeNode* prev = nullptr;
    int n = parent->getNumChildren();
    for (int i = 0; i < n; ++i) {
        TreeNode* kid = parent->getChild(i);
        EXPECT_EQ(kid->getPrevSibling(), prev) << "child " << i;
        if (prev) {
            EXPECT_EQ(prev->getNextSibling(), kid) << "child " << i;
        }
        prev = kid;
        StringBuffer value;
        if (key == Key::kAttr) kid->getAttributeValue(attr, value);
        if (i > 0) out += ' ';
        out += key == Key::kTag       ? kid->getTag()
               : key == Key::kContent ? kid->getContent()
                                      : value.getString();
    }
    if (prev) {
        EXPECT_EQ(prev->getNextSibling(), nullptr);
    }
    return out;
}

Tree withTags(std::initializer_list<const char*> tags) {
    Tree root(TreeNode::createRoot("r"));
    for (const char* t : tags)
        add(root.get(), t);
    return root;
}

TEST(Sort, ByTagDirectionAndCase) {
    Tree r = withTags({"B", "a", "C"});
    r->sortByTag(1, false);
    EXPECT_EQ(order(r.get()), "B C a");
    r->sortByTag(1, true);
    EXPECT_EQ(order(r.get()), "a B C");
    r->sortByTag(0, false);
    EXPECT_EQ(order(r.get()), "a C B");
    r->sortByTag(0, true);
    EXPECT_EQ(order(r.get()), "C B a");
    r->sortByTag(-7, false);  // any nonzero direction is ascending
    EXPECT_EQ(order(r.get()), "B C a");
}

TEST(Sort, ByContentWithMissingContentFirst) {
    Tree r(TreeNode::createRoot("r"));
    add(r.get(), "t", "b");
    add(r.get(), "t", "A");
    add(r.get(), "t");
    add(r.get(), "t", "ab");
    r->sortByContent(1, false);
    EXPECT_EQ(order(r.get(), Key::kContent), " A ab b");
    r->sortByContent(0, false);
    EXPECT_EQ(order(r.get(), Key::kContent), "b ab A ");
    r->sortByContent(1, true);
    EXPECT_EQ(order(r.get(), Key::kContent), " A ab b");
    r->sortByContent(0, true);
    EXPECT_EQ(order(r.get(), Key::kContent), "b ab A ");
}

Tree withValues(std::initializer_list<const char*> values) {
    Tree root(TreeNode::createRoot("r"));
    for (const char* v : values) {
        TreeNode* kid = add(root.get(), "e");
        if (v) kid->addAttribute("v", v);
    }
    return root;
}

TEST(Sort, ByAttributeTextAndTheReversedIntegerDirection) {
    Tree r = withValues({"10", "9", "100"});
    r->sortByAttributeInt("v", 1);
    EXPECT_EQ(order(r.get(), Key::kAttr), "100 10 9");
    r->sortByAttributeInt("v", 0);
    EXPECT_EQ(order(r.get(), Key::kAttr), "9 10 100");
    r->sortByAttribute("v", 1, false);
    EXPECT_EQ(order(r.get(), Key::kAttr), "10 100 9");
    r->sortByAttribute("v", 0, false);
    EXPECT_EQ(order(r.get(), Key::kAttr), "9 100 10");

    Tree cased = withValues({"b", nullptr, "C", "a"});
    cased->sortByAttribute("v", 1, false);
    EXPECT_EQ(order(cased.get(), Key::kAttr), " C a b");
    cased->sortByAttribute("v", 0, false);
    EXPECT_EQ(order(cased.get(), Key::kAttr), "b a C ");
    cased->sortByAttribute("v", 1, true);
    EXPECT_EQ(order(cased.get(), Key::kAttr), " a b C");
    cased->sortByAttribute("v", 0, true);
    EXPECT_EQ(order(cased.get(), Key::kAttr), "C b a ");
}

TEST(Sort, NullKeyLeavesStableOrder) {
    Tree r = withValues({"3", "1", "2"});
    r->sortByAttribute(nullptr, 1, false);
    EXPECT_EQ(order(r.get(), Key::kAttr), "3 1 2");
    r->sortRecordsByContent(nullptr, 1, false);
    EXPECT_EQ(order(r.get(), Key::kAttr), "3 1 2");
}

// Records <rec><k a="...">content</k><sub>..</sub></rec>, tagged by id.
Tree records(std::initializer_list<std::pair<const char*, const char*>> rows) {
    Tree root(TreeNode::createRoot("list"));
    for (const auto& row : rows) {
        TreeNode* rec = add(root.get(), row.first);
        add(rec, "other", "zzz");
        TreeNode* key = add(rec, "k", row.second);
        key->addAttribute("a", row.second);
        add(rec, "k", "0");  // only the first field counts
        add(rec, "sub", "2");
        add(rec, "sub", "1");
    }
    return root;
}

TEST(Sort, RecordsByFieldContentAttributeAndInteger) {
    Tree r = records({{"r12", "12abc"}, {"rabc", "abc"}, {"r7", "7"}});
    r->sortRecordsByContentInt("k", 1);
    EXPECT_EQ(order(r.get()), "rabc r7 r12");
    r->sortRecordsByContentInt("k", 0);
    EXPECT_EQ(order(r.get()), "r12 r7 rabc");
    r->sortRecordsByContent("k", 1, false);
    EXPECT_EQ(order(r.get()), "r12 r7 rabc");
    r->sortRecordsByContent("k", 0, false);
    EXPECT_EQ(order(r.get()), "rabc r7 r12");

    Tree c = records({{"b", "b"}, {"C", "C"}, {"a", "a"}});
    c->sortRecordsByContent("k", 1, false);
    EXPECT_EQ(order(c.get()), "C a b");
    c->sortRecordsByContent("k", 1, true);
    EXPECT_EQ(order(c.get()), "a b C");
    c->sortRecordsByContent("k", 0, true);
    EXPECT_EQ(order(c.get()), "C b a");
    c->sortRecordsByAttribute("k", "a", 1, false);
    EXPECT_EQ(order(c.get()), "C a b");
    c->sortRecordsByAttribute("k", "a", 0, false);
    EXPECT_EQ(order(c.get()), "b a C");
    c->sortRecordsByAttribute("k", "a", 1, true);
    EXPECT_EQ(order(c.get()), "a b C");
    c->sortRecordsByAttribute("k", "a", 0, true);
    EXPECT_EQ(order(c.get()), "C b a");

    // Grandchildren keep their order under every sort.
    for (int i = 0; i < 3; ++i) {
        TreeNode* rec = c->getChild(i);
        EXPECT_EQ(order(rec), "other k k sub sub");
        EXPECT_EQ(order(rec, Key::kContent), "zzz " + std::string(rec->getTag()) + " 0 2 1");
    }
}

TEST(Sort, WithoutChildrenArrayNothingHappens) {
    Tree empty(TreeNode::createRoot("r"));
    for (int i = 0; i < 2; ++i) {
        empty->sortByTag(i, false);
        empty->sortByContent(i, true);
        empty->sortByAttribute("v", i, false);
        empty->sortByAttributeInt("v", i);
        empty->sortRecordsByAttribute("k", "a", i, true);
        empty->sortRecordsByContent("k", i, false);
        empty->sortRecordsByContentInt("k", i);
    }
    EXPECT_EQ(empty->getChildrenArray(), nullptr);

    Tree one = withTags({"only"});
    one->sortByTag(1, false);
    EXPECT_EQ(order(one.get()), "only");
}

// Each thread sorts its own tree by its own keys, many times over; a key
// written by another thread would show as a wrong order.
// Records whose field f<t> and attribute a<t> count up for thread t and down
// for every other thread's key.
Tree threadTree(int t, int numThreads) {
    Tree root(TreeNode::createRoot("r"));
    for (int i = 0; i < 40; ++i) {
        TreeNode* rec = add(root.get(), "rec");
        for (int o = 0; o < numThreads; ++o) {
            std::string v = std::to_string(o == t ? i : 1000 - i);
            add(rec, ("f" + std::to_string(o)).c_str(), v.c_str());
            rec->addAttribute(("a" + std::to_string(o)).c_str(), v.c_str());
        }
    }
    return root;
}

bool increasing(TreeNode* root, const std::string& field, const std::string& attr) {
    StringBuffer v;
    int lastField = -1;
    int lastAttr = -1;
    for (int i = 0; i < root->getNumChildren(); ++i) {
        TreeNode* rec = root->getChild(i);
        int f = rec->getChild(field.c_str(), nullptr)->getContentIntValue();
        rec->getAttributeValue(attr.c_str(), v);
        int a = v.intValue();
        if (f < lastField || a < lastAttr) return false;
        lastField = f;
        lastAttr = a;
    }
    return true;
}

// Each thread sorts its own tree by its own keys, many times over; a key
// written by another thread would show as a wrong order. The trees are made
// up front: tree creation is single-threaded.
TEST(Sort, KeyedSortsOnSeveralThreadsKeepTheirOwnKeys) {
    const int kThreads = 4;
    const int kRounds = 200;
    std::vector<Tree> trees;
    for (int t = 0; t < kThreads; ++t)
        trees.push_back(threadTree(t, kThreads));
    std::vector<int> failures(kThreads, 0);
    auto work = [&](int t) {
        std::string field = "f" + std::to_string(t);
        std::string attr = "a" + std::to_string(t);
        TreeNode* root = trees[t].get();
        for (int round = 0; round < kRounds; ++round) {
            root->sortRecordsByContentInt(field.c_str(), 0);
            root->sortRecordsByContentInt(field.c_str(), 1);
            root->sortByAttributeInt(attr.c_str(), 1);
            root->sortByAttributeInt(attr.c_str(), 0);
            if (!increasing(root, field, attr)) ++failures[t];
            root->sortRecordsByAttribute(field.c_str(), attr.c_str(), 0, false);
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back(work, t);
    for (auto& th : threads)
        th.join();
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(failures[t], 0) << "thread " << t;
}

TEST(InsertAscending, PlacesByTagThenContent) {
    Tree r = withTags({"a", "c"});
    r->insertAscending("b", nullptr);
    EXPECT_EQ(order(r.get()), "a b c");
    r->insertAscending("d", nullptr);
    EXPECT_EQ(order(r.get()), "a b c d");
    TreeNode* capital = r->insertAscending("A", "x");
    EXPECT_EQ(order(r.get()), "A a b c d");
    EXPECT_EQ(r->getFirstChild(), capital);
    EXPECT_STREQ(capital->getContent(), "x");
    EXPECT_EQ(capital->getParent(), r.get());

    Tree x(TreeNode::createRoot("r"));
    add(x.get(), "x", "1");
    add(x.get(), "x", "3");
    add(x.get(), "y", "0");
    x->insertAscending("x", "2");
    EXPECT_EQ(order(x.get(), Key::kContent), "1 2 3 0");
    TreeNode* three = x->insertAscending("x", "3");
    EXPECT_EQ(x->getChild(3), three);
    TreeNode* none = x->insertAscending("x", nullptr);
    EXPECT_EQ(x->getChild(4), none);
    TreeNode* empty = x->insertAscending("x", "");
    EXPECT_EQ(x->getChild(0), empty);  // before the first non-empty content
    EXPECT_EQ(empty->getContentSb(), nullptr);
    EXPECT_EQ(order(x.get(), Key::kContent), " 1 2 3 3  0");
}

TEST(InsertAscending, OutOfOrderChildrenAndFirstChild) {
    Tree r = withTags({"m", "z", "b"});
    r->insertAscending("n", nullptr);
    EXPECT_EQ(order(r.get()), "m n z b");

    Tree lone(TreeNode::createRoot("r"));
    TreeNode* only = lone->insertAscending("only", "c");
    ASSERT_NE(lone->getChildrenArray(), nullptr);
    EXPECT_EQ(lone->getNumChildren(), 1);
    EXPECT_EQ(lone->getFirstChild(), only);
    EXPECT_EQ(only->getTreeInfo(), lone->getTreeInfo());

    TreeNode detached("d", nullptr, 0);
    EXPECT_EQ(detached.insertAscending("x", "y"), nullptr);
    EXPECT_EQ(detached.checkInsertAscending("x", nullptr), nullptr);
    EXPECT_EQ(detached.getNumChildren(), 0);
}

TEST(InsertAscending, CheckInsertFindsOrCreates) {
    Tree r = withTags({"a", "k", "z"});
    StringPair pair("id", "7");
    EXPECT_EQ(r->checkInsertAscending("k", nullptr), r->getChild(1));
    EXPECT_EQ(r->getNumChildren(), 3);

    TreeNode* made = r->checkInsertAscending("k", &pair);
    EXPECT_EQ(r->getChild(2), made);  // after the existing k, before z
    EXPECT_TRUE(made->hasAttributeWithValue("id", "7"));
    EXPECT_EQ(made->getNumAttributes(), 1);
    EXPECT_EQ(r->checkInsertAscending("k", &pair), made);
    EXPECT_EQ(r->getNumChildren(), 4);

    TreeNode* fresh = r->checkInsertAscending("m", nullptr);
    EXPECT_EQ(order(r.get()), "a k k m z");
    EXPECT_EQ(fresh->getNumAttributes(), 0);
}

}  // namespace
