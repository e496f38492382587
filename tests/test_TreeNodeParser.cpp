// The forgiving parser: markup, recovery paths, prolog branches, messages,
// progress, entry points and style-sheet text input.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "xmltree/TreeNode.h"

namespace {

struct RecordingLog : LogBase {
    std::vector<std::string> lines;
    void logError(const char* m) override { lines.push_back(std::string("E:") + m); }
    void logNameValue(const char* n, const char* v) override {
        lines.push_back(std::string("NV:") + n + "=" + v);
    }
};

struct RecordingMonitor : ProgressMonitor {
    std::vector<std::string> calls;
    void progressReset_32(unsigned int total) override {
        calls.push_back("reset " + std::to_string(total));
    }
    void setAmountConsumed2_32(unsigned int amount, bool& abort) override {
        calls.push_back("amount " + std::to_string(amount) + (abort ? " abort" : ""));
        abort = true;  // the parser must go on whatever the monitor answers
    }
    void consumeRemaining(int code) override { calls.push_back("rest " + std::to_string(code)); }
};

// Owns the parsed tree for the length of a test.
struct Parsed {
    TreeNode* root = nullptr;
    bool ok = false;
    RecordingLog log;
    ~Parsed() {
        if (root) root->deleteTree();
    }
};

void parseInto(Parsed& p, const std::string& text, bool trim, ProgressMonitor* mon = nullptr) {
    StringBuffer sb;
    sb.appendN(text.data(), static_cast<int>(text.size()));
    p.ok = TreeNode::customParseString(sb, &p.log, mon, &p.root, trim);
}

std::string attrs(TreeNode* n) {
    std::string s;
    StringBuffer name, value;
    for (int i = 0; i < n->getNumAttributes(); ++i) {
        n->getAttributePair(i, name, value);
        s += std::string(name.getString()) + "=" + value.getString() + ";";
    }
    return s;
}

std::string docType(TreeNode* r) {
    StringBuffer* sb = r->getTreeInfo()->docType;
    return sb ? sb->getString() : "";
}

std::string processing(TreeNode* r) {
    StringBuffer* sb = r->getTreeInfo()->processing;
    return sb ? sb->getString() : "";
}

TEST(ParserText, MixedContentRunsJoinWithOneSpace) {
    Parsed p;
    parseInto(p, "<a>x<b/>y</a>", true);
    ASSERT_TRUE(p.ok);
    ASSERT_NE(p.root, nullptr);
    EXPECT_STREQ(p.root->getTag(), "a");
    EXPECT_STREQ(p.root->getContent(), "x y");
    ASSERT_EQ(p.root->getNumChildren(), 1);
    EXPECT_STREQ(p.root->getChild(0)->getTag(), "b");
    EXPECT_TRUE(p.log.lines.empty());
}

TEST(ParserText, WhitespaceOnlyContentDependsOnTrim) {
    Parsed keep, drop;
    parseInto(keep, "<a>  </a>", false);
    parseInto(drop, "<a>  </a>", true);
    EXPECT_STREQ(keep.root->getContent(), "  ");
    EXPECT_EQ(drop.root->getContentSb(), nullptr);
}

TEST(ParserText, IndentationAroundChildrenIsDroppedWithoutTrim) {
    Parsed p;
    parseInto(p, "<a>\n  <b/>\n</a>", false);
    EXPECT_EQ(p.root->getContentSb(), nullptr);
    EXPECT_EQ(p.root->getNumChildren(), 1);
}

TEST(ParserText, UntrimmedRunsKeepTheirLeadingWhitespace) {
    Parsed p;
    parseInto(p, "<a> x <b/> y </a>", false);
    // The run "x " keeps the whitespace before it, the second run gets the
    // whitespace run, a joining space, then its text; the closing tag trims.
    EXPECT_STREQ(p.root->getContent(), "x   y");
}

TEST(ParserText, TrimRemovesWhitespaceAtBothEndsOfEachRun) {
    Parsed p;
    parseInto(p, "<a>\n\t x  y \r\n</a>", true);
    EXPECT_STREQ(p.root->getContent(), "x  y");
}

TEST(ParserText, EntitiesDecodedOnceInOrder) {
    Parsed p;
    parseInto(p, "<a>&amp;lt; &lt;&gt;&quot;&apos; &#65; &bogus; &amp</a>", true);
    EXPECT_STREQ(p.root->getContent(), "&lt; <>\"' &#65; &bogus; &amp");
}

TEST(ParserText, OnlyTheJustAppendedTextIsDecoded) {
    Parsed p;
    // The first run decodes to "&lt;"; the second run must not decode it again.
    parseInto(p, "<a>&amp;lt;<b/>&amp;gt;</a>", true);
    EXPECT_STREQ(p.root->getContent(), "&lt; &gt;");
}

TEST(ParserText, TextOutsideElementsIsDiscarded) {
    Parsed p;
    parseInto(p, "junk<a>x</a>more", true);
    EXPECT_STREQ(p.root->getContent(), "x");
}

TEST(ParserText, UnclosedElementAtEndKeepsItsText) {
    Parsed p;
    parseInto(p, "<a>x", true);
    ASSERT_NE(p.root, nullptr);
    EXPECT_STREQ(p.root->getContent(), "x");
    EXPECT_TRUE(p.log.lines.empty());
}

TEST(ParserText, NulByteEndsTheText) {
    TreeNode* root = nullptr;
    const char text[] = "<a>x\0<b/></a>";
    ASSERT_TRUE(TreeNode::customParseStringN(text, sizeof(text) - 1, nullptr, &root, true));
    ASSERT_NE(root, nullptr);
    EXPECT_STREQ(root->getContent(), "x");
    EXPECT_EQ(root->getNumChildren(), 0);
    root->deleteTree();
}

TEST(ParserTags, ClosingTagNamesAreNotCompared) {
    Parsed p;
    parseInto(p, "<a>x</b>", true);
    EXPECT_STREQ(p.root->getTag(), "a");
    EXPECT_STREQ(p.root->getContent(), "x");
    EXPECT_TRUE(p.log.lines.empty());
}

TEST(ParserTags, OpenAncestorsAreFinishedSilently) {
    Parsed p;
    parseInto(p, "<a><b></a>", true);
    EXPECT_STREQ(p.root->getTag(), "a");
    ASSERT_EQ(p.root->getNumChildren(), 1);
    EXPECT_STREQ(p.root->getChild(0)->getTag(), "b");
}

TEST(ParserTags, LastTopLevelElementWins) {
    Parsed p;
    parseInto(p, "<a/><b/>", true);
    EXPECT_STREQ(p.root->getTag(), "b");
    EXPECT_EQ(p.root->getParent(), nullptr);
}

TEST(ParserTags, UnfinishedLaterTopLevelElementIsNotReturned) {
    Parsed p;
    parseInto(p, "<a>1</a><b><c>2", true);  // the ASan run checks b and c are freed
    EXPECT_STREQ(p.root->getTag(), "a");
    EXPECT_STREQ(p.root->getContent(), "1");
}

TEST(ParserTags, SpaceAfterOpeningBracketStillOpensAnElement) {
    Parsed p;
    parseInto(p, "< a>x</a>", true);
    EXPECT_STREQ(p.root->getTag(), "a");
    Parsed q;
    parseInto(q, "<r>< /a></r>", true);
    // "< /a>" is an opening tag without name, made self-closing by the '/'.
    ASSERT_EQ(q.root->getNumChildren(), 1);
    EXPECT_STREQ(q.root->getChild(0)->getTag(), "");
    EXPECT_EQ(attrs(q.root->getChild(0)), "a=;");
}

TEST(ParserTags, OpeningTagCutOffByTheEndMakesNoElement) {
    Parsed p;
    parseInto(p, "<a><b", true);
    EXPECT_STREQ(p.root->getTag(), "a");
    EXPECT_EQ(p.root->getNumChildren(), 0);
    Parsed q;
    parseInto(q, "<ab", true);
    EXPECT_TRUE(q.ok);
    EXPECT_EQ(q.root, nullptr);
}

TEST(ParserTags, LessThanSignsAreRemovedFromNames) {
    Parsed p;
    parseInto(p, "<<a>x</a>", true);
    EXPECT_STREQ(p.root->getTag(), "a");
}

TEST(ParserAttributes, UnquotedValueRunsToTheNextQuote) {
    Parsed p;
    parseInto(p, "<a x=b c=\"d\">", true);
    EXPECT_EQ(attrs(p.root), "x=b c=;d=;");
}

TEST(ParserAttributes, QuotesOfTheOtherKindStayInValues) {
    Parsed p;
    parseInto(p, "<a s='say \"hi\"' d=\"it's\" e='&amp;lt;'/>", true);
    EXPECT_EQ(attrs(p.root), "s=say \"hi\";d=it's;e=&lt;;");
}

TEST(ParserAttributes, AttributeEntitiesDecoded) {
    Parsed p;
    parseInto(p, "<a v=\"&lt;&gt;&quot;&apos;&amp;&#38;\"/>", true);
    EXPECT_EQ(attrs(p.root), "v=<>\"'&&#38;;");
}

TEST(ParserAttributes, SlashAnywhereAmongAttributesSelfCloses) {
    Parsed p;
    parseInto(p, "<r><a/ x='1'>t</r>", true);
    ASSERT_EQ(p.root->getNumChildren(), 1);
    TreeNode* a = p.root->getChild(0);
    EXPECT_EQ(attrs(a), "x=1;");
    EXPECT_EQ(a->getNumChildren(), 0);
    EXPECT_STREQ(p.root->getContent(), "t");
}

TEST(ParserAttributes, NamesLoseQuotesAndRepeatsAreKept) {
    Parsed p;
    parseInto(p, "<a \"n\"='1' n='2' flag/>", true);
    EXPECT_EQ(attrs(p.root), "n=1;n=2;flag=;");
}

TEST(ParserAttributes, NameBeginningWithDigitGetsPrefix) {
    Parsed p;
    parseInto(p, "<a 1st='x'/>", true);
    EXPECT_EQ(attrs(p.root), "A1st=x;");
}

TEST(ParserClosing, UnterminatedClosingTagLogsAndCloses) {
    Parsed p;
    parseInto(p, "<a></a", true);
    ASSERT_NE(p.root, nullptr);
    EXPECT_STREQ(p.root->getTag(), "a");
    std::vector<std::string> want = {"E:Error in closing tag", "NV:error_tag=a"};
    EXPECT_EQ(p.log.lines, want);
}

TEST(ParserClosing, ClosingTagInterruptedByMarkupContinuesThere) {
    Parsed p;
    parseInto(p, "<r><a></a<b/></r>", true);
    ASSERT_EQ(p.root->getNumChildren(), 2);
    EXPECT_STREQ(p.root->getChild(1)->getTag(), "b");
    std::vector<std::string> want = {"E:Error in closing tag", "NV:error_tag=a"};
    EXPECT_EQ(p.log.lines, want);
}

TEST(ParserClosing, StrayClosingTagOutsideElementsIsIgnored) {
    Parsed p;
    parseInto(p, "</x><a/></y", true);
    EXPECT_STREQ(p.root->getTag(), "a");
    // Only the unterminated one logs, and without error_tag: nothing is open.
    std::vector<std::string> want = {"E:Error in closing tag"};
    EXPECT_EQ(p.log.lines, want);
}

TEST(ParserClosing, NamelessElementReportsEmptyTag) {
    Parsed p;
    parseInto(p, "<r>< ></", true);
    std::vector<std::string> want = {"E:Error in closing tag", "NV:error_tag="};
    EXPECT_EQ(p.log.lines, want);
}

TEST(ParserCdata, JoinedWithTextAndFlagged) {
    Parsed p;
    parseInto(p, "<a>x<![CDATA[<y>]]></a>", true);
    EXPECT_STREQ(p.root->getContent(), "x<y>");
    EXPECT_TRUE(p.root->getCdata());
}

TEST(ParserCdata, AdjacentSectionsJoinWithNothingBetween) {
    Parsed p;
    parseInto(p, "<a><![CDATA[1]]><![CDATA[2]]></a>", true);
    EXPECT_STREQ(p.root->getContent(), "12");
}

TEST(ParserCdata, BracketsNotFollowedByGreaterThanStay) {
    Parsed p;
    parseInto(p, "<a><![CDATA[a]b]]c]]></a>", true);
    EXPECT_STREQ(p.root->getContent(), "a]b]]c");
}

TEST(ParserCdata, NeverDecodedAndTextAfterItIsDropped) {
    Parsed p;
    parseInto(p, "<a><![CDATA[&amp;]]>lost<b/>kept</a>", true);
    EXPECT_STREQ(p.root->getContent(), "&amp; kept");
}

TEST(ParserCdata, SectionAfterWhitespaceDropsTheWhitespace) {
    Parsed p;
    parseInto(p, "<a>  <![CDATA[ z ]]></a>", false);
    EXPECT_STREQ(p.root->getContent(), " z ");
}

TEST(ParserCdata, CutOffByTheEndKeepsWhatWasRead) {
    Parsed p;
    parseInto(p, "<a><![CDATA[abc]", true);
    ASSERT_NE(p.root, nullptr);
    EXPECT_STREQ(p.root->getContent(), "abc]");
    EXPECT_TRUE(p.root->getCdata());
}

TEST(ParserCdata, OutsideElementsItIsSkippedAsADeclaration) {
    Parsed p;
    parseInto(p, "<![CDATA[x]]><a/>", true);
    EXPECT_STREQ(p.root->getTag(), "a");
    EXPECT_EQ(p.root->getContentSb(), nullptr);
}

TEST(ParserComments, CommentSplitsTextRuns) {
    Parsed p;
    parseInto(p, "<a>x<!--note-->y</a>", true);
    EXPECT_STREQ(p.root->getContent(), "x y");
    EXPECT_EQ(p.root->getNumChildren(), 0);
}

TEST(ParserComments, UnclosedCommentStopsAndReturnsWhatWasRead) {
    Parsed p;
    parseInto(p, "<a>x<!-- x", true);
    EXPECT_TRUE(p.ok);
    ASSERT_NE(p.root, nullptr);
    EXPECT_STREQ(p.root->getContent(), "x");
    std::vector<std::string> want = {"E:Unclosed comment"};
    EXPECT_EQ(p.log.lines, want);
}

TEST(ParserComments, OtherDeclarationsAreSkipped) {
    Parsed p;
    parseInto(p, "<!ELEMENT r ANY><r>a<!foo bar>b</r>", true);
    EXPECT_STREQ(p.root->getContent(), "a b");
    EXPECT_EQ(docType(p.root), "");
}

TEST(ParserProlog, DoctypeWithInternalSubsetIsStoredWhole) {
    Parsed p;
    parseInto(p, "<!DOCTYPE r [<!ENTITY e \"v\">]><r/>", true);
    EXPECT_EQ(docType(p.root), "<!DOCTYPE r [<!ENTITY e \"v\">]>\n");
}

TEST(ParserProlog, UnbalancedDoctypeLogsAndKeepsText) {
    Parsed p;
    parseInto(p, "<!doctype r [<!ENTITY e \"v\">", true);
    EXPECT_EQ(p.root, nullptr);
    std::vector<std::string> want = {"E:Failed to parse DTD"};
    EXPECT_EQ(p.log.lines, want);
}

TEST(ParserProlog, DeclarationBecomesTheTreesDeclarationNode) {
    Parsed p;
    parseInto(p, "<?xml version=\"1.0\" encoding=\"utf-8\"?><r/>", true);
    TreeNode* decl = p.root->getTreeInfo()->xmlDecl;
    ASSERT_NE(decl, nullptr);
    EXPECT_STREQ(decl->getTag(), "xml");
    EXPECT_EQ(attrs(decl), "version=1.0;encoding=utf-8;");
}

TEST(ParserProlog, LatestDeclarationWins) {
    Parsed p;
    parseInto(p, "<?xml version='1.0'?><?xml version='2.0'?><?xml version='3.0'?><r/>", true);
    EXPECT_EQ(attrs(p.root->getTreeInfo()->xmlDecl), "version=3.0;");
}

TEST(ParserProlog, DeclarationWithoutBlankIsAnOtherInstruction) {
    Parsed p;
    parseInto(p, "<?xml?><r/>", true);
    EXPECT_EQ(p.root->getTreeInfo()->xmlDecl, nullptr);
    EXPECT_EQ(processing(p.root), "<?xml?>\n");
}

TEST(ParserProlog, UnquotedStandaloneSwallowsTheRoot) {
    Parsed p;
    parseInto(p, "<?xml version='1.0' standalone=yes?>\n<r/>", true);
    EXPECT_TRUE(p.ok);
    EXPECT_EQ(p.root, nullptr);  // the ASan run checks the declaration is freed
}

TEST(ParserProlog, PseudoAttributesOfTheDeclaration) {
    Parsed p;
    parseInto(p, "<?XML version = \"1.0\" encoding='x&amp;y' standalone=no ?><r/>", true);
    TreeNode* decl = p.root->getTreeInfo()->xmlDecl;
    ASSERT_NE(decl, nullptr);
    EXPECT_STREQ(decl->getTag(), "XML");
    EXPECT_EQ(attrs(decl), "version=1.0;encoding=x&y;standalone=no;");
}

TEST(ParserProlog, StyleSheetsKeepTheirOrder) {
    Parsed p;
    parseInto(p,
              "<?xml-stylesheet href='a.css' type='text/css'?>"
              "<?xml-stylesheet href=\"b.xsl\"?><r/>",
              true);
    ExtPtrArray& sheets = p.root->getTreeInfo()->styleSheets;
    ASSERT_EQ(sheets.getSize(), 2);
    TreeNode* a = static_cast<TreeNode*>(sheets.elementAt(0));
    TreeNode* b = static_cast<TreeNode*>(sheets.elementAt(1));
    EXPECT_STREQ(a->getTag(), "xml-stylesheet");
    EXPECT_EQ(attrs(a), "href=a.css;type=text/css;");
    EXPECT_EQ(attrs(b), "href=b.xsl;");
}

TEST(ParserProlog, OtherInstructionsAccumulateAndRepeatForLaterRoots) {
    Parsed p;
    parseInto(p, "<?app go?><a><?in side ?></a><!DOCTYPE d><b/>", true);
    EXPECT_STREQ(p.root->getTag(), "b");
    // Texts are not cleared between roots: b gets everything seen so far.
    EXPECT_EQ(processing(p.root), "<?app go?>\n<?in side ?>\n");
    EXPECT_EQ(docType(p.root), "<!DOCTYPE d>\n");
}

TEST(ParserProlog, DeclarationGoesToTheFirstRootOnly) {
    Parsed p;
    parseInto(p, "<?xml version='1.0'?><a/><b/>", true);
    EXPECT_STREQ(p.root->getTag(), "b");
    EXPECT_EQ(p.root->getTreeInfo()->xmlDecl, nullptr);
}

TEST(ParserProlog, PrologWithoutElementIsReleased) {
    Parsed p;
    parseInto(p, "<?xml version='1.0'?><?xml-stylesheet href='x'?><!DOCTYPE d>", true);
    EXPECT_TRUE(p.ok);
    EXPECT_EQ(p.root, nullptr);
}

TEST(ParserProgress, ResetAmountsAtClosingTagsAndRemaining) {
    RecordingMonitor mon;
    Parsed p;
    const std::string text = "<a><b/><c>x</c></a>";
    parseInto(p, text, true, &mon);
    std::vector<std::string> want = {"reset 19", "amount 12", "amount 16", "rest 112"};
    EXPECT_EQ(mon.calls, want);
    EXPECT_EQ(text[12], '/');
    EXPECT_EQ(p.root->getNumChildren(), 2);  // the abort answer is not read
}

TEST(ParserProgress, EmptyTextMakesNoCall) {
    RecordingMonitor mon;
    TreeNode* root = nullptr;
    EXPECT_TRUE(TreeNode::customParseStringN("", 0, &mon, &root, true));
    EXPECT_EQ(root, nullptr);
    EXPECT_TRUE(mon.calls.empty());
}

TEST(ParserEntry, NullOutRootFails) {
    ParseEngine engine;
    engine.append("<a/>");
    EXPECT_FALSE(TreeNode::customParse(engine, nullptr, nullptr, nullptr, true));
}

TEST(ParserEntry, OutRootIsClearedFirst) {
    TreeNode* root = reinterpret_cast<TreeNode*>(&root);
    EXPECT_TRUE(TreeNode::customParseStringN("no markup", 9, nullptr, &root, true));
    EXPECT_EQ(root, nullptr);
}

TEST(ParserEntry, StringNParsesOnlyTheGivenLength) {
    TreeNode* root = nullptr;
    ASSERT_TRUE(TreeNode::customParseStringN("<a>xy<b/></a>", 5, nullptr, &root, true));
    ASSERT_NE(root, nullptr);
    EXPECT_STREQ(root->getContent(), "xy");
    EXPECT_EQ(root->getNumChildren(), 0);
    root->deleteTree();
}

TEST(ParserEntry, NullLoggersAreAllowed) {
    TreeNode* root = nullptr;
    StringBuffer sb("<a></a");
    EXPECT_TRUE(TreeNode::customParseString(sb, nullptr, nullptr, &root, true));
    ASSERT_NE(root, nullptr);
    root->deleteTree();
    root = nullptr;
    EXPECT_FALSE(TreeNode::customParseFile("/nonexistent/x.xml", nullptr, nullptr, &root, true));
}

TEST(ParserEntry, Utf8DataLeavesTheBufferAlone) {
    DataBuffer data;
    const char* text = "<a>&amp;</a>";
    data.append(text, static_cast<unsigned int>(std::strlen(text)));
    RecordingLog log;
    TreeNode* root = nullptr;
    ASSERT_TRUE(TreeNode::customParseUtf8Data(data, nullptr, log, &root, true));
    EXPECT_STREQ(root->getContent(), "&");
    EXPECT_EQ(data.getSize(), std::strlen(text));
    root->deleteTree();
}

TEST(ParserEntry, Data2ReportsAnEmptyBuffer) {
    DataBuffer data;
    RecordingLog log;
    TreeNode* root = reinterpret_cast<TreeNode*>(&log);
    EXPECT_FALSE(TreeNode::customParseData2(data, nullptr, log, &root, true));
    EXPECT_EQ(root, reinterpret_cast<TreeNode*>(&log));  // not touched
    std::vector<std::string> want = {
        "E:Failed to convert XML data to utf-8 internal representation"};
    EXPECT_EQ(log.lines, want);
}

TEST(ParserDepth, DeepAndWideDocumentsParse) {
    const int n = 100000;
    std::string deep = "<top/>";
    deep.reserve(n * 3 + 16);
    for (int i = 0; i < n; ++i) deep += "<d>";
    TreeNode* root = nullptr;
    // The unfinished chain after a complete root is released by the parser.
    ASSERT_TRUE(TreeNode::customParseStringN(deep.data(), static_cast<int>(deep.size()), nullptr,
                                             &root, true));
    ASSERT_NE(root, nullptr);
    EXPECT_STREQ(root->getTag(), "top");
    root->deleteTree();

    // Without a complete root, the chain is returned whole.
    ASSERT_TRUE(TreeNode::customParseStringN(deep.data() + 6, static_cast<int>(deep.size()) - 6,
                                             nullptr, &root, true));
    int depth = 1;
    for (TreeNode* x = root; x->getNumChildren() > 0; x = x->getChild(0)) ++depth;
    EXPECT_EQ(depth, n);
    root->deleteTree();

    std::string wide = "<r>";
    for (int i = 0; i < n; ++i) wide += "<c/>";
    wide += "</r>";
    ASSERT_TRUE(TreeNode::customParseStringN(wide.data(), static_cast<int>(wide.size()), nullptr,
                                             &root, true));
    EXPECT_EQ(root->getNumChildren(), n);
    root->deleteTree();
}

TEST(StyleSheetText, AddedAfterExistingSheets) {
    Parsed p;
    parseInto(p, "<?xml-stylesheet href='a'?><r/>", true);
    RecordingLog log;
    EXPECT_TRUE(
        p.root->addStyleSheet("  junk <\n\t?XML-Stylesheet type='t' href='b' ?> rest", log));
    ExtPtrArray& sheets = p.root->getTreeInfo()->styleSheets;
    ASSERT_EQ(sheets.getSize(), 2);
    EXPECT_EQ(attrs(static_cast<TreeNode*>(sheets.elementAt(1))), "type=t;href=b;");
    StringBuffer out;
    p.root->appendStyleInfoToString(out);
    EXPECT_STREQ(out.getString(),
                 "<?xml-stylesheet href=\"a\" ?>\r\n<?xml-stylesheet type=\"t\" href=\"b\" ?>\r\n");
    EXPECT_TRUE(log.lines.empty());
}

TEST(StyleSheetText, RejectsTextWithoutADeclarationFirst) {
    Parsed p;
    parseInto(p, "<r/>", true);
    RecordingLog log;
    EXPECT_FALSE(p.root->addStyleSheet(nullptr, log));
    EXPECT_FALSE(p.root->addStyleSheet("no markup", log));
    EXPECT_FALSE(p.root->addStyleSheet("<  \n", log));
    EXPECT_FALSE(p.root->addStyleSheet("<?xml-styleshee", log));
    EXPECT_FALSE(p.root->addStyleSheet("<b/><?xml-stylesheet href='x'?>", log));
    EXPECT_EQ(p.root->getTreeInfo()->styleSheets.getSize(), 0);
    // Only 15 characters are compared: the blank after the name is optional.
    EXPECT_TRUE(p.root->addStyleSheet("<?xml-stylesheet>", log));
    EXPECT_EQ(p.root->getTreeInfo()->styleSheets.getSize(), 1);
}

TEST(StyleSheetText, NodeOutsideATreeKeepsNothing) {
    TreeNode lone;
    RecordingLog log;
    EXPECT_TRUE(lone.addStyleSheet("<?xml-stylesheet href='x'?>", log));  // ASan: freed
}

}  // namespace
