// The prolog kept in the tree record: declaration attributes, document type
// and processing texts, style sheets.

#include "tests/TestSupport.h"

namespace {

std::string declAttributes(TreeNode* node) {
    TreeNode* decl = node->getTreeInfo()->xmlDecl;
    return decl ? attrs(decl) : "";
}

std::string styleLines(TreeNode* node) {
    StringBuffer out;
    node->appendStyleInfoToString(out);
    return out.getString();
}

TreeNode* makeSheet(const char* href) {
    TreeNode* sheet = TreeNode::createRoot("?xml-stylesheet");
    if (href) sheet->addAttribute("href", href);
    return sheet;
}

// Setting a value creates the declaration and moves the value last; a
// missing value is reported without touching the output; checkSet only
// fills a missing value, even an empty one counts.
TEST(PrologDeclaration, SettersGettersAndCheckSet) {
    Tree root(TreeNode::createRoot("doc"));
    StringBuffer out("untouched");
    bool found = true;
    root->getDocEncoding(out, found);
    EXPECT_FALSE(found);
    TreeNode* leaf = add(add(root.get(), "a"), "b");
    leaf->setDocEncoding("utf-8");  // any node of the tree reaches the prolog
    EXPECT_STREQ(root->getTreeInfo()->xmlDecl->getTag(), "xml");
    root->getDocStandalone(out, found);
    EXPECT_FALSE(found);
    EXPECT_STREQ(out.getString(), "untouched");
    root->setDocStandalone("yes");
    root->checkSetDocEncoding("latin1");
    EXPECT_EQ(declAttributes(root.get()), "version=1.0;encoding=utf-8;standalone=yes;");
    root->setDocEncoding(" UTF-8 ");
    EXPECT_EQ(declAttributes(root.get()), "version=1.0;standalone=yes;encoding= UTF-8 ;");
    root->getDocEncoding(out, found);
    EXPECT_TRUE(found);
    EXPECT_STREQ(out.getString(), " UTF-8 ");  // given back as stored

    Tree fresh(TreeNode::createRoot("doc"));
    fresh->setXmlDeclaration(TreeNode::createRoot("xml"));  // no attribute set
    fresh->getDocStandalone(out, found);
    EXPECT_FALSE(found);
    fresh->checkSetDocEncoding("utf-8");
    fresh->setDocStandalone("no");
    EXPECT_EQ(declAttributes(fresh.get()), "encoding=utf-8;standalone=no;");
    fresh->setDocEncoding("");  // present though empty
    fresh->checkSetDocEncoding("latin1");
    EXPECT_EQ(declAttributes(fresh.get()), "standalone=no;encoding=;");
}

TEST(PrologDeclaration, SetXmlDeclarationReplacesAndRemoves) {
    Tree root(TreeNode::createRoot("doc"));
    TreeNode* decl = TreeNode::createRoot("xml");
    decl->addAttribute("version", "1.1");
    root->setXmlDeclaration(decl);
    root->setXmlDeclaration(decl);  // the same node: kept alive
    EXPECT_EQ(decl->getMagic(), kTreeMagicAlive);
    root->setDocEncoding("utf-8");
    EXPECT_EQ(declAttributes(root.get()), "version=1.1;encoding=utf-8;");
    root->setXmlDeclaration(TreeNode::createRoot("xml"));  // frees the old one
    EXPECT_EQ(declAttributes(root.get()), "");
    root->setXmlDeclaration(nullptr);
    EXPECT_EQ(root->getTreeInfo()->xmlDecl, nullptr);
}

TEST(PrologDeclaration, NodeWithoutTreeIgnoresEverything) {
    TreeNode loose("x", nullptr, 0);
    loose.setDocEncoding("utf-8");
    loose.checkSetDocEncoding("utf-8");
    loose.setDocType("<!DOCTYPE x>");
    loose.setProcessing("<?pi?>");
    TreeNode* decl = TreeNode::createRoot("xml");
    TreeNode* sheet = makeSheet("a.xsl");
    loose.setXmlDeclaration(decl);  // not taken: still the caller's
    loose.addStyleSheetDeclaration(sheet);
    EXPECT_EQ(styleLines(&loose), "");
    decl->deleteTree();
    sheet->deleteTree();
}

// Added once, written in order, only those with an attribute set; a
// transfer moves entries in order and empties the source.
TEST(PrologStyleSheets, AddedOnceTransferredAndWrittenInOrder) {
    Tree root(TreeNode::createRoot("doc"));
    TreeNode* first = makeSheet("a.xsl");
    root->addStyleSheetDeclaration(first);
    root->addStyleSheetDeclaration(makeSheet(nullptr));  // no set
    root->addStyleSheetDeclaration(first);
    TreeNode* emptied = makeSheet("c.xsl");
    emptied->removeAllAttributes();
    root->addStyleSheetDeclaration(emptied);
    ExtPtrArray& sheets = root->getTreeInfo()->styleSheets;
    sheets.append(nullptr);
    ExtPtrArray from;
    from.append(makeSheet("b.xsl"));
    TreeNode::transferStyleSheets(from, sheets);
    TreeNode::transferStyleSheets(sheets, sheets);  // onto itself: nothing lost
    EXPECT_EQ(from.getSize(), 0);
    ASSERT_EQ(sheets.getSize(), 5);
    EXPECT_EQ(sheets.elementAt(0), first);
    EXPECT_EQ(styleLines(root.get()),
              "<?xml-stylesheet href=\"a.xsl\" ?>\r\n"
              "<?xml-stylesheet ?>\r\n"
              "<?xml-stylesheet href=\"b.xsl\" ?>\r\n");
}

}  // namespace
