#include <gtest/gtest.h>

#include "xmltree/TreeNode.h"

namespace {

TEST(TreeNodeContent, MissingContentReadsAsEmpty) {
    TreeNode node;
    EXPECT_STREQ(node.getContent(), "");
    EXPECT_EQ(node.getContentSize(), 0);
    EXPECT_FALSE(node.hasContent());
    EXPECT_EQ(node.getContentIntValue(), 0);
    EXPECT_EQ(node.getContentDblValue(), 0.0);
    EXPECT_FALSE(node.contentEquals("", true));
    EXPECT_FALSE(node.contentMatches("*", true));
    EXPECT_EQ(node.getContentSb(), nullptr);
    EXPECT_EQ(node.getContentSb_const(), nullptr);

    ASSERT_TRUE(node.ensureContentObj());
    StringBuffer* made = node.getContentSb();
    EXPECT_TRUE(node.ensureContentObj());
    EXPECT_EQ(node.getContentSb(), made);
    EXPECT_TRUE(node.contentEquals("", true));
    EXPECT_FALSE(node.hasContent());
}

TEST(TreeNodeContent, GetOrCreateReservesRoom) {
    TreeNode node;
    StringBuffer* sb = node.getOrCreateContentSb();
    ASSERT_NE(sb, nullptr);
    EXPECT_GE(sb->getCapacity(), 120);
    EXPECT_EQ(node.getOrCreateContentSb(), sb);
}

TEST(TreeNodeContent, SetContentNKeepsBufferOnNull) {
    TreeNode node;
    node.setContentN(nullptr, 5);
    EXPECT_EQ(node.getContentSb(), nullptr);

    node.setContentN("abc", 0);
    ASSERT_NE(node.getContentSb(), nullptr);
    EXPECT_EQ(node.getContentSize(), 0);

    node.setContentN("hello world", 5);
    EXPECT_STREQ(node.getContent(), "hello");
    node.setContentN("a\0b", 3);
    EXPECT_EQ(node.getContentSize(), 3);

    node.setContentN(nullptr, 0);
    EXPECT_NE(node.getContentSb(), nullptr);
    EXPECT_FALSE(node.hasContent());
    EXPECT_EQ(node.getContentSize(), 0);

    DataBuffer data;
    data.append("from bytes", 10);
    node.setContentUtf8Data(data);
    EXPECT_STREQ(node.getContent(), "from bytes");
}

TEST(TreeNodeContent, SetContentUtf8MarksBuffer) {
    TreeNode fresh;
    fresh.setContentUtf8(nullptr);
    EXPECT_EQ(fresh.getContentSb(), nullptr);
    fresh.setContentUtf8("\xC3\xA9t\xC3\xA9");
    ASSERT_NE(fresh.getContentSb(), nullptr);
    EXPECT_EQ(fresh.getContentSb()->getCP(), 2);
    EXPECT_STREQ(fresh.getContent(), "\xC3\xA9t\xC3\xA9");

    TreeNode existing("t", "old", 0);
    EXPECT_NE(existing.getContentSb()->getCP(), 2);
    existing.setContentUtf8("new");
    EXPECT_STREQ(existing.getContent(), "new");
    EXPECT_EQ(existing.getContentSb()->getCP(), 2);
    existing.setContentUtf8(nullptr);
    EXPECT_NE(existing.getContentSb(), nullptr);
    EXPECT_STREQ(existing.getContent(), "");
}

TEST(TreeNodeContent, AppendVariants) {
    TreeNode node;
    node.appendContent("");
    node.appendContent(static_cast<const char*>(nullptr));
    node.appendContentN("\0xyz", 4);
    node.appendContentN(nullptr, 3);
    DataBuffer empty;
    node.appendContent(empty);
    EXPECT_EQ(node.getContentSb(), nullptr);

    node.appendContent("ab");
    node.appendContentN("cdef", 2);
    node.appendContentChar('x');
    node.appendContentInt(-12);
    DataBuffer bytes;
    bytes.append("!?", 2);
    node.appendContent(bytes);
    EXPECT_STREQ(node.getContent(), "abcdx-12!?");

    TreeNode fromBytes;
    DataBuffer big;
    for (int i = 0; i < 1000; ++i)
        big.appendChar(static_cast<unsigned char>('a' + i % 26));
    fromBytes.appendContent(big);
    EXPECT_EQ(fromBytes.getContentSize(), 1000);
    EXPECT_EQ(fromBytes.getContent()[27], 'b');
}

TEST(TreeNodeContent, AppendCharOnEmptyBuffer) {
    TreeNode none;
    none.appendContentChar('x');
    EXPECT_STREQ(none.getContent(), "x");
    TreeNode emptyBuffer;
    emptyBuffer.ensureContentObj();
    emptyBuffer.appendContentChar('x');
    EXPECT_STREQ(emptyBuffer.getContent(), "x");
    TreeNode number;
    number.appendContentInt(0);
    EXPECT_STREQ(number.getContent(), "0");
}

TEST(TreeNodeContent, ComparisonsAndNumbers) {
    TreeNode node("t", "Hello", 0);
    EXPECT_TRUE(node.contentEquals("Hello", true));
    EXPECT_FALSE(node.contentEquals("hello", true));
    EXPECT_TRUE(node.contentEquals("hELLO", false));
    EXPECT_FALSE(node.contentEquals("Hell", false));
    EXPECT_TRUE(node.contentMatches("H*o", true));
    EXPECT_FALSE(node.contentMatches("h*O", true));
    EXPECT_TRUE(node.contentMatches("h*O", false));
    EXPECT_TRUE(node.contentMatches("H?llo", true));
    EXPECT_FALSE(node.contentMatches("H?lo", true));

    TreeNode num("n", "42abc", 0);
    EXPECT_EQ(num.getContentIntValue(), 42);
    TreeNode dbl("n", "2.5e1", 0);
    EXPECT_DOUBLE_EQ(dbl.getContentDblValue(), 25.0);
}

TEST(TreeNodeContent, CdataFlag) {
    TreeNode node;
    EXPECT_FALSE(node.getCdata());
    node.setCdata(true);
    EXPECT_TRUE(node.getCdata());
    node.setContentN("x", 1);
    EXPECT_TRUE(node.getCdata());
    node.setCdata(false);
    EXPECT_FALSE(node.getCdata());
}

TEST(TreeNodeContent, EnsureLegalTagStartChar) {
    struct Case {
        const char* in;
        const char* out;
    } cases[] = {{"1abc", "A1abc"}, {".x", "A.x"},  {"-y", "A-y"},
                 {"_ok", "_ok"},    {"ok1", "ok1"}, {"9", "A9"}};
    for (const Case& c : cases) {
        TreeNode node(c.in, nullptr, 0);
        node.ensureLegalTagStartChar();
        EXPECT_STREQ(node.getTag(), c.out) << c.in;
    }
    TreeNode noTag;
    noTag.ensureLegalTagStartChar();
    EXPECT_EQ(noTag._getMyTagSB2(), nullptr);
    TreeNode emptyTag;
    emptyTag.setTag("");
    emptyTag.ensureLegalTagStartChar();
    EXPECT_STREQ(emptyTag.getTag(), "");
}

}  // namespace
