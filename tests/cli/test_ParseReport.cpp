#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "ParseReport.h"

namespace {

// Line and column computed from scratch, the reference for TextPosition.
std::pair<int, int> positionFromStart(const std::string& text, int offset) {
    int line = 1, chars = 0;
    for (int i = 0; i < offset; ++i) {
        unsigned char c = static_cast<unsigned char>(text[static_cast<size_t>(i)]);
        if (c == '\n') {
            ++line;
            chars = 0;
        } else if ((c & 0xC0) != 0x80) {
            ++chars;
        }
    }
    return {line, chars + 1};
}

// CR is an ordinary character; characters of two and three bytes count once.
TEST(TextPosition, ForwardStepsBackStepsAndNewTextsAgreeWithACountFromTheStart) {
    std::string text;
    for (int i = 0; i < 200; ++i)
        text += i % 7 == 0   ? "\n"
                : i % 5 == 0 ? "\r"
                : i % 3      ? "a"
                : i % 2      ? "\xce\xa9"
                             : "\xe2\x82\xac";
    TextPosition pos;
    for (int offset : {5, 5, 40, 41, 120, 60, 0, 240, 3}) {
        while ((static_cast<unsigned char>(text[static_cast<size_t>(offset)]) & 0xC0) == 0x80)
            --offset;  // on the first byte of a character
        pos.moveTo(text.c_str(), offset);
        EXPECT_EQ(positionFromStart(text, offset), std::make_pair(pos.line(), pos.column()))
            << "offset " << offset;
    }
    pos.moveTo("\n\n\nq", 3);  // another text restarts the count
    EXPECT_EQ(std::make_pair(4, 1), std::make_pair(pos.line(), pos.column()));
}

// Notes in the order of the text, the summaries and the places on real
// files are pinned by the command-line cases (losses.sh, check_*, format_*);
// messages that have no place are not.
using Lines = std::vector<std::string>;

TEST(ParseReport, MessagesWithoutAPlaceComeFirst) {
    ParseReport report(ParseReport::Mode::kList);
    report.logError("Invalid byte sequence in koi8-r input at byte offset 3");
    report.logNameValue("charset", "koi8-r");
    report.logParseNote(xmltree::ParseNote::kComment, 0, 4, nullptr);
    EXPECT_EQ(report.lines("in.xml", "<!---->", 7),
              (Lines{"in.xml: Invalid byte sequence in koi8-r input at byte offset 3 (charset "
                     "'koi8-r')",
                     "in.xml:1:1: comment dropped"}));
    EXPECT_EQ("Invalid byte sequence in koi8-r input at byte offset 3", report.lastMessage());
    EXPECT_FALSE(report.outOfMemory());
    report.logError("Out of memory");
    EXPECT_TRUE(report.outOfMemory());
}

}  // namespace
