#include "foundation/DataBuffer.h"
#include "foundation/EncodingConvert.h"
#include "foundation/LogBase.h"
#include "tests/TestSupport.h"

namespace {

const unsigned char* U(const char* s) {
    return reinterpret_cast<const unsigned char*>(s);
}

// "<a>é€" in UTF-8
const std::string kUtf8 = "<a>\xC3\xA9\xE2\x82\xAC";

// The decoding tests read UTF-16 and single-byte files; here what they do
// not reach: no mark, appending after what is there, several chunks, and
// charsets named by code page.
TEST(EncodingConvert, WithoutMarkInChunksAndByCodePage) {
    EncodingConvert conv;
    RecordingLog log;
    const char le[] = "<\0a\0>\0\xE9\0\xAC\x20";
    DataBuffer out;
    EXPECT_TRUE(conv.EncConvert(1200, 65001, U(le), 10, out, log));
    EXPECT_EQ(bytesOf(out), kUtf8);
    std::string big;
    for (int i = 0; i < 20000; ++i)
        big.append("\xE9\0", 2);
    EXPECT_TRUE(
        conv.EncConvert(1200, 65001, U(big.data()), static_cast<unsigned>(big.size()), out, log));
    EXPECT_EQ(out.getSize(), kUtf8.size() + 40000);
    out.clear();
    EXPECT_TRUE(conv.EncConvert(1252, 65001, U("\x80"), 1, out, log));
    EXPECT_EQ(bytesOf(out), "\xE2\x82\xAC");
    EXPECT_TRUE(log.lines.empty());
}

TEST(EncodingConvert, BadInputIsReportedAndReplaced) {
    EncodingConvert conv;
    RecordingLog log;
    DataBuffer out;
    EXPECT_FALSE(conv.ChConvert2("utf-8", 65001, U("ab\xFFgh"), 5, out, log));
    EXPECT_EQ(bytesOf(out), "ab\xEF\xBF\xBDgh");
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_NE(log.lines[0].find("utf-8"), std::string::npos);
    EXPECT_NE(log.lines[0].find("offset 2"), std::string::npos);
    // A lone surrogate in UTF-16 is skipped as one unit; what follows stays aligned.
    out.clear();
    EXPECT_FALSE(conv.EncConvert(1200, 65001, U("a\0\x00\xD8z\0"), 6, out, log));
    EXPECT_EQ(bytesOf(out), "a\xEF\xBF\xBDz");
    // Odd byte count: the incomplete last unit.
    out.clear();
    EXPECT_FALSE(conv.EncConvert(1201, 65001, U("\0a\0"), 3, out, log));
    EXPECT_EQ(bytesOf(out), "a\xEF\xBF\xBD");
}

TEST(EncodingConvert, UnknownNames) {
    EncodingConvert conv;
    RecordingLog log;
    DataBuffer out;
    EXPECT_FALSE(conv.ChConvert2("no-such-charset", 65001, U("abc"), 3, out, log));
    EXPECT_FALSE(conv.EncConvert(424242, 65001, U("abc"), 3, out, log));
    EXPECT_FALSE(conv.ChConvert3("", "UTF-8", U("abc"), 3, out, log));
    EXPECT_EQ(out.getSize(), 0u);
    ASSERT_EQ(log.lines.size(), 3u);
    EXPECT_NE(log.lines[0].find("no-such-charset"), std::string::npos);
    EXPECT_NE(log.lines[2].find("conversion from: "), std::string::npos);

    // A mark after the mark: the text's own U+FEFF would lead the UTF-8 text.
    EXPECT_TRUE(conv.ChConvert3("UTF-16BE", "UTF-8", U("\xFE\xFF\xFE\xFF\0A"), 6, out, log));
    EXPECT_EQ(bytesOf(out), "A");

    for (const char* name : {"iso-8859-1", "utf-16", "Windows-1252"})
        EXPECT_TRUE(CharsetNaming::CharsetValid(name)) << name;
    for (const char* name : {"no-such-charset", "", static_cast<const char*>(nullptr)})
        EXPECT_FALSE(CharsetNaming::CharsetValid(name));
}

}  // namespace
