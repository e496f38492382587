#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "CheckLogger.h"
#include "foundation/ParseEngine.h"
#include "xmltree/TreeNode.h"

namespace {

// Collects what a CheckLogger prints.
class Capture {
  public:
    Capture() : m_file(open_memstream(&m_data, &m_size)) {}
    ~Capture() {
        if (m_file) std::fclose(m_file);
        std::free(m_data);
    }
    FILE* file() { return m_file; }
    std::string text() {
        std::fflush(m_file);
        return std::string(m_data, m_size);
    }

  private:
    char* m_data = nullptr;
    size_t m_size = 0;
    FILE* m_file;
};

// Line and column computed from scratch, the reference for TextPosition.
std::pair<int, int> positionFromStart(const std::string& text, int offset) {
    int line = 1, chars = 0;
    for (int i = 0; i < offset; ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '\n') {
            ++line;
            chars = 0;
        } else if ((c & 0xC0) != 0x80) {
            ++chars;
        }
    }
    return {line, chars + 1};
}

TEST(TextPosition, CountsLineFeedsAndCharactersNotBytes) {
    // "é" and "€" are two and three bytes; CR is an ordinary character.
    std::string text = "ab\r\n\xc3\xa9\xe2\x82\xacx\n\nz";
    TextPosition pos;
    pos.moveTo(text.c_str(), 0);
    EXPECT_EQ(1, pos.line());
    EXPECT_EQ(1, pos.column());
    pos.moveTo(text.c_str(), 3);  // on the LF after CR
    EXPECT_EQ(1, pos.line());
    EXPECT_EQ(4, pos.column());
    pos.moveTo(text.c_str(), 9);  // on "x", after two characters of five bytes
    EXPECT_EQ(2, pos.line());
    EXPECT_EQ(3, pos.column());
    pos.moveTo(text.c_str(), 12);  // on "z", after an empty line
    EXPECT_EQ(4, pos.line());
    EXPECT_EQ(1, pos.column());
}

TEST(TextPosition, ForwardStepsBackStepsAndNewTextsAgreeWithACountFromTheStart) {
    std::string text;
    for (int i = 0; i < 200; ++i)
        text += (i % 7 == 0) ? "\n" : (i % 3 ? "a" : "\xce\xa9");
    std::string other = "\n\n\nq";
    TextPosition pos;
    const int offsets[] = {5, 5, 40, 41, 120, 60, 0, 200, 3};
    for (int offset : offsets) {
        pos.moveTo(text.c_str(), offset);
        std::pair<int, int> want = positionFromStart(text, offset);
        EXPECT_EQ(want.first, pos.line()) << "offset " << offset;
        EXPECT_EQ(want.second, pos.column()) << "offset " << offset;
    }
    pos.moveTo(other.c_str(), 3);  // another text restarts the count
    EXPECT_EQ(4, pos.line());
    EXPECT_EQ(1, pos.column());
}

TEST(CheckLogger, PrintsEachMessageWithPositionAndTheElementNamedAfterIt) {
    Capture out;
    CheckLogger log("doc.xml", out.file());
    ParseEngine engine;
    engine.append("<a>\n  <b>x</b\n<c/></a>");
    log.attach(&engine);
    engine.cursor = 14;  // the '<' of <c/>
    log.logError("Error in closing tag");
    log.logNameValue("error_tag", "b");
    engine.cursor = 6;  // an earlier place restarts the count
    log.logError("Something else");
    log.logNameValue("detail", "v");
    engine.cursor = engine.getTextSize();
    log.logError("Unclosed comment");
    log.finish();
    EXPECT_EQ(
        "doc.xml:3:1: Error in closing tag (element 'b')\n"
        "doc.xml:2:3: Something else (detail 'v')\n"
        "doc.xml:3:9: Unclosed comment (end of input)\n",
        out.text());
    EXPECT_EQ(3, log.count());
}

TEST(CheckLogger, HoldsMessagesUntilAttachedAndPrintsThemWithoutPosition) {
    Capture out;
    CheckLogger log("in.xml", out.file());
    log.logError("conversion trouble");
    log.logNameValue("charset", "koi8-r");
    EXPECT_EQ("", out.text());
    EXPECT_EQ(0, log.count());
    log.releaseHeld();
    EXPECT_EQ("in.xml: conversion trouble\nin.xml: charset: koi8-r\n", out.text());
    EXPECT_EQ(2, log.count());

    CheckLogger dropped("x.xml", out.file());
    dropped.logError("cannot open");
    dropped.dropHeld();
    dropped.releaseHeld();
    dropped.finish();
    EXPECT_EQ(0, dropped.count());
}

// The position is read from the engine while the parser runs: the closing
// tag of b is cut short by the '<' that opens c on the next line.
TEST(CheckLogger, ReportsWhereTheParserStoodDuringARealParse) {
    Capture out;
    CheckLogger log("t.xml", out.file());
    ParseEngine engine;
    engine.append("<a>\n\t<b>\xe2\x82\xac</b <c/>\n</a>\n<!-- open");
    log.attach(&engine);
    TreeNode* root = nullptr;
    ASSERT_TRUE(TreeNode::customParse(engine, &log, nullptr, &root, true));
    log.finish();
    ASSERT_NE(nullptr, root);
    root->deleteTree();
    EXPECT_EQ(
        "t.xml:2:10: Error in closing tag (element 'b')\n"
        "t.xml:4:10: Unclosed comment (end of input)\n",
        out.text());
}

}  // namespace
