#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "xmltree/TreeNode.h"

namespace {

TreeNode* declOf(TreeNode* node) {
    return node->getTreeInfo()->xmlDecl;
}

// "name=value" per attribute of the declaration, in list order.
std::vector<std::string> declAttributes(TreeNode* node) {
    std::vector<std::string> result;
    TreeNode* decl = declOf(node);
    if (!decl) return result;
    StringBuffer name, value;
    for (int i = 0; i < decl->getNumAttributes(); ++i) {
        decl->getAttributePair(i, name, value);
        result.push_back(std::string(name.getString()) + "=" + value.getString());
    }
    return result;
}

using Attrs = std::vector<std::string>;

std::string styleLines(TreeNode* node) {
    StringBuffer out;
    node->appendStyleInfoToString(out);
    return out.getString();
}

TreeNode* makeSheet(const char* href) {
    TreeNode* sheet = TreeNode::createRoot("?xml-stylesheet");
    sheet->addAttribute("type", "text/xsl");
    sheet->addAttribute("href", href);
    return sheet;
}

// ---- declaration --------------------------------------------------------

TEST(PrologDeclaration, SettersCreateTheDeclarationAndMoveTheSetValueLast) {
    TreeNode* root = TreeNode::createRoot("doc");
    root->setDocEncoding("utf-8");
    ASSERT_NE(declOf(root), nullptr);
    EXPECT_STREQ(declOf(root)->getTag(), "xml");
    EXPECT_EQ(declAttributes(root), (Attrs{"version=1.0", "encoding=utf-8"}));
    root->setDocStandalone("yes");
    EXPECT_EQ(declAttributes(root), (Attrs{"version=1.0", "encoding=utf-8", "standalone=yes"}));
    root->setDocEncoding("ISO-8859-1");
    EXPECT_EQ(declAttributes(root),
              (Attrs{"version=1.0", "standalone=yes", "encoding=ISO-8859-1"}));
    root->deleteTree();
}

TEST(PrologDeclaration, StandaloneFirstOnAFreshTree) {
    TreeNode* root = TreeNode::createRoot("doc");
    root->setDocStandalone("no");
    EXPECT_EQ(declAttributes(root), (Attrs{"version=1.0", "standalone=no"}));
    root->deleteTree();
}

TEST(PrologDeclaration, AnyNodeOfTheTreeReachesTheSameProlog) {
    TreeNode* root = TreeNode::createRoot("doc");
    TreeNode* leaf = TreeNode::createNode(TreeNode::createNode(root, "a"), "b");
    leaf->setDocEncoding("utf-8");
    StringBuffer out;
    bool found = false;
    root->getDocEncoding(out, found);
    EXPECT_TRUE(found);
    EXPECT_STREQ(out.getString(), "utf-8");
    root->deleteTree();
}

TEST(PrologDeclaration, GettersReportAbsenceWithoutTouchingOut) {
    TreeNode* root = TreeNode::createRoot("doc");
    StringBuffer out("untouched");
    bool found = true;
    root->getDocEncoding(out, found);
    EXPECT_FALSE(found);
    EXPECT_STREQ(out.getString(), "untouched");

    // A declaration without an attribute set.
    root->setXmlDeclaration(TreeNode::createRoot("xml"));
    found = true;
    root->getDocStandalone(out, found);
    EXPECT_FALSE(found);
    EXPECT_STREQ(out.getString(), "untouched");

    // Present attributes come back as stored, case and blanks kept.
    root->setDocEncoding(" UTF-8 ");
    root->getDocEncoding(out, found);
    EXPECT_TRUE(found);
    EXPECT_STREQ(out.getString(), " UTF-8 ");
    root->getDocStandalone(out, found);
    EXPECT_FALSE(found);
    root->deleteTree();
}

TEST(PrologDeclaration, CheckSetEncodingOnlyFillsAMissingValue) {
    TreeNode* root = TreeNode::createRoot("doc");
    root->setDocStandalone("yes");
    root->checkSetDocEncoding("utf-8");
    EXPECT_EQ(declAttributes(root), (Attrs{"version=1.0", "standalone=yes", "encoding=utf-8"}));
    root->checkSetDocEncoding("latin1");
    EXPECT_EQ(declAttributes(root), (Attrs{"version=1.0", "standalone=yes", "encoding=utf-8"}));
    // Present but empty still counts as present.
    root->setDocEncoding("");
    root->checkSetDocEncoding("latin1");
    EXPECT_EQ(declAttributes(root), (Attrs{"version=1.0", "standalone=yes", "encoding="}));
    root->deleteTree();
}

TEST(PrologDeclaration, SetXmlDeclarationReplacesAndRemoves) {
    TreeNode* root = TreeNode::createRoot("doc");
    TreeNode* decl = TreeNode::createRoot("xml");
    decl->addAttribute("version", "1.1");
    root->setXmlDeclaration(decl);
    root->setXmlDeclaration(decl);  // same node: kept, not deleted
    EXPECT_EQ(declOf(root), decl);
    EXPECT_EQ(decl->getMagic(), kTreeMagicAlive);
    EXPECT_EQ(declAttributes(root), (Attrs{"version=1.1"}));

    root->setDocEncoding("utf-8");  // works on the node given
    EXPECT_EQ(declAttributes(root), (Attrs{"version=1.1", "encoding=utf-8"}));

    root->setXmlDeclaration(TreeNode::createRoot("xml"));  // the old one is freed
    EXPECT_TRUE(declAttributes(root).empty());
    root->setXmlDeclaration(nullptr);
    EXPECT_EQ(declOf(root), nullptr);
    StringBuffer out;
    root->createXML(out, 1, 0, false);
    EXPECT_STREQ(out.getString(), "<doc />\r\n");
    root->deleteTree();
}

TEST(PrologDeclaration, NodeWithoutTreeIgnoresEverything) {
    TreeNode loose("x", nullptr, 0);
    loose.setDocEncoding("utf-8");
    loose.setDocStandalone("yes");
    loose.checkSetDocEncoding("utf-8");
    loose.setDocType("<!DOCTYPE x>");
    loose.setProcessing("<?pi?>");
    TreeNode* decl = TreeNode::createRoot("xml");
    loose.setXmlDeclaration(decl);  // not taken: still ours to free
    TreeNode* sheet = makeSheet("a.xsl");
    loose.addStyleSheetDeclaration(sheet);
    StringBuffer out("same");
    bool found = true;
    loose.getDocEncoding(out, found);
    EXPECT_FALSE(found);
    loose.appendStyleInfoToString(out);
    EXPECT_STREQ(out.getString(), "same");
    decl->deleteTree();
    sheet->deleteTree();
}

// ---- DOCTYPE and processing texts ---------------------------------------------

TEST(PrologTexts, EmptyOrNullRemovesTheBuffer) {
    TreeNode* root = TreeNode::createRoot("doc");
    TreeInfo* info = root->getTreeInfo();
    std::string source = "<!DOCTYPE doc>\n";
    root->setDocType(source.c_str());
    source[2] = 'X';  // the tree keeps its own copy
    ASSERT_NE(info->docType, nullptr);
    EXPECT_STREQ(info->docType->getString(), "<!DOCTYPE doc>\n");
    root->setDocType("");
    EXPECT_EQ(info->docType, nullptr);
    root->setDocType("<!DOCTYPE doc>");
    root->setDocType(nullptr);
    EXPECT_EQ(info->docType, nullptr);

    root->setProcessing("<?a?>\n");
    root->setProcessing("<?b?>\n");
    ASSERT_NE(info->processing, nullptr);
    EXPECT_STREQ(info->processing->getString(), "<?b?>\n");
    root->setProcessing("");
    EXPECT_EQ(info->processing, nullptr);
    root->deleteTree();
}

// ---- style sheets ---------------------------------------------------------------

TEST(PrologStyleSheets, AddedOnceAndWrittenInOrder) {
    TreeNode* root = TreeNode::createRoot("doc");
    TreeNode* first = makeSheet("a.xsl");
    TreeNode* second = makeSheet("b.xsl");
    root->addStyleSheetDeclaration(first);
    root->addStyleSheetDeclaration(second);
    root->addStyleSheetDeclaration(first);
    EXPECT_EQ(root->getTreeInfo()->styleSheets.getSize(), 2);
    EXPECT_EQ(styleLines(root),
              "<?xml-stylesheet type=\"text/xsl\" href=\"a.xsl\" ?>\r\n"
              "<?xml-stylesheet type=\"text/xsl\" href=\"b.xsl\" ?>\r\n");
    root->deleteTree();
}

TEST(PrologStyleSheets, AttributeSetDecidesWhetherALineIsWritten) {
    TreeNode* root = TreeNode::createRoot("doc");
    TreeNode* bare = TreeNode::createRoot("?xml-stylesheet");  // no attribute set
    TreeNode* emptied = TreeNode::createRoot("?xml-stylesheet");
    emptied->addAttribute("href", "x.xsl");
    emptied->removeAllAttributes();  // set kept, empty
    root->addStyleSheetDeclaration(bare);
    root->addStyleSheetDeclaration(emptied);
    root->getTreeInfo()->styleSheets.append(nullptr);
    EXPECT_EQ(styleLines(root), "<?xml-stylesheet ?>\r\n");
    root->deleteTree();
}

TEST(PrologStyleSheets, TransferMovesEntriesInOrderAndEmptiesTheSource) {
    TreeNode* a = makeSheet("a.xsl");
    TreeNode* b = makeSheet("b.xsl");
    TreeNode* c = makeSheet("c.xsl");
    ExtPtrArray from, to;
    to.append(a);
    from.append(b);
    from.append(c);
    TreeNode::transferStyleSheets(from, to);
    EXPECT_EQ(from.getSize(), 0);
    ASSERT_EQ(to.getSize(), 3);
    EXPECT_EQ(to.elementAt(0), a);
    EXPECT_EQ(to.elementAt(1), b);
    EXPECT_EQ(to.elementAt(2), c);
    TreeNode::transferStyleSheets(to, to);  // onto itself: nothing lost
    EXPECT_EQ(to.getSize(), 3);

    // Into a tree: the tree owns them from then on.
    TreeNode* root = TreeNode::createRoot("doc");
    TreeNode::transferStyleSheets(to, root->getTreeInfo()->styleSheets);
    EXPECT_EQ(to.getSize(), 0);
    EXPECT_EQ(styleLines(root),
              "<?xml-stylesheet type=\"text/xsl\" href=\"a.xsl\" ?>\r\n"
              "<?xml-stylesheet type=\"text/xsl\" href=\"b.xsl\" ?>\r\n"
              "<?xml-stylesheet type=\"text/xsl\" href=\"c.xsl\" ?>\r\n");
    root->deleteTree();
}

}  // namespace
