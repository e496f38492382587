#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <random>
#include <string>

#include "foundation/ExtPtrArray.h"
#include "foundation/StringBuffer.h"

namespace {

std::string text(const StringBuffer& sb) {
    return std::string(sb.getString(), sb.getSize());
}

TEST(StringBuffer, InlineToHeapBoundary) {
    // 20 bytes fit inside the object, 21 need the heap; the text must survive
    // every step of the move.
    StringBuffer sb;
    std::string expect;
    for (int i = 0; i < 100; ++i) {
        char c = static_cast<char>('a' + i % 26);
        ASSERT_TRUE(sb.appendChar(c));
        expect += c;
        ASSERT_EQ(text(sb), expect);
        ASSERT_EQ(sb.getString()[sb.getSize()], '\0');
    }
    for (int n : {20, 21, 22}) {
        std::string s(static_cast<size_t>(n), 'x');
        StringBuffer a(s.c_str());
        EXPECT_EQ(text(a), s);
        StringBuffer b(a);
        b.append(a);
        EXPECT_EQ(text(b), s + s);
        b.minimizeMemoryUsage();
        EXPECT_EQ(text(b), s + s);
    }
}

// The counted constructor copies short texts with overlapping moves of its
// own: every length must come out whole, reading nothing past the source
// (each source is a block of exactly n bytes, so sanitizer builds see any
// overread).
TEST(StringBuffer, CountedConstructorCopiesEveryShortLength) {
    for (int n = 0; n <= StringBuffer::kInlineCapacity + 2; ++n) {
        std::unique_ptr<char[]> src(new char[static_cast<size_t>(n) + (n == 0)]);
        for (int i = 0; i < n; ++i) src[static_cast<size_t>(i)] = static_cast<char>('A' + i);
        StringBuffer sb(src.get(), n, 0);
        EXPECT_EQ(text(sb), std::string(src.get(), static_cast<size_t>(n))) << n;
        EXPECT_EQ(sb.getString()[sb.getSize()], '\0') << n;
    }
}

// Small heap texts and large ones live in different allocators; every way a
// text moves between sizes must take its block back to the right one (a
// mismatch aborts in the free, outside sanitizer builds).
TEST(StringBuffer, TextsMoveBetweenSmallAndLargeBlocks) {
    std::string big(5000, 'b'), mid(200, 'm'), edge(255, 'e');
    StringBuffer sb;
    std::string expect;
    for (int step = 0; step < 600; ++step) {  // across 255/256 bytes of capacity
        ASSERT_TRUE(sb.appendN("0123456789", 10));
        expect += "0123456789";
    }
    EXPECT_EQ(text(sb), expect);
    sb.shorten(static_cast<int>(expect.size()) - 100);
    sb.minimizeMemoryUsage();  // large block to a small one
    EXPECT_EQ(text(sb), expect.substr(0, 100));
    for (const std::string* s : {&big, &mid, &edge, &big}) {
        ASSERT_TRUE(sb.setString(s->c_str()));
        EXPECT_EQ(text(sb), *s);
        StringBuffer copy(s->c_str(), static_cast<int>(s->size()), 0);
        ASSERT_TRUE(sb.setString(copy));
        EXPECT_EQ(text(sb), *s);
    }
    StringBuffer grow(mid.c_str());
    EXPECT_EQ(grow.replaceAllOccurances("m", "mmmm"), 200);  // small block to large
    EXPECT_EQ(text(grow), std::string(800, 'm'));
    grow.shorten(790);
    grow.minimizeMemoryUsage();  // back inline
    EXPECT_EQ(text(grow), std::string(10, 'm'));
}

TEST(StringBuffer, AppendNCopiesEmbeddedNulAndSelf) {
    StringBuffer sb;
    sb.appendN("a\0<b", 4);
    EXPECT_EQ(sb.getSize(), 4);
    EXPECT_EQ(text(sb), std::string("a\0<b", 4));
    // Appending a piece of its own text while it has to grow.
    StringBuffer self("0123456789012345678");
    for (int i = 0; i < 4; ++i)
        self.appendN(self.getString(), self.getSize());
    std::string want;
    for (int i = 0; i < 16; ++i) want += "0123456789012345678";
    EXPECT_EQ(text(self), want);
}

TEST(StringBuffer, ConstructorsFactoriesAndAssignment) {
    EXPECT_STREQ(StringBuffer("abcdef", 3, 20).getString(), "abc");
    std::string longText(100, 'q');
    EXPECT_EQ(StringBuffer(longText.c_str(), 40, 20).getSize(), 40);
    StringBuffer reserved(10000);
    EXPECT_EQ(reserved.getSize(), 0);
    EXPECT_GE(reserved.getCapacity(), 10000);
    std::unique_ptr<StringBuffer> made(StringBuffer::createNewSB("hello"));
    EXPECT_STREQ(made->getString(), "hello");
    StringBuffer x("one"), y("a much longer text that lives on the heap");
    x = y;
    y = x;
    StringBuffer& alias = x;
    x = alias;  // self-assignment
    EXPECT_TRUE(x.equals("a much longer text that lives on the heap"));
}

TEST(StringBuffer, UncheckedAppendsWithinReservedRoom) {
    // Crossing from inline to heap storage, and reserving more than once.
    StringBuffer sb("0123456789");
    ASSERT_TRUE(sb.reserveMore(40));
    EXPECT_GE(sb.getCapacity(), 50);
    sb.appendUnchecked("abcdefghijklmnopqrstuvwxyz", 26);
    sb.appendCharUnchecked('!');
    EXPECT_TRUE(sb.reserveMore(0));
    ASSERT_TRUE(sb.reserveMore(3000));
    for (int i = 0; i < 1000; ++i)
        sb.appendUnchecked("xyz", 3);
    EXPECT_EQ(sb.getSize(), 37 + 3000);
    EXPECT_EQ(std::string(sb.getString(), 37), "0123456789abcdefghijklmnopqrstuvwxyz!");
    EXPECT_EQ(sb.getString()[sb.getSize()], '\0');
    EXPECT_EQ(sb.lastChar(), 'z');
    sb.shorten(sb.getSize() - 2);  // the old bytes stay behind the new end
    sb.appendUnchecked("X", 1);
    EXPECT_STREQ(sb.getString(), "01X");
}

TEST(StringBuffer, SetStringPrependShorten) {
    StringBuffer sb("a fairly long text beyond the inline part");
    sb.setString(sb.pCharAt(2));  // a tail of its own text
    EXPECT_STREQ(sb.getString(), "fairly long text beyond the inline part");
    sb.setString(sb);
    EXPECT_STREQ(sb.getString(), "fairly long text beyond the inline part");
    sb.setString("short");
    EXPECT_STREQ(sb.getString(), "short");

    StringBuffer p("1234567890123456789");  // 19 bytes: prepending must leave the inline area
    EXPECT_TRUE(p.prepend("A"));
    EXPECT_TRUE(p.prepend("BC"));
    EXPECT_STREQ(p.getString(), "BCA1234567890123456789");
    p.prepend(p.getString() + 20);  // its own tail
    EXPECT_STREQ(p.getString(), "89BCA1234567890123456789");

    StringBuffer s("x|y|");
    s.shorten(1);
    EXPECT_STREQ(s.getString(), "x|y");
    EXPECT_EQ(s.lastChar(), 'y');
    s.shorten(99);
    EXPECT_STREQ(s.getString(), "");
    s.appendCharN(' ', 3);
    EXPECT_STREQ(s.getString(), "   ");
    EXPECT_EQ(s.charAt(5), '\0');
    EXPECT_EQ(s.pCharAt(3), s.getString() + 3);
    EXPECT_EQ(s.pCharAt(4), nullptr);
    s.clear();
    EXPECT_STREQ(s.getString(), "");
}

TEST(StringBuffer, Comparisons) {
    StringBuffer sb("Hello\xC3\x89");
    EXPECT_TRUE(sb.equals("Hello\xC3\x89"));
    EXPECT_FALSE(sb.equals("Hello"));
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
    EXPECT_TRUE(sb.matches("H*?", true));
    EXPECT_FALSE(sb.matches("h*", true));
    EXPECT_TRUE(sb.matches("h*", false));
    EXPECT_FALSE(sb.matches(nullptr, true));
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
    EXPECT_EQ(StringBuffer(" -7x").intValue(), -7);
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
    };
    for (const auto& c : cases) {
        StringBuffer sb(c.text);
        EXPECT_EQ(sb.replaceAllOccurances(c.from, c.to), c.count) << c.text;
        EXPECT_STREQ(sb.getString(), c.result) << c.text;
    }
}

TEST(StringBuffer, ReplaceAllAgreesWithReference) {
    std::mt19937 rng(11);
    auto randomText = [&](int maxLen) {
        std::string s(rng() % (maxLen + 1), ' ');
        for (char& c : s)
            c = "ab&;"[rng() % 4];
        return s;
    };
    for (int i = 0; i < 5000; ++i) {
        const std::string t = randomText(40), to = randomText(4);
        std::string from = randomText(3);
        if (from.empty()) from = "a";
        std::string expect;
        int count = 0;
        for (size_t pos = 0;;) {
            const size_t hit = t.find(from, pos);
            expect += t.substr(pos, hit == std::string::npos ? std::string::npos : hit - pos);
            if (hit == std::string::npos) break;
            expect += to;
            ++count;
            pos = hit + from.size();
        }
        StringBuffer sb(t.c_str());
        ASSERT_EQ(sb.replaceAllOccurances(from.c_str(), to.c_str()), count);
        ASSERT_EQ(text(sb), expect) << t << " / " << from << " -> " << to;
    }
}

TEST(StringBuffer, CharRemovalTrimAndNames) {
    StringBuffer sb("\"a\" b \"c\"");
    EXPECT_EQ(sb.eliminateChar('"', 0), 4);
    EXPECT_STREQ(sb.getString(), "a b c");
    EXPECT_EQ(sb.removeCharOccurances(' '), 2);
    EXPECT_STREQ(sb.getString(), "abc");

    StringBuffer t(" \t\r\n x y \n\t");
    t.trim2();
    EXPECT_STREQ(t.getString(), "x y");
    StringBuffer blank(" \t ");
    blank.trim2();
    EXPECT_STREQ(blank.getString(), "");

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
