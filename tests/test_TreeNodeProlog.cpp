#include <gtest/gtest.h>

#include <string>

#include "xmltree/TreeNode.h"

namespace {

// The declaration's attributes as "name=value name=value ...".
std::string declAttributes(TreeNode* node) {
    std::string result;
    TreeNode* decl = node->getTreeInfo()->xmlDecl;
    StringBuffer name, value;
    for (int i = 0; decl && decl->getAttributePair(i, name, value); ++i)
        result += std::string(i ? " " : "") + name.getString() + "=" + value.getString();
    return result;
}

std::string styleLines(TreeNode* node) {
    StringBuffer out;
    node->appendStyleInfoToString(out);
    return out.getString();
}

TreeNode* makeSheet(const char* href) {
    TreeNode* sheet = TreeNode::createRoot("?xml-stylesheet");
    sheet->addAttribute("href", href);
    return sheet;
}

struct Tree {
    TreeNode* root = TreeNode::createRoot("doc");
    ~Tree() { root->deleteTree(); }
};

TEST(PrologDeclaration, SettersCreateTheDeclarationAndMoveTheSetValueLast) {
    Tree t;
    TreeNode* leaf = TreeNode::createNode(TreeNode::createNode(t.root, "a"), "b");
    leaf->setDocEncoding("utf-8");  // any node of the tree reaches the prolog
    EXPECT_STREQ(t.root->getTreeInfo()->xmlDecl->getTag(), "xml");
    EXPECT_EQ(declAttributes(t.root), "version=1.0 encoding=utf-8");
    t.root->setDocStandalone("yes");
    EXPECT_EQ(declAttributes(t.root), "version=1.0 encoding=utf-8 standalone=yes");
    t.root->setDocEncoding("ISO-8859-1");
    EXPECT_EQ(declAttributes(t.root), "version=1.0 standalone=yes encoding=ISO-8859-1");

    Tree fresh;
    fresh.root->setDocStandalone("no");
    EXPECT_EQ(declAttributes(fresh.root), "version=1.0 standalone=no");
}

TEST(PrologDeclaration, GettersReportAbsenceWithoutTouchingOut) {
    Tree t;
    StringBuffer out("untouched");
    bool found = true;
    t.root->getDocEncoding(out, found);
    EXPECT_FALSE(found);
    t.root->setXmlDeclaration(TreeNode::createRoot("xml"));  // no attribute set
    found = true;
    t.root->getDocStandalone(out, found);
    EXPECT_FALSE(found);
    EXPECT_STREQ(out.getString(), "untouched");

    t.root->setDocEncoding(" UTF-8 ");  // given back as stored
    t.root->getDocEncoding(out, found);
    EXPECT_TRUE(found);
    EXPECT_STREQ(out.getString(), " UTF-8 ");
}

TEST(PrologDeclaration, CheckSetEncodingOnlyFillsAMissingValue) {
    Tree t;
    t.root->setDocStandalone("yes");
    t.root->checkSetDocEncoding("utf-8");
    t.root->checkSetDocEncoding("latin1");
    EXPECT_EQ(declAttributes(t.root), "version=1.0 standalone=yes encoding=utf-8");
    t.root->setDocEncoding("");  // present though empty
    t.root->checkSetDocEncoding("latin1");
    EXPECT_EQ(declAttributes(t.root), "version=1.0 standalone=yes encoding=");
}

TEST(PrologDeclaration, SetXmlDeclarationReplacesAndRemoves) {
    Tree t;
    TreeNode* decl = TreeNode::createRoot("xml");
    decl->addAttribute("version", "1.1");
    t.root->setXmlDeclaration(decl);
    t.root->setXmlDeclaration(decl);  // the same node: kept alive
    EXPECT_EQ(decl->getMagic(), kTreeMagicAlive);
    t.root->setDocEncoding("utf-8");
    EXPECT_EQ(declAttributes(t.root), "version=1.1 encoding=utf-8");
    t.root->setXmlDeclaration(TreeNode::createRoot("xml"));  // frees the old one
    EXPECT_EQ(declAttributes(t.root), "");
    t.root->setXmlDeclaration(nullptr);
    EXPECT_EQ(t.root->getTreeInfo()->xmlDecl, nullptr);
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

TEST(PrologTexts, EmptyOrNullRemovesTheBuffer) {
    Tree t;
    TreeInfo* info = t.root->getTreeInfo();
    std::string source = "<!DOCTYPE doc>\n";
    t.root->setDocType(source.c_str());
    source[2] = 'X';
    ASSERT_NE(info->docType, nullptr);
    EXPECT_STREQ(info->docType->getString(), "<!DOCTYPE doc>\n");
    t.root->setDocType("");
    EXPECT_EQ(info->docType, nullptr);
    t.root->setProcessing("<?a?>");
    t.root->setProcessing("<?b?>");
    EXPECT_STREQ(info->processing->getString(), "<?b?>");
    t.root->setProcessing(nullptr);
    EXPECT_EQ(info->processing, nullptr);
}

TEST(PrologStyleSheets, AddedOnceWrittenInOrderAndOnlyWithAttributeSet) {
    Tree t;
    TreeNode* first = makeSheet("a.xsl");
    t.root->addStyleSheetDeclaration(first);
    t.root->addStyleSheetDeclaration(TreeNode::createRoot("?xml-stylesheet"));  // no set
    t.root->addStyleSheetDeclaration(makeSheet("b.xsl"));
    t.root->addStyleSheetDeclaration(first);
    TreeNode* emptied = makeSheet("c.xsl");
    emptied->removeAllAttributes();
    t.root->addStyleSheetDeclaration(emptied);
    t.root->getTreeInfo()->styleSheets.append(nullptr);
    EXPECT_EQ(t.root->getTreeInfo()->styleSheets.getSize(), 5);
    EXPECT_EQ(styleLines(t.root),
              "<?xml-stylesheet href=\"a.xsl\" ?>\r\n"
              "<?xml-stylesheet href=\"b.xsl\" ?>\r\n"
              "<?xml-stylesheet ?>\r\n");
}

TEST(PrologStyleSheets, TransferMovesEntriesInOrderAndEmptiesTheSource) {
    Tree t;
    TreeNode* a = makeSheet("a.xsl");
    t.root->addStyleSheetDeclaration(a);
    ExtPtrArray from;
    from.append(makeSheet("b.xsl"));
    from.append(makeSheet("c.xsl"));
    ExtPtrArray& sheets = t.root->getTreeInfo()->styleSheets;
    TreeNode::transferStyleSheets(from, sheets);
    TreeNode::transferStyleSheets(sheets, sheets);  // onto itself: nothing lost
    EXPECT_EQ(from.getSize(), 0);
    ASSERT_EQ(sheets.getSize(), 3);
    EXPECT_EQ(sheets.elementAt(0), a);
    EXPECT_EQ(styleLines(t.root),
              "<?xml-stylesheet href=\"a.xsl\" ?>\r\n"
              "<?xml-stylesheet href=\"b.xsl\" ?>\r\n"
              "<?xml-stylesheet href=\"c.xsl\" ?>\r\n");
}

}  // namespace
