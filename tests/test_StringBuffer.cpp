// Edits are checked against std::string by the containers program
// (fuzz/containers_program.h, replayed in test_FuzzReplay.cpp);
// here, what a model cannot say.

#include <climits>
#include <random>

#include "foundation/ExtPtrArray.h"
#include "foundation/StringBuffer.h"
#include "tests/TestSupport.h"

namespace {

std::string text(const StringBuffer& sb) {
    return std::string(sb.getString(), sb.getSize());
}

// The counted constructor copies short texts with overlapping moves of its
// own and longer ones to the heap: every length must come out whole, reading
// nothing past the source (each source is a block of exactly n bytes, so
// sanitizer builds see any overread).
TEST(StringBuffer, CountedConstructorCopiesEveryLength) {
    for (int n = 0; n <= StringBuffer::kInlineCapacity + 20; ++n) {
        std::unique_ptr<char[]> src(new char[static_cast<size_t>(n) + (n == 0)]);
        for (int i = 0; i < n; ++i)
            src[static_cast<size_t>(i)] = static_cast<char>('A' + i);
        StringBuffer sb(src.get(), n, n % 3 * 20);  // the hint never changes the text
        EXPECT_EQ(text(sb), std::string(src.get(), static_cast<size_t>(n))) << n;
        EXPECT_EQ(sb.getString()[sb.getSize()], '\0') << n;
    }
}

TEST(StringBuffer, Comparisons) {
    StringBuffer sb("Hello\xC3\x89");
    EXPECT_TRUE(sb.equals("Hello\xC3\x89"));
    EXPECT_FALSE(sb.equals("Hello") || sb.equals(nullptr));
    EXPECT_TRUE(sb.equalsIgnoreCase("hELLO\xC3\x89"));
    EXPECT_FALSE(sb.equalsIgnoreCase("hELLO\xC3\xA9"));  // only ASCII folds
    EXPECT_FALSE(sb.equalsIgnoreCase("jELLO\xC3\x89"));  // the first byte counts too
    EXPECT_LT(StringBuffer("abc").compare("abd"), 0);
    EXPECT_GT(StringBuffer("\xC3").compare("a"), 0);  // bytes are unsigned
    EXPECT_EQ(StringBuffer("abc").compare("abc"), 0);
    EXPECT_TRUE(sb.containsChar('l'));
    EXPECT_FALSE(sb.containsChar('z'));
    EXPECT_TRUE(sb.containsSubstring("llo"));
    EXPECT_FALSE(sb.containsSubstring("LLO"));
    EXPECT_TRUE(sb.containsSubstringNoCase("LLO\xC3"));
    EXPECT_TRUE(!sb.matches("h*", true) && sb.matches("h*", false));  // wildcards: StringFunctions
}

TEST(StringBuffer, NumbersWrittenAndRead) {
    StringBuffer sb;
    for (int n : {INT_MIN, 0, -12, INT_MAX}) {
        sb.append(n);
        sb.appendChar('|');
    }
    EXPECT_STREQ(sb.getString(), "-2147483648|0|-12|2147483647|");
    EXPECT_EQ(StringBuffer("42abc").intValue(), 42);
    EXPECT_EQ(StringBuffer("").intValue(), 0);
    EXPECT_EQ(StringBuffer(" \t\n\v\f\r-7x").intValue(), -7);  // what atoi skips
    EXPECT_EQ(StringBuffer("abc").intValue(), 0);
    EXPECT_EQ(StringBuffer("99999999999999").intValue(), INT_MAX);
    EXPECT_EQ(StringBuffer("-2147483648").intValue(), INT_MIN);
    EXPECT_DOUBLE_EQ(StringBuffer(" 2.5e1z").doubleValue(), 25.0);
}

TEST(StringBuffer, ReplaceAllIsOnePass) {
    const struct {
        const char *text, *from, *to;
        int count;
        const char* result;
    } cases[] = {
        {"&amp;lt;", "&amp;", "&", 1, "&lt;"},
        {"a<b<c", "<", "&lt;", 2, "a&lt;b&lt;c"},  // growing, "<" not rescanned
        {"abc", "", "x", 0, "abc"},
        {"abc", nullptr, "x", 0, "abc"},
    };
    for (const auto& c : cases) {
        StringBuffer sb(c.text);
        EXPECT_EQ(sb.replaceAllOccurances(c.from, c.to), c.count) << c.text;
        EXPECT_STREQ(sb.getString(), c.result) << c.text;
    }
}

TEST(StringBuffer, CharRemovalTrimAndNames) {
    StringBuffer sb("\"a\" b \"c\"");
    EXPECT_EQ(sb.eliminateChar('"', 0), 4);
    EXPECT_STREQ(sb.getString(), "a b c");
    EXPECT_EQ(sb.removeCharOccurances(' '), 2);
    EXPECT_STREQ(sb.getString(), "abc");

    for (const auto& [in, out] :
         {std::pair<const char*, const char*>{" \t\r\n x y \n\t", "x y"}, {" \t ", ""}}) {
        StringBuffer t(in);
        t.trim2();
        EXPECT_STREQ(t.getString(), out);
    }

    StringBuffer n("a b<c>d_e-f.g:h/i\xC3\xA9!9");
    n.removeInvalidXmlTagChars();
    EXPECT_STREQ(n.getString(),
                 "abcd_e-f.g:hi\xC3\xA9"
                 "9");
    // The clean prefix ends at the first byte to drop, NUL included.
    EXPECT_EQ(StringBuffer::cleanXmlTagPrefix("a-b.c:d_\xC3\xA9", 10), 10);
    EXPECT_EQ(StringBuffer::cleanXmlTagPrefix("ab\"c", 4), 2);
    EXPECT_EQ(StringBuffer::cleanXmlTagPrefix("ab\0c", 4), 2);
    EXPECT_EQ(StringBuffer::cleanXmlTagPrefix("<a", 2), 0);
    StringBuffer last("name>");  // only the last byte goes
    last.removeInvalidXmlTagChars();
    EXPECT_STREQ(last.getString(), "name");
    EXPECT_EQ(last.getSize(), 4);
    StringBuffer up("ABC\xC3\x89z");
    up.toLowerCase();
    EXPECT_STREQ(up.getString(), "abc\xC3\x89z");
}

TEST(StringBuffer, SplitKeepsEveryPiece) {
    auto pieces = [](const char* text) {
        ExtPtrArray parts;
        StringBuffer(text).split(parts, '|', false, false);
        std::string out;
        for (int i = 0; i < parts.getSize(); ++i)
            out += std::string("[") + parts.sbAt(i)->getString() + "]";
        parts.removeAllObjects();
        return out;
    };
    EXPECT_EQ(pieces("name|other"), "[name][other]");
    EXPECT_EQ(pieces("|a||"), "[][a][][]");
}

}  // namespace
