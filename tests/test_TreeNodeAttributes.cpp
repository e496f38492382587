#include "tests/TestSupport.h"

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

TEST(TreeNodeAttributes, AddCleansUpdateDoesNot) {
    TreeNode node;
    node.addAttribute("", "v");
    EXPECT_EQ(node.getAttributeSet(), nullptr);
    node.addAttribute("a", "1");
    node.addAttribute("1st", "x");
    node.addAttribute(" 9z", "w");  // the blank comes first: no prefix
    node.addAttribute("x<y>", nullptr);
    node.updateAttribute("a", "2");
    node.updateAttribute("1 b", "raw");
    EXPECT_EQ(attrList(node), "A1st=x 9z=w xy= a=2 1 b=raw");
    StringBuffer v;
    EXPECT_TRUE(node.getAttributeValue(3, v) && v.equals("2") && !node.getAttributeValue(5, v));

    TreeNode copy;
    copy.addAttribute("old", "gone");
    copy.copyAttributes(node);  // names trimmed, cleaned and prefixed again
    EXPECT_EQ(attrList(copy), "A1st=x A9z=w xy= a=2 A1b=raw");
}

}  // namespace
