// Appends, removals and hand-overs are checked against std::string by the
// containers program (fuzz/containers_program.h, replayed in
// test_FuzzReplay.cpp); here, decoding and file loading.

#include <cstdio>

#include "foundation/DataBuffer.h"
#include "foundation/LogBase.h"
#include "tests/TestSupport.h"

namespace {

TEST(DataBuffer, Base64) {
    DataBuffer d;
    EXPECT_TRUE(d.appendEncoded("SGVs\r\nbG8g\n V29y bGQ=", "base64"));
    EXPECT_EQ(bytesOf(d), "Hello World");
    d.clear();
    EXPECT_TRUE(d.appendEncoded("QUJD", "BASE64"));
    for (const char* group : {"QUI", "QQ", "Q"})  // truncated: 3 symbols give 2 bytes, 2 give 1
        EXPECT_TRUE(d.appendEncoded(group, "base64"));
    EXPECT_EQ(bytesOf(d), "ABCABA");
    d.clear();
    EXPECT_TRUE(d.appendEncoded("AP8A/w==garbage", "base64"));  // stops at '='
    EXPECT_EQ(bytesOf(d), std::string("\x00\xff\x00\xff", 4));
    EXPECT_FALSE(d.appendEncoded("QUJD", "hex"));
}

TEST(DataBuffer, LoadFile) {
    const std::string path = testing::TempDir() + "xmltree_databuffer.bin";
    std::string content(70000, 'x');
    content[5] = '\0';
    std::ofstream(path, std::ios::binary) << content;
    RecordingLog log;
    DataBuffer d;
    ASSERT_TRUE(d.loadFileUtf8(path.c_str(), &log));
    EXPECT_EQ(bytesOf(d), content);

    std::ofstream(path, std::ios::binary | std::ios::trunc);  // now empty
    EXPECT_TRUE(d.loadFileUtf8(path.c_str(), &log));
    EXPECT_EQ(d.getSize(), 0u);
    std::remove(path.c_str());

    d.append("keep", 4);
    EXPECT_FALSE(d.loadFileUtf8(path.c_str(), &log));
    EXPECT_EQ(bytesOf(d), "keep");
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_EQ(log.lines[0], "E:Failed to open file: " + path + " (No such file or directory)");
    EXPECT_FALSE(d.loadFileUtf8("/tmp", nullptr));
}

// Bytes from outside the buffer (here a literal, below the heap) appended
// while the block moves are read where they are, not where the buffer's own
// bytes moved to.
TEST(DataBuffer, BytesFromOutsideSurviveTheBlockMoving) {
    DataBuffer d;
    std::string want;
    const unsigned char* first = nullptr;
    for (int i = 0; i < 5000 && (!first || d.getData2() == first); ++i) {
        ASSERT_TRUE(d.append("0123456789", 10));
        want += "0123456789";
        if (!first) first = d.getData2();
    }
    EXPECT_NE(d.getData2(), first);
    EXPECT_EQ(bytesOf(d), want);
}

}  // namespace
