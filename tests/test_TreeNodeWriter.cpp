#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "xmltree/TreeNode.h"

namespace {

std::string writeXml(TreeNode* node, int index, int depth, bool omitDeclaration) {
    StringBuffer out;
    node->createXML(out, index, depth, omitDeclaration);
    return std::string(out.getString(), static_cast<size_t>(out.getSize()));
}

std::string readGolden(const char* name) {
    std::string path = std::string(XMLTREE_TEST_DATA_DIR) + "/writer/" + name;
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.good()) << "cannot read " << path;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string blanks(int n) {
    return std::string(static_cast<size_t>(n), ' ');
}

// Owns a tree for the length of a test. The reference it holds keeps the
// tree alive when a test removes a child.
struct Tree {
    TreeNode* root;
    explicit Tree(const char* tag) : root(TreeNode::createRoot(tag)) { root->incTreeRefCount(); }
    ~Tree() {
        root->decTreeRefCount();
        root->deleteTree();
    }
};

// ---- the worked examples ------------------------------------------------

// Root "a" with a declaration, "b" with x<y and an empty "c".
TreeNode* buildSmallDocument() {
    TreeNode* a = TreeNode::createRoot("a");
    a->setDocEncoding("utf-8");
    TreeNode::createNode2(a, "b", "x<y");
    TreeNode::createNode(a, "c");
    return a;
}

TEST(WriterExamples, DeclarationThenElementsWithoutEmptyLine) {
    TreeNode* a = buildSmallDocument();
    EXPECT_EQ(writeXml(a, 0, 0, false),
              "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\r\n"
              "<a>\r\n"
              "    <b>x&lt;y</b>\r\n"
              "    <c />\r\n"
              "</a>\r\n");
    a->deleteTree();
}

TEST(WriterExamples, OmittedDeclarationLeavesEmptyFirstLine) {
    TreeNode* a = buildSmallDocument();
    EXPECT_EQ(writeXml(a, 0, 0, true),
              "\r\n"
              "<a>\r\n"
              "    <b>x&lt;y</b>\r\n"
              "    <c />\r\n"
              "</a>\r\n");
    a->deleteTree();
}

TEST(WriterExamples, CdataContentLosesItsTerminator) {
    Tree t("note");
    t.root->setContentUtf8("a]]>b");
    t.root->setCdata(true);
    EXPECT_EQ(writeXml(t.root, 1, 0, false), "<note><![CDATA[ab]]></note>\r\n");
}

TEST(WriterExamples, ContentAndChildAtDepthOne) {
    Tree t("doc");
    TreeNode* p = TreeNode::createNode2(t.root, "p", "text");
    TreeNode::createNode(p, "q");
    EXPECT_EQ(writeXml(p, 1, 1, false),
              "    <p>text\r\n"
              "        <q />\r\n"
              "    </p>\r\n");
    // The first child of its parent starts on a new line.
    EXPECT_EQ(writeXml(p, 0, 1, false),
              "\r\n    <p>text\r\n"
              "        <q />\r\n"
              "    </p>\r\n");
}

TEST(WriterExamples, IndentationStopsAtFiftyLevels) {
    Tree t("doc");
    TreeNode* e = TreeNode::createNode(t.root, "e");
    EXPECT_EQ(writeXml(e, 1, 60, false), blanks(200) + "<e />\r\n");
    EXPECT_EQ(writeXml(e, 1, 50, false), blanks(200) + "<e />\r\n");
    EXPECT_EQ(writeXml(e, 1, 49, false), blanks(196) + "<e />\r\n");
    EXPECT_EQ(writeXml(e, 1, 0, false), "<e />\r\n");
}

// ---- elements -----------------------------------------------------------

TEST(WriterElements, EmptyChildrenArrayClosesOnTheSameLine) {
    Tree t("doc");
    TreeNode* e = TreeNode::createNode(t.root, "e");
    TreeNode::createNode(e, "gone");
    e->removeChildByIndex(0);
    ASSERT_NE(e->getChildrenArray(), nullptr);
    ASSERT_EQ(e->getNumChildren(), 0);
    EXPECT_EQ(writeXml(e, 1, 1, false), "    <e>    </e>\r\n");
    e->setContentUtf8("text");
    EXPECT_EQ(writeXml(e, 1, 1, false), "    <e>text    </e>\r\n");
}

TEST(WriterElements, ContentEndingInLineFeedIndentsTheCloseTag) {
    Tree t("doc");
    TreeNode* e = TreeNode::createNode2(t.root, "e", "one\ntwo\n");
    EXPECT_EQ(writeXml(e, 1, 1, false), "    <e>one\ntwo\n    </e>\r\n");
    e->setContentUtf8("one\ntwo");
    EXPECT_EQ(writeXml(e, 1, 1, false), "    <e>one\ntwo</e>\r\n");
}

TEST(WriterElements, MissingOrEmptyTagIsWrittenAsNothing) {
    TreeNode* root = TreeNode::createRoot(nullptr);
    EXPECT_EQ(writeXml(root, 1, 0, false), "<nothing />\r\n");
    TreeNode* child = TreeNode::createNode2(root, "x", "v");
    child->setTag("");
    EXPECT_EQ(writeXml(root, 1, 0, false),
              "<nothing>\r\n    <nothing>v</nothing>\r\n</nothing>\r\n");
    root->deleteTree();
}

TEST(WriterElements, AttributesFollowTheNameInEveryForm) {
    Tree t("doc");
    t.root->addAttribute("id", "7");
    TreeNode* e = TreeNode::createNode(t.root, "e");
    e->addAttribute("a", "1");
    e->addAttribute("b", "x\"y");
    EXPECT_EQ(writeXml(t.root, 1, 0, false),
              "<doc id=\"7\">\r\n"
              "    <e a=\"1\" b=\"x&quot;y\" />\r\n"
              "</doc>\r\n");
    e->setContentUtf8("c");
    EXPECT_EQ(writeXml(e, 1, 0, false), "<e a=\"1\" b=\"x&quot;y\">c</e>\r\n");
    // An attribute set emptied of its attributes writes nothing.
    e->removeAllAttributes();
    EXPECT_EQ(writeXml(e, 1, 0, false), "<e>c</e>\r\n");
}

TEST(WriterElements, NodeOutsideAnyTreeWritesNothing) {
    TreeNode loose("x", "y", 0);
    StringBuffer out("keep");
    loose.createXML(out, 0, 0, false);
    EXPECT_STREQ(out.getString(), "keep");
}

TEST(WriterElements, OutputIsAppended) {
    Tree t("r");
    StringBuffer out("<!-- head -->");
    t.root->createXML(out, 1, 0, false);
    EXPECT_STREQ(out.getString(), "<!-- head --><r />\r\n");
}

TEST(WriterElements, OpenAndCloseTagDirectly) {
    Tree t("doc");
    TreeNode* e = TreeNode::createNode(t.root, "e");
    StringBuffer out;
    EXPECT_TRUE(e->openTag(out, 2));
    EXPECT_STREQ(out.getString(), "        <e />\r\n");
    out.clear();
    e->setContentUtf8("c");
    EXPECT_FALSE(e->openTag(out, 2));
    e->closeTag(out, 0);
    EXPECT_STREQ(out.getString(), "        <e></e>\r\n");
    out.clear();
    e->openTag(out, -3);  // no indentation below zero
    EXPECT_STREQ(out.getString(), "<e>");
}

// ---- content --------------------------------------------------------------

TEST(WriterContent, EscapesAllFiveCharactersAndCopiesTheRest) {
    Tree t("doc");
    TreeNode* e = TreeNode::createNode2(t.root, "e", "<>\"'&");
    EXPECT_EQ(writeXml(e, 1, 0, false), "<e>&lt;&gt;&quot;&apos;&amp;</e>\r\n");
    e->setContentUtf8("already &lt; escaped");
    EXPECT_EQ(writeXml(e, 1, 0, false), "<e>already &amp;lt; escaped</e>\r\n");
    e->setContentUtf8("tab\there \x01 caf\xc3\xa9 a&&b end");
    EXPECT_EQ(writeXml(e, 1, 0, false), "<e>tab\there \x01 caf\xc3\xa9 a&amp;&amp;b end</e>\r\n");
}

TEST(WriterContent, EscapingStopsAtAnEmbeddedNul) {
    Tree t("doc");
    TreeNode* e = TreeNode::createNode(t.root, "e");
    e->setContentN("a<b\0<c", 6);
    StringBuffer out;
    EXPECT_TRUE(e->outputContent(out));
    EXPECT_STREQ(out.getString(), "a&lt;b");
    EXPECT_EQ(out.getSize(), 6);
}

TEST(WriterContent, CdataRemovesMarkersOnlyWhenTerminatorPresent) {
    Tree t("doc");
    TreeNode* e = TreeNode::createNode2(t.root, "e", "a<![CDATA[b]]>c]]>]]>d");
    e->setCdata(true);
    StringBuffer out;
    EXPECT_TRUE(e->outputContent(out));
    EXPECT_STREQ(out.getString(), "<![CDATA[abcd]]>");
    // Without a terminator inside, the text goes in unchanged, opener and all.
    e->setContentUtf8("x <![CDATA[ & y");
    out.clear();
    e->outputContent(out);
    EXPECT_STREQ(out.getString(), "<![CDATA[x <![CDATA[ & y]]>");
    // The node itself is not changed by the stripping.
    e->setContentUtf8("p]]>q");
    out.clear();
    e->outputContent(out);
    EXPECT_STREQ(e->getContent(), "p]]>q");
}

TEST(WriterContent, NoContentWritesNothing) {
    Tree t("doc");
    TreeNode* e = TreeNode::createNode(t.root, "e");
    e->setCdata(true);
    StringBuffer out;
    EXPECT_FALSE(e->outputContent(out));
    EXPECT_EQ(out.getSize(), 0);
    EXPECT_EQ(writeXml(e, 1, 0, false), "<e />\r\n");
}

TEST(WriterContent, CheckCdataRequiredCountsOnlyMarkupCharacters) {
    Tree t("doc");
    TreeNode* e = TreeNode::createNode(t.root, "e");
    for (const char* text : {"a\"b", "a&b", "a<b", "a>b"}) {
        e->setCdata(false);
        e->setContentUtf8(text);
        e->checkCdataRequired();
        EXPECT_TRUE(e->getCdata()) << text;
    }
    for (const char* text : {"it's", "caf\xc3\xa9 \xff", "plain"}) {
        e->setCdata(false);
        e->setContentUtf8(text);
        e->checkCdataRequired();
        EXPECT_FALSE(e->getCdata()) << text;
    }
    // It only ever sets the flag.
    e->setCdata(true);
    e->setContentUtf8("plain");
    e->checkCdataRequired();
    EXPECT_TRUE(e->getCdata());
    TreeNode* empty = TreeNode::createNode(t.root, "f");
    empty->checkCdataRequired();
    EXPECT_FALSE(empty->getCdata());
}

// ---- prolog -----------------------------------------------------------------

TEST(WriterProlog, DoctypeAndProcessingKeepTheirLineFeed) {
    Tree t("a");
    t.root->setDocType("<!DOCTYPE a>\n");
    t.root->setProcessing("<?pi x?>\n");
    // The processing text stands for the empty line: the tag follows at once.
    EXPECT_EQ(writeXml(t.root, 0, 0, false), "<!DOCTYPE a>\n\r\n<?pi x?>\n\r\n<a />\r\n");
    t.root->setDocType(nullptr);
    EXPECT_EQ(writeXml(t.root, 0, 0, false), "<?pi x?>\n\r\n<a />\r\n");
    t.root->setProcessing("");
    EXPECT_EQ(writeXml(t.root, 0, 0, false), "\r\n<a />\r\n");
    t.root->setDocType("<!DOCTYPE a>");
    EXPECT_EQ(writeXml(t.root, 0, 0, false), "<!DOCTYPE a>\r\n<a />\r\n");
}

TEST(WriterProlog, DeclarationWithoutAttributeSet) {
    Tree t("a");
    t.root->setXmlDeclaration(TreeNode::createRoot("xml"));
    EXPECT_EQ(writeXml(t.root, 0, 0, false), "<?xml ?>\r\n<a />\r\n");
    // Omitting the declaration restores the empty line; index 1 drops it.
    EXPECT_EQ(writeXml(t.root, 0, 0, true), "\r\n<a />\r\n");
    EXPECT_EQ(writeXml(t.root, 1, 0, true), "<a />\r\n");
    t.root->setXmlDeclaration(nullptr);
    EXPECT_EQ(writeXml(t.root, 1, 0, false), "<a />\r\n");
}

TEST(WriterProlog, StyleSheetsDoNotSuppressTheEmptyLine) {
    Tree t("a");
    TreeNode* sheet = TreeNode::createRoot("?xml-stylesheet");
    sheet->addAttribute("href", "s.xsl");
    t.root->addStyleSheetDeclaration(sheet);
    EXPECT_EQ(writeXml(t.root, 0, 0, false), "<?xml-stylesheet href=\"s.xsl\" ?>\r\n\r\n<a />\r\n");
    t.root->setDocEncoding("utf-8");
    EXPECT_EQ(writeXml(t.root, 0, 0, false),
              "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\r\n"
              "<?xml-stylesheet href=\"s.xsl\" ?>\r\n<a />\r\n");
}

TEST(WriterProlog, StandaloneIsMovedLastForGood) {
    Tree t("a");
    TreeNode* decl = TreeNode::createRoot("xml");
    decl->addAttribute("standalone", "no");
    decl->addAttribute("version", "1.0");
    decl->addAttribute("encoding", "utf-8");
    t.root->setXmlDeclaration(decl);
    const std::string expected =
        "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"no\" ?>\r\n<a />\r\n";
    EXPECT_EQ(writeXml(t.root, 0, 0, false), expected);
    StringBuffer name;
    ASSERT_TRUE(decl->getAttributeName(2, name));
    EXPECT_STREQ(name.getString(), "standalone");
    EXPECT_EQ(decl->getNumAttributes(), 3);
    // Omitting the declaration leaves its order alone.
    t.root->setDocEncoding("latin1");  // encoding now last
    writeXml(t.root, 0, 0, true);
    decl->getAttributeName(2, name);
    EXPECT_STREQ(name.getString(), "encoding");
    EXPECT_EQ(writeXml(t.root, 0, 0, false),
              "<?xml version=\"1.0\" encoding=\"latin1\" standalone=\"no\" ?>\r\n<a />\r\n");
}

TEST(WriterProlog, OnlyTheRootWritesTheProlog) {
    Tree t("a");
    t.root->setDocEncoding("utf-8");
    t.root->setDocType("<!DOCTYPE a>");
    TreeNode* b = TreeNode::createNode(t.root, "b");
    EXPECT_EQ(writeXml(b, 0, 0, false), "\r\n<b />\r\n");
}

// ---- larger documents ---------------------------------------------------------

TEST(WriterGolden, CatalogWithFullProlog) {
    TreeNode* root = TreeNode::createRoot("catalog");
    root->incTreeRefCount();  // survives the removal of a child below
    root->setDocStandalone("yes");
    root->setDocEncoding("utf-8");
    TreeNode* sheet = TreeNode::createRoot("?xml-stylesheet");
    sheet->addAttribute("type", "text/xsl");
    sheet->addAttribute("href", "catalog.xsl");
    root->addStyleSheetDeclaration(sheet);
    root->setDocType("<!DOCTYPE catalog SYSTEM \"catalog.dtd\">\n");
    root->setProcessing("<?app mode=\"fast\"?>\n");
    root->addAttribute("version", "2");

    TreeNode* book = TreeNode::createNode(root, "book");
    book->addAttribute("id", "b1");
    book->addAttribute("note", "a&b<c");
    TreeNode::createNode2(book, "title", "Tom & Jerry's \"Big\" <Day>");
    TreeNode::createNode2(book, "price", "9.99")->addAttribute("currency", "EUR");
    TreeNode::createNode2(book, "notes", "line one\nline two\n");
    TreeNode* code = TreeNode::createNode2(book, "code", "if (a < b && c > d) x = ']]>';");
    code->checkCdataRequired();

    book = TreeNode::createNode(root, "book");
    book->addAttribute("id", "b2");
    TreeNode::createNode(book, "title");
    TreeNode* tmp = TreeNode::createNode(book, "tmp");
    TreeNode::createNode(tmp, "x");
    tmp->removeChildByIndex(0);
    TreeNode::createNode2(book, "x", "unnamed")->setTag("");

    EXPECT_EQ(writeXml(root, 0, 0, false), readGolden("catalog.xml"));
    root->deleteTree();
}

TEST(WriterGolden, ChainDeeperThanTheIndentationCap) {
    TreeNode* root = TreeNode::createRoot("n");
    TreeNode* node = root;
    for (int level = 0; level < 55; ++level) {
        StringBuffer value;
        value.append(level);
        node->addAttribute("level", value.getString());
        if (level < 54) node = TreeNode::createNode(node, "n");
    }
    node->setContentUtf8("leaf");
    EXPECT_EQ(writeXml(root, 0, 0, true), readGolden("deep.xml"));
    root->deleteTree();
}

// ---- the walk against a plain recursive writer ------------------------------

// The rules for one element, written the obvious recursive way; fine for the
// shallow trees below.
void referenceWrite(TreeNode* node, StringBuffer& out, int index, int depth) {
    if (index == 0) out.append("\r\n");
    if (node->openTag(out, depth)) return;
    node->outputContent(out);
    ExtPtrArray* kids = node->getChildrenArray();
    if (!kids) {
        node->closeTag(out, out.lastChar() == '\n' ? depth : 0);
        return;
    }
    for (int i = 0; i < kids->getSize(); ++i)
        referenceWrite(static_cast<TreeNode*>(kids->elementAt(i)), out, i, depth + 1);
    node->closeTag(out, depth);
}

// Random shapes: runs of nesting past the indentation cap, wide levels,
// content with and without a final line feed, emptied children arrays.
TEST(WriterWalk, MatchesTheRecursiveDefinitionOnRandomTrees) {
    unsigned state = 12345;
    auto next = [&state](unsigned n) {
        state = state * 1103515245u + 12345u;
        return (state >> 16) % n;
    };
    const char* const texts[] = {"", "a<b", "line\n", "x & y", "deep\r\n"};
    for (int round = 0; round < 20; ++round) {
        Tree t("root");
        TreeNode* current = t.root;
        // Odd rounds climb less often and so nest a few hundred levels deep.
        const unsigned upLimit = round % 2 ? 7 : 9;
        int depth = 0;
        for (int step = 0; step < 3000; ++step) {
            const unsigned roll = next(10);
            if (roll < 5 || depth == 0) {
                TreeNode* child =
                    TreeNode::createNode2(current, next(7) ? "n" : "", texts[next(5)]);
                if (next(4) == 0) child->addAttribute("k", "v");
                if (next(3)) {
                    current = child;
                    ++depth;
                }
            } else if (roll < upLimit) {
                current = current->getParent();
                --depth;
            } else if (current->getNumChildren() > 0) {
                current->removeChildByIndex(current->getNumChildren() - 1);
            }
        }
        TreeNode* start = t.root->getChild(0);
        ASSERT_NE(start, nullptr);
        StringBuffer expected;
        referenceWrite(start, expected, 0, 3);
        StringBuffer actual;
        start->createXML(actual, 0, 3, false);
        ASSERT_STREQ(actual.getString(), expected.getString()) << "round " << round;
    }
}

// ---- depth ------------------------------------------------------------------

int indentOf(int depth) {
    return 4 * (depth < 50 ? depth : 50);
}

bool matchesAt(const char* text, size_t& pos, size_t size, const char* piece, size_t len) {
    if (pos + len > size || std::memcmp(text + pos, piece, len) != 0) return false;
    pos += len;
    return true;
}

bool blanksAt(const char* text, size_t& pos, size_t size, int n) {
    static const std::string kRun = blanks(200);
    return matchesAt(text, pos, size, kRun.data(), static_cast<size_t>(n));
}

// A chain far deeper than any call stack would allow: every byte is checked
// against the rules, without building a second copy of the output.
TEST(WriterDepth, MillionLevelChain) {
    const int kLevels = 1000000;
    TreeNode* root = TreeNode::createRoot("e");
    TreeNode* node = root;
    for (int i = 1; i < kLevels; ++i)
        node = TreeNode::createNode(node, "e");
    ASSERT_NE(node, nullptr);

    size_t expectedSize = 0;
    for (int d = 0; d < kLevels - 1; ++d)
        expectedSize += 2 + 3 + 6 + 2 * indentOf(d);
    expectedSize += 2 + 7 + indentOf(kLevels - 1);

    // Sized up front: the test is about the walk, not about buffer growth.
    StringBuffer out(static_cast<int>(expectedSize));
    root->createXML(out, 0, 0, true);
    const char* text = out.getString();
    const size_t size = static_cast<size_t>(out.getSize());
    EXPECT_EQ(size, expectedSize);

    size_t pos = 0;
    bool ok = true;
    for (int d = 0; ok && d < kLevels - 1; ++d) {
        ok = matchesAt(text, pos, size, "\r\n", 2) && blanksAt(text, pos, size, indentOf(d)) &&
             matchesAt(text, pos, size, "<e>", 3);
    }
    ok = ok && matchesAt(text, pos, size, "\r\n", 2) &&
         blanksAt(text, pos, size, indentOf(kLevels - 1)) &&
         matchesAt(text, pos, size, "<e />\r\n", 7);
    for (int d = kLevels - 2; ok && d >= 0; --d) {
        ok = blanksAt(text, pos, size, indentOf(d)) && matchesAt(text, pos, size, "</e>\r\n", 6);
    }
    EXPECT_TRUE(ok) << "mismatch at byte " << pos;
    EXPECT_EQ(pos, size);
    root->deleteTree();
}

}  // namespace
