#include "tests/TestSupport.h"

namespace {

// No buffer and an empty buffer read alike but compare differently; the
// operations must only create one when they were given something.
TEST(TreeNodeContent, BufferOnlyWhenSomethingWasWritten) {
    TreeNode node;
    node.appendContent("");
    node.appendContentN("\0xyz", 4);
    node.setContentN(nullptr, 3);
    EXPECT_EQ(node.getContentSb(), nullptr);
    EXPECT_FALSE(node.contentEquals("", true));
    node.setContentN("abc", 0);
    EXPECT_TRUE(node.contentEquals("", true));
    node.appendContentChar('x');
    node.appendContentInt(-12);
    DataBuffer bytes;
    node.appendContent(bytes);
    ASSERT_TRUE(bytes.append("\0z", 2));
    node.appendContent(bytes);
    EXPECT_EQ(std::string(node.getContent(), 6), std::string("x-12\0z", 6));
    node.setContentUtf8(nullptr);
    EXPECT_NE(node.getContentSb(), nullptr);
    EXPECT_FALSE(node.hasContent());
}

TEST(TreeNodeContent, EnsureLegalTagStartChar) {
    const char* cases[][2] = {{"1a", "A1a"}, {".x", "A.x"}, {"-y", "A-y"}, {"_k", "_k"}, {"", ""}};
    for (auto& c : cases) {
        TreeNode node;
        node.setTag(c[0]);
        node.ensureLegalTagStartChar();
        EXPECT_STREQ(node.getTag(), c[1]) << c[0];
    }
}

}  // namespace
