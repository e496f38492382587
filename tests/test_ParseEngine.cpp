#include <string>

#include <gtest/gtest.h>

#include "foundation/DataBuffer.h"
#include "foundation/ParseEngine.h"

namespace {

// Engine over `text` with the cursor at `at`.
struct Engine : ParseEngine {
    Engine(const char* text, int at = 0) {
        append(text);
        cursor = at;
    }
};

TEST(ParseEngine, TextPointerFollowsAppends) {
    ParseEngine pe;
    EXPECT_STREQ(pe.textPtr, "");
    std::string all;
    for (int i = 0; i < 50; ++i) {
        pe.append("<a>");
        pe.appendN("text\0ignored", 4);
        all += "<a>text";
        ASSERT_EQ(pe.textPtr, pe.textBuf.getString());
    }
    EXPECT_EQ(std::string(pe.textPtr), all);
    EXPECT_EQ(pe.textBuf.getSize(), static_cast<int>(all.size()));

    DataBuffer d;
    d.append("<r/>", 4);
    ParseEngine fromData(d);
    EXPECT_STREQ(fromData.textPtr, "<r/>");
    EXPECT_EQ(fromData.cursor, 0);
    DataBuffer none;
    ParseEngine empty(none);
    EXPECT_STREQ(empty.textPtr, "");
}

TEST(ParseEngine, CapturesStopBeforeDelimiter) {
    Engine pe("name attr=\"v\" x='w'/>");
    StringBuffer out("keep:");
    pe.captureToNext(" \t\r\n/>", out);
    EXPECT_STREQ(out.getString(), "keep:name");
    EXPECT_EQ(pe.cursor, 4);
    pe.captureToNext(" \t\r\n/>", out);  // already on a delimiter
    EXPECT_EQ(pe.cursor, 4);
    EXPECT_STREQ(out.getString(), "keep:name");

    pe.cursor = 5;
    out.clear();
    pe.captureToNext7(" \t\r\n=/>", out);
    EXPECT_STREQ(out.getString(), "attr");
    EXPECT_EQ(pe.currentChar(), '=');
    pe.cursor += 2;
    out.clear();
    pe.captureToNext2("\"\"", out);
    EXPECT_STREQ(out.getString(), "v");
    EXPECT_EQ(pe.currentChar(), '"');
    pe.cursor = 17;
    out.clear();
    pe.captureToNext2("'\"", out);
    EXPECT_STREQ(out.getString(), "w");
    EXPECT_EQ(pe.cursor, 18);
    out.clear();
    pe.captureToNext5("\"'\r\n\n", out);
    EXPECT_EQ(pe.cursor, 18);

    Engine line("abc def\r\nrest");
    out.clear();
    line.captureToNext5("\"'\r\n\n", out);
    EXPECT_STREQ(out.getString(), "abc def");
    EXPECT_EQ(line.currentChar(), '\r');
    out.clear();
    line.captureToNextChar('!', out);  // not found: the rest, cursor on the NUL
    EXPECT_STREQ(out.getString(), "\r\nrest");
    EXPECT_EQ(line.cursor, line.textBuf.getSize());
    EXPECT_TRUE(line.atEnd());
    line.captureToNext7(" \t\"'\r\n\n", out);  // at the end: nothing happens
    EXPECT_EQ(line.cursor, line.textBuf.getSize());
}

TEST(ParseEngine, DelimiterSetsCoverEveryByteValue) {
    // Delimiters from each quarter of the byte range, and bytes next to them
    // that must not stop the scan.
    Engine pe("ab?>=\x7F\x7E@~\xC3\xA9\xFF\xFE");
    StringBuffer out;
    pe.captureToNext7("@", out);
    EXPECT_STREQ(out.getString(), "ab?>=\x7F\x7E");
    out.clear();
    pe.captureToNext5("\xFF~", out);
    EXPECT_STREQ(out.getString(), "@");
    pe.cursor += 1;
    out.clear();
    pe.captureToNext("\xFF", out);
    EXPECT_STREQ(out.getString(), "\xC3\xA9");
    out.clear();
    pe.captureToNext("", out);  // no delimiters: runs to the end
    EXPECT_STREQ(out.getString(), "\xFF\xFE");
    EXPECT_TRUE(pe.atEnd());
}

TEST(ParseEngine, EmbeddedNulEndsScans) {
    ParseEngine pe;
    pe.appendN("ab\0c>d", 6);
    StringBuffer out;
    pe.captureToNextChar('>', out);
    EXPECT_EQ(pe.cursor, 2);
    EXPECT_STREQ(out.getString(), "ab");
    pe.cursor = 0;
    EXPECT_FALSE(pe.seekAndSkipExact(">"));
    EXPECT_EQ(pe.cursor, 2);
    pe.cursor = 0;
    pe.captureToNext("xyz", out);
    EXPECT_EQ(pe.cursor, 2);
}

TEST(ParseEngine, SkipScans) {
    Engine pe("abc<def>");
    pe.skipUntilChar('<');
    EXPECT_EQ(pe.cursor, 3);
    pe.skipUntilChar('<');
    EXPECT_EQ(pe.cursor, 3);
    pe.skipUntilChar('#');
    EXPECT_EQ(pe.cursor, 8);

    Engine t("text>more");
    EXPECT_TRUE(t.skipUntilChar2('>', '<'));
    EXPECT_EQ(t.cursor, 4);
    Engine u("text<b>");
    EXPECT_FALSE(u.skipUntilChar2('>', '<'));
    EXPECT_EQ(u.cursor, 4);
    Engine v("text");
    EXPECT_FALSE(v.skipUntilChar2('>', '<'));
    EXPECT_EQ(v.cursor, 4);
}

TEST(ParseEngine, SeekScans) {
    Engine pe("<!-- a - b -- c -->tail", 4);
    EXPECT_TRUE(pe.seekAndSkipExact("-->"));
    EXPECT_STREQ(pe.currentPtr(), "tail");
    EXPECT_FALSE(pe.seekAndSkipExact("-->"));
    EXPECT_TRUE(pe.atEnd());
    EXPECT_EQ(pe.cursor, pe.textBuf.getSize());

    Engine c("abc ]]> x ]]>", 0);
    StringBuffer out("pre|");
    c.seekAndCopy("]]>", out);
    EXPECT_STREQ(out.getString(), "pre|abc ]]>");
    EXPECT_EQ(c.cursor, 7);
    c.seekAndCopy("?>", out);
    EXPECT_STREQ(out.getString(), "pre|abc ]]> x ]]>");
    EXPECT_TRUE(c.atEnd());
}

TEST(ParseEngine, SeekToClosingCountsNesting) {
    const char* doc = "<!DOCTYPE r [<!ENTITY e \"v\">]>more";
    Engine pe(doc, 1);
    StringBuffer out("<");
    EXPECT_TRUE(pe.seekAndCopyToClosing('<', '>', 1, out));
    EXPECT_STREQ(out.getString(), "<!DOCTYPE r [<!ENTITY e \"v\">]>");
    EXPECT_STREQ(pe.currentPtr(), "more");

    Engine open("!DOCTYPE r [<!ENTITY e 'v'>", 0);
    out.clear();
    EXPECT_FALSE(open.seekAndCopyToClosing('<', '>', 1, out));
    EXPECT_STREQ(out.getString(), "!DOCTYPE r [<!ENTITY e 'v'>");
    EXPECT_TRUE(open.atEnd());
}

}  // namespace
