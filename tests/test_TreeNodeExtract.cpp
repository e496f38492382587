#include "tests/TestSupport.h"

namespace {

// Document order r, p1{ q2{ t3 }, t4 }, t5, s6{ t7 }; breadth-first
// r, p1, t5, s6, q2, t4, t7, t3.
struct Doc {
    Tree root{TreeNode::createRoot("r")};
    TreeNode* p = add(root.get(), "p", "1");
    TreeNode* q = add(p, "q", "2");
    TreeNode* t3 = add(q, "t", "3");
    TreeNode* t4 = add(p, "t", "4");
    TreeNode* t5 = add(root.get(), "t", "5");
    TreeNode* s = add(root.get(), "s", "6");
    TreeNode* t7 = add(s, "t", "7");
};

struct Collector : StringConsumer {
    std::vector<std::string> seen;
    void consumeString(const char* text) override { seen.push_back(text); }
};

TEST(Accumulate, BreadthFirstOrderSeparatorsAndSkipLists) {
    Doc d;
    StringBuffer all("keep:");
    d.root->getAllContent(all, ',');
    EXPECT_STREQ(all.getString(), "keep:,1,5,6,2,4,7,3");

    StringBuffer cut, caseDiffers, self, tags;
    d.root->accumulateContent(cut, "q|s");  // q and s keep their own text
    EXPECT_STREQ(cut.getString(), " 1 5 6 2 4");
    d.root->accumulateContent(caseDiffers, "Q|S");
    EXPECT_STREQ(caseDiffers.getString(), " 1 5 6 2 4 7 3");
    d.p->accumulateContent(self, "p");
    EXPECT_STREQ(self.getString(), "1");
    d.root->accumulateTagContent("t", tags, "p");
    EXPECT_STREQ(tags.getString(), "5 7");

    add(d.t3, "t");  // no content: still handed on, as ""
    Collector c;
    d.root->collectTagContent("t", &c);
    EXPECT_EQ(c.seen, (std::vector<std::string>{"5", "4", "7", "3", ""}));
}

TEST(Accumulate, Base64ThresholdDecidesBeforeTheReferenceMark) {
    DataBuffer zero, one;
    zero.append("zero", 4);
    one.append("one", 3);
    ExtPtrArray externals;
    externals.append(&zero);
    externals.append(&one);

    Tree root(TreeNode::createRoot2("r", "QUJD"));  // "ABC"
    const char* contents[] = {"0000001", "SGVsbG8h", nullptr, "9"};
    for (const char* text : contents)
        add(root.get(), "d", text)->addAttribute("src", "ext");
    add(root.get(), "d", "eHk=")->addAttribute("src", "EXT");  // not a reference: "xy"

    DataBuffer out;
    root->accumulateBase64Content(out, &externals);
    std::string got(reinterpret_cast<const char*>(out.getData2()), out.getSize());
    EXPECT_EQ(got, "ABConeHello!zeroxy");  // 7 chars index, 8 decode, none is 0, 9 is nothing
}

TEST(Significant, LetterCountNbspAndStrictLength) {
    Tree root(TreeNode::createRoot("r"));
    TreeNode* exact = add(root.get(), "a", "abcde");
    add(root.get(), "a", "&nbsp;&nbsp;..");
    TreeNode* amp = add(root.get(), "a", "&amp;&x1");  // letters: a m p x
    TreeNode* nav = add(root.get(), "Nav", "navigation");
    TreeNode* inNav = add(nav, "p", "nested \xC3\xA9 text");
    TreeNode* good = add(root.get(), "a", "abcdef");
    ExtPtrArray skip, exclude;
    skip.append(nullptr);
    skip.append(StringBuffer::createNewSB("nav"));

    EXPECT_EQ(root->firstSignificantContent(0, 5, skip, exclude), inNav);
    EXPECT_EQ(root->firstSignificantContent(0, 4, skip, exclude), exact);
    EXPECT_EQ(root->firstSignificantContent(1, 4, skip, exclude), amp);
    exclude.append(StringBuffer::createNewSB("ted"));
    EXPECT_EQ(root->firstSignificantContent(0, 5, skip, exclude), good);
    EXPECT_EQ(root->firstSignificantContent(1, 5, skip, exclude), nullptr);
    skip.removeAllObjects();
    exclude.removeAllObjects();
}

TEST(Biggest, ShallowerWinsTiesBoundsInclusiveExcludedTagIgnoresCase) {
    Tree root(TreeNode::createRoot("r"));
    TreeNode* a = add(root.get(), "a");
    TreeNode* deep = add(a, "x", "12345");
    TreeNode* top = add(root.get(), "x", "abcde");
    TreeNode* big = add(root.get(), "Skip", "0123456789");
    TreeNode* inSkip = add(big, "y", "1234567");
    EXPECT_EQ(root->findBiggestContent(0, 100, nullptr), big);
    EXPECT_EQ(root->findBiggestContent(0, 100, "skip"), inSkip);
    EXPECT_EQ(root->findBiggestContent(0, 6, nullptr), top);
    EXPECT_EQ(a->findBiggestContent(5, 5, nullptr), deep);
    EXPECT_EQ(root->findBiggestContent(6, 5, nullptr), nullptr);
}

}  // namespace
