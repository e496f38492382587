#include "foundation/DataBuffer.h"
#include "foundation/ParseEngine.h"
#include "tests/TestSupport.h"

namespace {

// Engine over `text` with the cursor at `at`.
struct Engine : ParseEngine {
    Engine(const char* text, int at = 0) {
        append(text);
        cursor = at;
    }
};

// One capture from `at`: what it appends after what `out` held, and where
// the cursor stops (-1: on the end of the text).
struct Capture {
    const char* text;
    int at;
    void (ParseEngine::*scan)(const char*, StringBuffer&);
    const char* delimiters;
    const char* captured;
    int stop;
};

const char kTag[] = "name attr=\"v\" x='w'/>";
const char kLine[] = "abc def\r\nrest";
// Delimiters from each quarter of the byte range, with bytes next to them
// that must not stop the scan.
const char kBytes[] = "ab?>=\x7F\x7E@~\xC3\xA9\xFF\xFE";

const Capture kCaptures[] = {
    {kTag, 0, &ParseEngine::captureToNext, " \t\r\n/>", "name", 4},
    {kTag, 4, &ParseEngine::captureToNext, " \t\r\n/>", "", 4},  // already on a delimiter
    {kTag, 5, &ParseEngine::captureToNext7, " \t\r\n=/>", "attr", 9},
    {kTag, 11, &ParseEngine::captureToNext2, "\"\"", "v", 12},
    {kTag, 17, &ParseEngine::captureToNext2, "'\"", "w", 18},
    {kTag, 18, &ParseEngine::captureToNext5, "\"'\r\n\n", "", 18},
    {kLine, 0, &ParseEngine::captureToNext5, "\"'\r\n\n", "abc def", 7},
    {kLine, 13, &ParseEngine::captureToNext7, " \t\"'\r\n\n", "", -1},  // at the end: nothing
    {kBytes, 0, &ParseEngine::captureToNext7, "@", "ab?>=\x7F\x7E", 7},
    {kBytes, 7, &ParseEngine::captureToNext5, "\xFF~", "@", 8},
    {kBytes, 9, &ParseEngine::captureToNext, "\xFF", "\xC3\xA9", 11},
    {kBytes, 11, &ParseEngine::captureToNext, "", "\xFF\xFE", -1},  // no delimiters
};

TEST(ParseEngine, CapturesStopBeforeDelimiter) {
    for (const Capture& c : kCaptures) {
        SCOPED_TRACE(std::string(c.text) + " from " + std::to_string(c.at));
        Engine pe(c.text, c.at);
        StringBuffer out("keep:");
        (pe.*c.scan)(c.delimiters, out);
        EXPECT_EQ(std::string(out.getString()), std::string("keep:") + c.captured);
        EXPECT_EQ(pe.cursor, c.stop < 0 ? pe.textBuf.getSize() : c.stop);
        EXPECT_EQ(pe.atEnd(), c.stop < 0);
    }
    Engine line(kLine, 7);
    StringBuffer out;
    line.captureToNextChar('!', out);  // not found: the rest, cursor on the NUL
    EXPECT_STREQ(out.getString(), "\r\nrest");
    EXPECT_TRUE(line.atEnd());
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
