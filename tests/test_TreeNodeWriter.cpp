#include <cstring>

#include "tests/TestSupport.h"
#include "xmltree/Tree.h"

namespace {

std::string xml(TreeNode* node, int index = 1, int depth = 0, bool omitDeclaration = false) {
    StringBuffer out;
    node->createXML(out, index, depth, omitDeclaration);
    return std::string(out.getString(), static_cast<size_t>(out.getSize()));
}

std::string content(TreeNode* node) {
    StringBuffer out;
    node->outputContent(out);
    return out.getString();
}

std::string readGolden(const char* name) {
    return readFile(std::string(XMLTREE_TEST_DATA_DIR) + "/writer/" + name);
}

const std::string kCap(200, ' ');

// A handle holds a reference on the root, which keeps the tree alive when a
// child is removed.
using Doc = xmltree::Tree;

// ---- the worked examples ------------------------------------------------

TEST(WriterExamples, DeclarationCdataDepthAndIndentationCap) {
    Doc t(TreeNode::createRoot("a"));
    t.root()->setDocEncoding("utf-8");
    TreeNode::createNode2(t.root(), "b", "x<y");
    TreeNode* c = TreeNode::createNode(t.root(), "c");
    const std::string body = "<a>\r\n    <b>x&lt;y</b>\r\n    <c />\r\n</a>\r\n";
    EXPECT_EQ(xml(t.root(), 0), "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\r\n" + body);
    EXPECT_EQ(xml(t.root(), 0, 0, true), "\r\n" + body);
    EXPECT_EQ(xml(c, 1, 60), kCap + "<c />\r\n");
    EXPECT_EQ(xml(c, 1, 49), kCap.substr(4) + "<c />\r\n");
    EXPECT_EQ(xml(c, 1, 0), "<c />\r\n");
    TreeNode* p = TreeNode::createNode2(t.root(), "p", "text");
    TreeNode::createNode(p, "q");
    EXPECT_EQ(xml(p, 1, 1), "    <p>text\r\n        <q />\r\n    </p>\r\n");
    EXPECT_EQ(xml(p, 0, 1), "\r\n    <p>text\r\n        <q />\r\n    </p>\r\n");
    TreeNode* note = TreeNode::createNode2(t.root(), "note", "a]]>b");
    note->setCdata(true);
    EXPECT_EQ(xml(note), "<note><![CDATA[ab]]></note>\r\n");
}

// ---- elements and content ---------------------------------------------------

TEST(WriterElements, CloseTagIndentation) {
    Doc t(TreeNode::createRoot("doc"));
    TreeNode* e = TreeNode::createNode(t.root(), "e");
    TreeNode::createNode(e, "gone");
    e->removeChildByIndex(0);  // the children array stays, empty
    ASSERT_NE(e->getChildrenArray(), nullptr);
    EXPECT_EQ(xml(e, 1, 1), "    <e>    </e>\r\n");
    e->setContentUtf8("text");
    EXPECT_EQ(xml(e, 1, 1), "    <e>text    </e>\r\n");

    TreeNode* f = TreeNode::createNode2(t.root(), "f", "one\ntwo\n");
    EXPECT_EQ(xml(f, 1, 1), "    <f>one\ntwo\n    </f>\r\n");
    f->setContentUtf8("one\ntwo");
    EXPECT_EQ(xml(f, 1, 1), "    <f>one\ntwo</f>\r\n");
}

TEST(WriterElements, MissingTagAndMissingTree) {
    TreeNode* root = TreeNode::createRoot(nullptr);
    EXPECT_EQ(xml(root), "<nothing />\r\n");
    TreeNode::createNode2(root, "x", "v")->setTag("");
    EXPECT_EQ(xml(root), "<nothing>\r\n    <nothing>v</nothing>\r\n</nothing>\r\n");
    root->getChild(0)->setContentN("v", 0);  // an empty content buffer writes as none
    EXPECT_EQ(xml(root), "<nothing>\r\n    <nothing />\r\n</nothing>\r\n");
    root->deleteTree();

    TreeNode loose("x", "y", 0);
    StringBuffer out("keep");
    loose.createXML(out, 0, 0, false);
    EXPECT_STREQ(out.getString(), "keep");
}

// Byte-by-byte escaping, up to the first NUL for content; attribute values
// keep a NUL and the apostrophe.
std::string escapeSlowly(const std::string& text, bool content) {
    static const char kSpecials[] = "<>\"&'";
    static const char* const kEntities[] = {"&lt;", "&gt;", "&quot;", "&amp;", "&apos;"};
    std::string out;
    for (char c : text) {
        if (c == '\0' && content) break;
        const char* special = c ? std::strchr(kSpecials, c) : nullptr;
        if (special && (c != '\'' || content)) {
            out += kEntities[special - kSpecials];
        } else {
            out += c;
        }
    }
    return out;
}

// The scans test many bytes a step: a byte to escape (or a NUL) at every
// place of texts around and across the step widths; an escaped text is
// never decoded first ("&lt;" in the content is written "&amp;lt;").
TEST(WriterContent, EscapingAtEveryPlaceOfShortAndLongTexts) {
    Doc t(TreeNode::createRoot("e"));
    t.root()->addAttribute("k", "");  // creates the set
    const char specials[] = {'<', '>', '"', '\'', '&', '\0'};
    for (size_t len = 1; len <= 49; ++len) {
        for (size_t at = 0; at < len; ++at) {
            for (char special : specials) {
                std::string text(len, 'x');
                for (size_t i = 0; i < len; ++i)  // passed through: letters, controls, UTF-8
                    text[i] = "abc\t\x01;\xc3\xa9xyz"[i % 10];
                text[at] = special;
                t.root()->setContentN(text.data(), static_cast<int>(len));
                ASSERT_EQ(content(t.root()), escapeSlowly(text, true)) << len << " " << at;

                t.root()->removeAllAttributes();
                t.root()->getAttributeSet()->addAttributeN("k", 1, text.data(),
                                                           static_cast<int>(len));
                StringBuffer tag;
                t.root()->openTag(tag, 0);
                ASSERT_EQ(std::string(tag.getString(), static_cast<size_t>(tag.getSize())),
                          "<e k=\"" + escapeSlowly(text, false) + "\">")
                    << len << " " << at;
            }
        }
    }
    std::string dense;
    for (int i = 0; i < 300; ++i)
        dense += "<>\"'&ab"[i % 7];
    t.root()->setContentUtf8(dense.c_str());
    EXPECT_EQ(content(t.root()), escapeSlowly(dense, true));
    t.root()->setContentUtf8("is &lt; &amp;");
    EXPECT_EQ(content(t.root()), "is &amp;lt; &amp;amp;");
}

// Markers are stripped only when a terminator is there; checkCdataRequired
// counts markup characters only and never clears the flag.
TEST(WriterContent, CdataMarkersAndWhenCdataIsRequired) {
    Doc t(TreeNode::createRoot("e"));
    t.root()->setCdata(true);
    t.root()->setContentUtf8("a<![CDATA[b]]>c]]>]]>d");
    EXPECT_EQ(content(t.root()), "<![CDATA[abcd]]>");
    EXPECT_STREQ(t.root()->getContent(), "a<![CDATA[b]]>c]]>]]>d");
    t.root()->setContentUtf8("x <![CDATA[ & y");
    EXPECT_EQ(content(t.root()), "<![CDATA[x <![CDATA[ & y]]>");
    t.root()->checkCdataRequired();
    EXPECT_TRUE(t.root()->getCdata());
    for (const char* text : {"a\"b", "a&b", "a<b", "a>b", "it's", "caf\xc3\xa9 \xff"}) {
        t.root()->setCdata(false);
        t.root()->setContentUtf8(text);
        t.root()->checkCdataRequired();
        EXPECT_EQ(t.root()->getCdata(), std::strpbrk(text, "\"&<>") != nullptr) << text;
    }
}

// ---- prolog -----------------------------------------------------------------

// The processing text stands in for the empty line after the prolog; only
// the root writes the prolog.
TEST(WriterProlog, TextsDeclarationAndStyleSheets) {
    Doc t(TreeNode::createRoot("a"));
    t.root()->setDocType("<!DOCTYPE a>\n");
    t.root()->setProcessing("<?pi x?>\n");
    EXPECT_EQ(xml(t.root(), 0), "<!DOCTYPE a>\n\r\n<?pi x?>\n\r\n<a />\r\n");
    t.root()->setDocType(nullptr);
    EXPECT_EQ(xml(t.root(), 0), "<?pi x?>\n\r\n<a />\r\n");
    t.root()->setProcessing("");
    t.root()->setDocType("<!DOCTYPE a>");
    EXPECT_EQ(xml(t.root(), 0), "<!DOCTYPE a>\r\n<a />\r\n");
    EXPECT_EQ(xml(TreeNode::createNode(t.root(), "b"), 0), "\r\n<b />\r\n");

    Doc u(TreeNode::createRoot("a"));
    TreeNode* sheet = TreeNode::createRoot("?xml-stylesheet");
    sheet->addAttribute("href", "s.xsl");
    u.root()->addStyleSheetDeclaration(sheet);
    const std::string sheetLine = "<?xml-stylesheet href=\"s.xsl\" ?>\r\n";
    EXPECT_EQ(xml(u.root(), 0), sheetLine + "\r\n<a />\r\n");
    u.root()->setXmlDeclaration(TreeNode::createRoot("xml"));
    EXPECT_EQ(xml(u.root(), 0), "<?xml ?>\r\n" + sheetLine + "<a />\r\n");
    EXPECT_EQ(xml(u.root(), 0, 0, true), sheetLine + "\r\n<a />\r\n");
    EXPECT_EQ(xml(u.root(), 1, 0, true), sheetLine + "<a />\r\n");
}

// ---- larger documents ---------------------------------------------------------

TEST(WriterGolden, CatalogWithFullProlog) {
    Doc t(TreeNode::createRoot("catalog"));
    TreeNode* root = t.root();
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
    TreeNode::createNode2(book, "code", "if (a < b && c > d) x = ']]>';")->checkCdataRequired();

    book = TreeNode::createNode(root, "book");
    book->addAttribute("id", "b2");
    TreeNode::createNode(book, "title");
    TreeNode* tmp = TreeNode::createNode(book, "tmp");
    TreeNode::createNode(tmp, "x");
    tmp->removeChildByIndex(0);
    TreeNode::createNode2(book, "x", "unnamed")->setTag("");

    EXPECT_EQ(xml(root, 0), readGolden("catalog.xml"));
}

TEST(WriterGolden, ChainDeeperThanTheIndentationCap) {
    Doc t(TreeNode::createRoot("n"));
    TreeNode* node = t.root();
    for (int level = 0; level < 55; ++level) {
        StringBuffer value;
        value.append(level);
        node->addAttribute("level", value.getString());
        if (level < 54) node = TreeNode::createNode(node, "n");
    }
    node->setContentUtf8("leaf");
    EXPECT_EQ(xml(t.root(), 0, 0, true), readGolden("deep.xml"));
}

}  // namespace
