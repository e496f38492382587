#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "ParseReport.h"
#include "xmltree/TreeNode.h"

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

using Lines = std::vector<std::string>;

// Parses text as the tool does, with a report in the given mode.
struct Parsed {
    ParseReport report;
    DataBuffer data;
    TreeNode* root = nullptr;
    Parsed(const std::string& text, ParseReport::Mode mode) : report(mode) {
        data.append(text.data(), static_cast<unsigned int>(text.size()));
        EXPECT_TRUE(TreeNode::customParseData2(data, nullptr, report, &root, true));
    }
    ~Parsed() {
        if (root) root->deleteTree();
    }
    Lines lines() {
        return report.lines("t.xml", reinterpret_cast<const char*>(data.getData2()),
                            data.getSize());
    }
};

// In the order of the text whatever the order of the notes (the bytes are
// checked first, a dropped element is known at the end); the parser's own
// messages with their element; the end of the input named.
TEST(ParseReport, ListsInTextOrderWithPlacesAndElements) {
    Parsed run("<a>\n\t<b>\xe2\x82\xac &#8364;</b <c/>\n</a><!-- x -->\xff<d>\n<!-- open",
               ParseReport::Mode::kList);
    EXPECT_EQ(run.lines(),
              (Lines{
                  "t.xml:2:7: character reference '&#8364;' kept as text (element 'b')",
                  "t.xml:2:18: Error in closing tag (element 'b')",
                  "t.xml:3:5: comment dropped",
                  "t.xml:3:15: bytes that are not UTF-8 kept as they are: FF",
                  "t.xml:3:15: text outside the top-level element dropped",
                  "t.xml:3:16: later top-level element left open at the end dropped (element 'd')",
                  "t.xml:4:1: Unclosed comment (element 'd')",
              }));
    EXPECT_EQ(7, run.report.count());
    Parsed open("<r>\n", ParseReport::Mode::kList);
    EXPECT_EQ(open.lines(), Lines{"t.xml:2:1: element not closed (element 'r', end of input)"});
}

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

// Only what format and sort would not keep is counted, named in the order
// of the kinds, with "and" before the last.
TEST(ParseReport, SummaryCountsLossesOnly) {
    long things = 0;
    Parsed clean("<a x=1 x=2><b></c></a>", ParseReport::Mode::kCount);
    EXPECT_EQ("", clean.report.lossSummary(&things));
    EXPECT_EQ(0, things);
    Parsed one("<a>&#233;</a>", ParseReport::Mode::kCount);
    EXPECT_EQ("1 character reference", one.report.lossSummary(&things));
    EXPECT_EQ(1, things);
    Parsed many("<!--1--><a>&#1;&#2;<b/>t<!--2--></a>", ParseReport::Mode::kCount);
    EXPECT_EQ("2 comments, 2 character references and 1 text run in its place",
              many.report.lossSummary(&things));
    EXPECT_EQ(5, things);
    Parsed quiet("<!--1--><a/>", ParseReport::Mode::kMessages);
    EXPECT_EQ("", quiet.report.lossSummary(&things));
}

}  // namespace
