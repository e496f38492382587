#include <gtest/gtest.h>

#include "xmltree/TreeNode.h"

namespace {

TEST(TreeNodeContent, BufferExistsOnlyWhenSomethingWasWritten) {
    TreeNode node;
    node.appendContent("");
    node.appendContentN("\0xyz", 4);  // first byte 0: nothing, whatever the length
    DataBuffer empty;
    node.appendContent(empty);
    node.setContentN(nullptr, 3);
    node.setContentUtf8(nullptr);
    EXPECT_EQ(node.getContentSb(), nullptr);
    EXPECT_STREQ(node.getContent(), "");
    EXPECT_FALSE(node.contentEquals("", true));

    node.setContentN("abc", 0);  // an empty buffer, which then compares as ""
    ASSERT_NE(node.getContentSb(), nullptr);
    EXPECT_TRUE(node.contentEquals("", true));
    node.appendContentChar('x');
    node.appendContentInt(-12);
    node.appendContentN("!?zz", 2);
    EXPECT_STREQ(node.getContent(), "x-12!?");
    node.setContentN(nullptr, 0);  // clears but keeps the buffer
    EXPECT_NE(node.getContentSb(), nullptr);
    EXPECT_FALSE(node.hasContent());
}

TEST(TreeNodeContent, ReadingAndComparing) {
    TreeNode node("t", "42abc", 0);
    EXPECT_EQ(node.getContentIntValue(), 42);
    EXPECT_EQ(node.getContentSb()->getCP(), 0);
    EXPECT_TRUE(node.contentEquals("42ABC", false));
    EXPECT_FALSE(node.contentEquals("42ABC", true));
    EXPECT_TRUE(node.contentMatches("4?A*", false));
    EXPECT_FALSE(node.contentMatches("4?A*", true));
    node.setContentUtf8("\xC3\xA9t\xC3\xA9");
    EXPECT_EQ(node.getContentSb()->getCP(), 2);
    EXPECT_EQ(node.getContentSize(), 5);
    TreeNode none;
    EXPECT_EQ(none.getOrCreateContentSb()->getCapacity() >= 120, true);
}

TEST(TreeNodeContent, EnsureLegalTagStartChar) {
    const char* cases[][2] = {{"1abc", "A1abc"}, {".x", "A.x"},  {"-y", "A-y"},
                              {"_ok", "_ok"},    {"ok1", "ok1"}, {"", ""}};
    for (auto& c : cases) {
        TreeNode node;
        node.setTag(c[0]);
        node.ensureLegalTagStartChar();
        EXPECT_STREQ(node.getTag(), c[1]) << c[0];
    }
}

}  // namespace
