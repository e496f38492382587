#include <gtest/gtest.h>

#include <string>

#include "xmltree/TreeNode.h"

namespace {

std::string attrList(const TreeNode& node) {
    std::string out;
    StringBuffer name;
    StringBuffer value;
    for (int i = 0; node.getAttributePair(i, name, value); ++i) {
        out += (i ? " " : "") + std::string(name.getString()) + "=" + value.getString();
    }
    return out;
}

TEST(TreeNodeAttributes, AddCleansNamesAndPrefixesOnOriginalFirstChar) {
    TreeNode node;
    node.addAttribute(nullptr, "v");
    node.addAttribute("", "v");
    EXPECT_EQ(node.getAttributeSet(), nullptr);
    node.addAttribute("a", "1");
    node.addAttribute("a", "2");
    node.addAttribute("1st", "x");
    node.addAttribute(".d", "y");
    node.addAttribute(" 9z", "w");  // the blank comes first: no prefix
    node.addAttribute("x<y>", nullptr);
    EXPECT_EQ(attrList(node), "a=1 a=2 A1st=x A.d=y 9z=w xy=");
}

TEST(TreeNodeAttributes, UpdateMovesToEndUncleaned) {
    TreeNode node;
    node.addAttribute("a", "1");
    node.addAttribute("b", "2");
    EXPECT_TRUE(node.updateAttribute("a", "new"));
    EXPECT_TRUE(node.updateAttribute("1x y", "raw"));
    EXPECT_EQ(attrList(node), "b=2 a=new 1x y=raw");
    StringBuffer out("kept");
    EXPECT_FALSE(node.getAttributeValue("missing", out));
    EXPECT_STREQ(out.getString(), "kept");
    node.removeAllAttributes();
    EXPECT_EQ(node.getNumAttributes(), 0);
    EXPECT_NE(node.getAttributeSet(), nullptr);
}

TEST(TreeNodeAttributes, CopyTrimsCleansAndSkipsEmptyNames) {
    TreeNode from;
    from.updateAttribute("a", "1");
    from.updateAttribute("  ", "skipped");
    from.updateAttribute(" 7b ", "trimmed then prefixed");
    from.updateAttribute("c d", "cleaned");
    TreeNode to;
    to.addAttribute("old", "gone");
    to.copyAttributes(from);
    EXPECT_EQ(attrList(to), "a=1 A7b=trimmed then prefixed cd=cleaned");
    TreeNode none;
    to.copyAttributes(none);
    EXPECT_EQ(to.getNumAttributes(), 0);
    EXPECT_NE(to.getAttributeSet(), nullptr);
    none.copyAttributes(from);
    EXPECT_EQ(none.getNumAttributes(), 3);
}

}  // namespace
