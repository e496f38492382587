#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "xmltree/TreeNode.h"

namespace {

using Tree = std::unique_ptr<TreeNode>;

TreeNode* add(TreeNode* parent, const char* tag, const char* content = nullptr) {
    return TreeNode::createNode2(parent, tag, content);
}

// Document order: r, p(1){ q(2){ t(3) }, t(4) }, t(5), s(6){ t(7) }
// Breadth-first:  r, p, t5, s, q, t4, t7, t3
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

std::string str(const StringBuffer& sb) {
    return sb.getString();
}

TEST(Accumulate, AllContentIsBreadthFirstWithEmptyFields) {
    Doc d;
    StringBuffer out("keep:");
    d.root->getAllContent(out, ',');
    EXPECT_EQ(str(out), "keep:,1,5,6,2,4,7,3");

    Tree single(TreeNode::createRoot2("x", "x"));
    StringBuffer one;
    single->getAllContent(one, '|');
    EXPECT_EQ(str(one), "x");

    Tree bare(TreeNode::createRoot("r"));
    add(bare.get(), "a", "a");
    add(bare.get(), "b", "b");
    StringBuffer two;
    bare->getAllContent(two, ';');
    EXPECT_EQ(str(two), ";a;b");
}

TEST(Accumulate, ContentIsBlankSeparatedAndSkipListCutsDescent) {
    Doc d;
    StringBuffer all;
    d.root->accumulateContent(all, nullptr);
    EXPECT_EQ(str(all), " 1 5 6 2 4 7 3");

    StringBuffer cut;
    d.root->accumulateContent(cut, "q|s");
    EXPECT_EQ(str(cut), " 1 5 6 2 4");  // q and s keep their own text

    StringBuffer caseDiffers;
    d.root->accumulateContent(caseDiffers, "Q|S");
    EXPECT_EQ(str(caseDiffers), " 1 5 6 2 4 7 3");

    StringBuffer self;
    d.p->accumulateContent(self, "p");
    EXPECT_EQ(str(self), "1");
}

TEST(Accumulate, TagContentTakesShallowerFirstAndHonoursSkipList) {
    Doc d;
    StringBuffer out("<");
    d.root->accumulateTagContent("t", out, nullptr);
    EXPECT_EQ(str(out), "<5 4 7 3");

    StringBuffer cut;
    d.root->accumulateTagContent("t", cut, "p");
    EXPECT_EQ(str(cut), "5 7");

    StringBuffer untagged;
    Tree root(TreeNode::createRoot("r"));
    add(root.get(), nullptr, "u");
    add(root.get(), "v", "v");
    root->accumulateTagContent("", untagged, nullptr);
    EXPECT_EQ(str(untagged), "u");

    StringBuffer none("same");
    d.root->accumulateTagContent(nullptr, none, nullptr);
    EXPECT_EQ(str(none), "same");
}

TEST(Accumulate, CollectCallsOncePerMatchIncludingEmpty) {
    Doc d;
    add(d.t3, "t");  // deepest, no content
    Collector c;
    d.root->collectTagContent("t", &c);
    EXPECT_EQ(c.seen, (std::vector<std::string>{"5", "4", "7", "3", ""}));

    Collector none;
    d.root->collectTagContent(nullptr, &none);
    d.root->collectTagContent("t", nullptr);
    EXPECT_TRUE(none.seen.empty());
}

std::string bytes(const DataBuffer& db) {
    return std::string(reinterpret_cast<const char*>(db.getData2()), db.getSize());
}

TEST(Base64, EightBytesDecideBeforeTheReferenceMark) {
    DataBuffer ext0;
    ext0.append("zero", 4);
    DataBuffer ext1;
    ext1.append("one", 3);
    ExtPtrArray externals;
    externals.append(&ext0);
    externals.append(&ext1);

    Tree root(TreeNode::createRoot2("r", "QUJD"));   // "ABC"
    TreeNode* shortRef = add(root.get(), "d", "1");  // index 1
    shortRef->addAttribute("src", "ext");
    TreeNode* sevenRef = add(root.get(), "d", "0000001");  // 7 chars: still an index
    sevenRef->addAttribute("src", "ext");
    TreeNode* eightRef = add(root.get(), "d", "SGVsbG8h");  // 8 chars: "Hello!"
    eightRef->addAttribute("src", "ext");
    TreeNode* noContent = add(root.get(), "d");  // index 0
    noContent->addAttribute("src", "ext");
    TreeNode* outOfRange = add(root.get(), "d", "9");
    outOfRange->addAttribute("src", "ext");
    TreeNode* otherMark = add(root.get(), "d", "eHk=");  // "xy"
    otherMark->addAttribute("src", "EXT");

    DataBuffer out;
    out.append(">", 1);
    root->accumulateBase64Content(out, &externals);
    EXPECT_EQ(bytes(out), ">ABConeoneHello!zeroxy");

    // Without externals every node is plain base64.
    DataBuffer plain;
    Tree alone(TreeNode::createRoot2("r", "QQ=="));
    add(alone.get(), "d", "Qg==")->addAttribute("src", "ext");
    alone->accumulateBase64Content(plain, nullptr);
    EXPECT_EQ(bytes(plain), "AB");
}

ExtPtrArray* names(ExtPtrArray& arr, std::initializer_list<const char*> list) {
    for (const char* s : list)
        arr.append(s ? StringBuffer::createNewSB(s) : nullptr);
    return &arr;
}

struct Lists {
    ExtPtrArray skip;
    ExtPtrArray exclude;
    ~Lists() {
        skip.removeAllObjects();
        exclude.removeAllObjects();
    }
};

TEST(Significant, NbspCountsNoLettersAndMinLengthIsStrict) {
    Tree root(TreeNode::createRoot("r"));
    TreeNode* exact = add(root.get(), "a", "abcde");  // 5 bytes: not examined at minLength 5
    TreeNode* nbsp = add(root.get(), "a", "&nbsp;&nbsp;..");
    TreeNode* amp = add(root.get(), "a", "&amp;&x1");  // "amp" and "x": 4 letters
    TreeNode* high = add(root.get(), "a", "12 \xC3\xA9\xC3\xA9 99 ab");
    TreeNode* good = add(root.get(), "a", "abcdef");
    Lists l;

    EXPECT_EQ(root->firstSignificantContent(0, 5, l.skip, l.exclude), good);
    EXPECT_EQ(root->firstSignificantContent(0, 4, l.skip, l.exclude), exact);
    EXPECT_EQ(root->firstSignificantContent(1, 4, l.skip, l.exclude), amp);
    EXPECT_EQ(root->firstSignificantContent(2, 4, l.skip, l.exclude), good);
    EXPECT_EQ(root->firstSignificantContent(3, 4, l.skip, l.exclude), nullptr);
    EXPECT_EQ(root->firstSignificantContent(1, 2, l.skip, l.exclude), amp);
    EXPECT_EQ(root->firstSignificantContent(2, 2, l.skip, l.exclude), high);
    (void)nbsp;
}

TEST(Significant, DocumentOrderSkipTagsAndExcludedTexts) {
    Tree root(TreeNode::createRoot("r"));
    TreeNode* nav = add(root.get(), "Nav", "navigation links");
    TreeNode* inNav = add(nav, "p", "inside the nav");
    TreeNode* ad = add(root.get(), "p", "Buy now, Advert");
    TreeNode* later = add(root.get(), "p", "plain later text");
    Lists l;
    names(l.skip, {nullptr, "nav"});

    EXPECT_EQ(root->firstSignificantContent(0, 3, l.skip, l.exclude), inNav);
    EXPECT_EQ(root->firstSignificantContent(1, 3, l.skip, l.exclude), ad);
    names(l.exclude, {"advert"});  // case differs: does not exclude
    EXPECT_EQ(root->firstSignificantContent(1, 3, l.skip, l.exclude), ad);
    names(l.exclude, {"Advert"});
    EXPECT_EQ(root->firstSignificantContent(1, 3, l.skip, l.exclude), later);
}

TEST(Biggest, StrictSizeBoundsAndExcludedTag) {
    Tree root(TreeNode::createRoot("r"));
    TreeNode* a = add(root.get(), "a");
    TreeNode* deep = add(a, "x", "12345");  // earlier in the document, deeper
    TreeNode* top = add(root.get(), "x", "abcde");
    TreeNode* big = add(root.get(), "Skip", "0123456789");
    TreeNode* inSkip = add(big, "y", "1234567");

    EXPECT_EQ(root->findBiggestContent(0, 100, nullptr), big);
    EXPECT_EQ(root->findBiggestContent(0, 100, "skip"), inSkip);
    EXPECT_EQ(root->findBiggestContent(0, 6, "skip"), top);  // equal size: shallower wins
    EXPECT_EQ(a->findBiggestContent(5, 5, nullptr), deep);   // bounds inclusive
    EXPECT_EQ(root->findBiggestContent(6, 5, nullptr), nullptr);
    EXPECT_EQ(root->findBiggestContent(11, 100, nullptr), nullptr);

    Tree empty(TreeNode::createRoot("r"));
    add(empty.get(), "e");
    EXPECT_EQ(empty->findBiggestContent(0, 10, nullptr), nullptr);
}

TEST(Accumulate, MillionDeepChainHasNoRecursion) {
    const int kDepth = 1000000;
    Tree root(TreeNode::createRoot("n"));
    TreeNode* n = root.get();
    for (int i = 0; i < kDepth; ++i)
        n = add(n, "n");
    n->setContentUtf8("bottom");
    n->setTag("end");
    StringBuffer out;
    root->accumulateTagContent("end", out, nullptr);
    EXPECT_EQ(str(out), "bottom");
    EXPECT_EQ(root->findBiggestContent(1, 10, nullptr), n);
    Lists l;
    EXPECT_EQ(root->firstSignificantContent(0, 1, l.skip, l.exclude), n);
}

}  // namespace
