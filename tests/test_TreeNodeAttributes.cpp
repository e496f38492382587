#include <gtest/gtest.h>

#include <string>

#include "xmltree/TreeNode.h"

namespace {

std::string attrList(const TreeNode& node) {
    std::string out;
    StringBuffer name;
    StringBuffer value;
    for (int i = 0; i < node.getNumAttributes(); ++i) {
        EXPECT_TRUE(node.getAttributePair(i, name, value));
        if (i) out += ' ';
        out += std::string(name.getString()) + "=" + value.getString();
    }
    return out;
}

TEST(TreeNodeAttributes, NodeWithoutSetAnswersEmpty) {
    TreeNode node;
    StringBuffer out("untouched");
    StringBuffer value;
    StringPair pair("a", "1");
    EXPECT_EQ(node.getNumAttributes(), 0);
    EXPECT_FALSE(node.getAttributeValue("a", out));
    EXPECT_FALSE(node.getAttributeValue(0, out));
    EXPECT_FALSE(node.getAttributeName(0, out));
    EXPECT_FALSE(node.getAttributePair(0, out, value));
    EXPECT_STREQ(out.getString(), "untouched");
    EXPECT_FALSE(node.hasAttribute("a"));
    EXPECT_FALSE(node.hasMatchingAttribute("a", "*"));
    EXPECT_FALSE(node.hasAttributeWithValue("a", "1"));
    EXPECT_FALSE(node.hasAttributeWithValue(pair));
    EXPECT_FALSE(node.removeAttribute("a"));
    node.removeAllAttributes();
    node.addAttribute(nullptr, "v");
    node.addAttribute("", "v");
    EXPECT_EQ(node.getAttributeSet(), nullptr);
}

TEST(TreeNodeAttributes, AddCleansAndPrefixesNames) {
    TreeNode node;
    node.addAttribute("a", "1");
    node.addAttribute("a", "2");
    node.addAttribute("1st", "x");
    node.addAttribute(".dot", "y");
    node.addAttribute("-dash", "z");
    node.addAttribute(" 9lives", "w");  // first character is the blank: no prefix
    node.addAttribute("x<y>", nullptr);
    node.addAttribute("ns:id", "q");
    EXPECT_EQ(attrList(node), "a=1 a=2 A1st=x A.dot=y A-dash=z 9lives=w xy= ns:id=q");

    StringBuffer out;
    EXPECT_TRUE(node.getAttributeValue("a", out));
    EXPECT_STREQ(out.getString(), "1");
    EXPECT_TRUE(node.getAttributeValue(2, out));
    EXPECT_STREQ(out.getString(), "x");
    EXPECT_TRUE(node.getAttributeName(3, out));
    EXPECT_STREQ(out.getString(), "A.dot");
    EXPECT_FALSE(node.getAttributeValue("missing", out));
    EXPECT_FALSE(node.getAttributeName(99, out));
}

TEST(TreeNodeAttributes, UpdateMovesToEndWithoutCleaning) {
    TreeNode node;
    node.addAttribute("a", "1");
    node.addAttribute("b", "2");
    node.addAttribute("c", "3");
    EXPECT_TRUE(node.updateAttribute("a", "new"));
    EXPECT_EQ(attrList(node), "b=2 c=3 a=new");
    EXPECT_TRUE(node.updateAttribute("1x y", "raw"));
    EXPECT_EQ(attrList(node), "b=2 c=3 a=new 1x y=raw");

    TreeNode fresh;
    EXPECT_TRUE(fresh.updateAttribute("k", "v"));
    EXPECT_EQ(attrList(fresh), "k=v");
}

TEST(TreeNodeAttributes, RemoveAndLookups) {
    TreeNode node;
    node.addAttribute("id", "item-42");
    node.addAttribute("kind", "Book");
    StringPair match("kind", "Book");
    StringPair noMatch("kind", "book");
    EXPECT_TRUE(node.hasAttribute("id"));
    EXPECT_FALSE(node.hasAttribute("ID"));
    EXPECT_TRUE(node.hasMatchingAttribute("id", "item-*"));
    EXPECT_FALSE(node.hasMatchingAttribute("id", "ITEM-*"));
    EXPECT_TRUE(node.hasAttributeWithValue("kind", "Book"));
    EXPECT_TRUE(node.hasAttributeWithValue(match));
    EXPECT_FALSE(node.hasAttributeWithValue(noMatch));

    EXPECT_TRUE(node.removeAttribute("id"));
    EXPECT_FALSE(node.removeAttribute("id"));
    EXPECT_EQ(attrList(node), "kind=Book");
    AttributeSet* set = node.getAttributeSet();
    node.removeAllAttributes();
    EXPECT_EQ(node.getNumAttributes(), 0);
    EXPECT_EQ(node.getAttributeSet(), set);
}

TEST(TreeNodeAttributes, CopyAttributes) {
    TreeNode from;
    from.addAttribute("a", "1");
    from.updateAttribute("  ", "blank");     // trims to nothing: skipped
    from.updateAttribute(" 7b ", "spaced");  // trimmed to 7b, then prefixed
    from.updateAttribute("c d", "3");        // cleaned to cd
    TreeNode to;
    to.addAttribute("old", "gone");
    to.copyAttributes(from);
    EXPECT_EQ(attrList(to), "a=1 A7b=spaced cd=3");
    EXPECT_EQ(attrList(from), "a=1   =blank  7b =spaced c d=3");

    TreeNode none;
    to.copyAttributes(none);
    EXPECT_NE(to.getAttributeSet(), nullptr);
    EXPECT_EQ(to.getNumAttributes(), 0);

    TreeNode target;
    TreeNode emptySet;
    emptySet.addAttribute("x", "1");
    emptySet.removeAllAttributes();
    target.copyAttributes(emptySet);
    EXPECT_EQ(target.getAttributeSet(), nullptr);

    to.copyAttributes(to);  // onto itself: cleared first, so left empty
    EXPECT_EQ(to.getNumAttributes(), 0);
}

}  // namespace
