// Input decoding and the file and byte-buffer entry points that depend on it.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "xmltree/TreeNode.h"

namespace {

const std::string kDir = std::string(XMLTREE_TEST_DATA_DIR) + "/encodings/";

struct RecordingLog : LogBase {
    std::vector<std::string> lines;
    void logError(const char* m) override { lines.push_back(std::string("E:") + m); }
    void logNameValue(const char* n, const char* v) override {
        lines.push_back(std::string("NV:") + n + "=" + v);
    }
};

DataBuffer bytes(const std::string& s) {
    DataBuffer d;
    d.append(s.data(), static_cast<unsigned int>(s.size()));
    return d;
}

std::string str(const DataBuffer& d) {
    return std::string(reinterpret_cast<const char*>(d.getData2()), d.getSize());
}

std::string convert(const std::string& in, bool* result = nullptr) {
    DataBuffer d = bytes(in);
    RecordingLog log;
    bool ok = TreeNode::convertXmlToUtf8(d, log);
    if (result) *result = ok;
    return str(d);
}

std::string encodingOf(TreeNode* root) {
    StringBuffer enc;
    bool found = false;
    root->getDocEncoding(enc, found);
    return found ? enc.getString() : "<none>";
}

std::string attrValue(TreeNode* n, const char* name) {
    StringBuffer v;
    n->getAttributeValue(name, v);
    return v.getString();
}

const char kBodyUtf8[] = "h\xc3\xa9llo \xe2\x82\xac & \xe4\xb8\xad";
const char kAttrUtf8[] = "\xc3\xa9t\xc3\xa9";

TEST(DecodeBuffer, NullDataIsTheOnlyFailure) {
    DataBuffer empty;
    RecordingLog log;
    EXPECT_FALSE(TreeNode::convertXmlToUtf8(empty, log));
    EXPECT_TRUE(log.lines.empty());
}

TEST(DecodeBuffer, NoMarkNoDeclarationLeavesBytesAlone) {
    bool ok = false;
    std::string in = "<r>caf\xe9</r>";
    EXPECT_EQ(convert(in, &ok), in);
    EXPECT_TRUE(ok);
    EXPECT_EQ(convert("\xff"), "\xff");  // too short for a mark
}

TEST(DecodeBuffer, Utf8MarkIsRemovedAndTheDeclarationIgnored) {
    std::string in = "\xef\xbb\xbf<?xml encoding='iso-8859-1'?><r>\xc3\xa9</r>";
    EXPECT_EQ(convert(in), in.substr(3));
}

TEST(DecodeBuffer, DeclaredUtf8InAnyCaseIsNotConverted) {
    std::string in = "<?XML Version='1.0' ENCODING=\"UTF-8\"?><r>\xe9</r>";
    EXPECT_EQ(convert(in), in);
}

TEST(DecodeBuffer, BlanksAroundEqualsAreIgnoredTabsAreNot) {
    EXPECT_EQ(convert("<?xml encoding = 'iso-8859-1'?><r>\xe9</r>"),
              "<?xml encoding = 'iso-8859-1'?><r>\xc3\xa9</r>");
    std::string tabbed = "<?xml encoding\t='iso-8859-1'?><r>\xe9</r>";
    EXPECT_EQ(convert(tabbed), tabbed);
}

TEST(DecodeBuffer, UpperCaseNameIsLowerCasedBeforeLookup) {
    EXPECT_EQ(convert("<?xml ENCODING=\"ISO-8859-1\"?>\xe9"),
              "<?xml ENCODING=\"ISO-8859-1\"?>\xc3\xa9");
}

TEST(DecodeBuffer, UnknownOrMalformedNamesConvertNothing) {
    bool ok = false;
    std::string bogus = "<?xml encoding='no-such-charset'?><r>\xe9</r>";
    EXPECT_EQ(convert(bogus, &ok), bogus);
    EXPECT_TRUE(ok);
    // A name opened with a single quote runs on to a later double quote.
    std::string runOn = "<?xml encoding='iso-8859-1' v=\"1\"?><r>\xe9</r>";
    EXPECT_EQ(convert(runOn), runOn);
    std::string empty = "<?xml encoding=''?>\xe9";
    EXPECT_EQ(convert(empty), empty);
    std::string unclosed = "<?xml encoding=\"iso-8859-1\xe9";  // no '>' at all
    EXPECT_EQ(convert(unclosed), unclosed);
}

TEST(DecodeBuffer, Utf16MarksConvertTheWholeBuffer) {
    std::string le("\xff\xfe<\0r\0/\0>\0", 10);
    EXPECT_EQ(convert(le), "<r/>");
    std::string be("\xfe\xff\0<\0r\0/\0>", 10);
    EXPECT_EQ(convert(be), "<r/>");
}

TEST(DecodeBuffer, ZeroByteInTheMiddleEndsTheSearchButStays) {
    std::string in = std::string("<r>") + '\0' + "<?xml encoding='iso-8859-1'?>\xe9";
    EXPECT_EQ(convert(in), in);
}

TEST(DecodeFile, Utf16WithMarkAndDeclarationReportsUtf8) {
    for (const char* name : {"utf16le_bom_decl.xml", "utf16be_bom_decl.xml"}) {
        SCOPED_TRACE(name);
        RecordingLog log;
        TreeNode* root = nullptr;
        ASSERT_TRUE(TreeNode::customParseFile((kDir + name).c_str(), &log, nullptr, &root, true));
        ASSERT_NE(root, nullptr);
        EXPECT_STREQ(root->getContent(), kBodyUtf8);
        EXPECT_EQ(attrValue(root, "a"), kAttrUtf8);
        EXPECT_EQ(encodingOf(root), "utf-8");
        EXPECT_TRUE(log.lines.empty());
        root->deleteTree();
    }
}

TEST(DecodeFile, Utf16WithoutDeclaration) {
    for (const char* name : {"utf16le_bom.xml", "utf16be_bom.xml"}) {
        SCOPED_TRACE(name);
        TreeNode* root = nullptr;
        ASSERT_TRUE(
            TreeNode::customParseFile((kDir + name).c_str(), nullptr, nullptr, &root, true));
        ASSERT_NE(root, nullptr);
        EXPECT_STREQ(root->getContent(), kBodyUtf8);
        EXPECT_EQ(encodingOf(root), "<none>");
        root->deleteTree();
    }
}

TEST(DecodeFile, Ucs2DeclarationIsCorrectedToo) {
    TreeNode* root = nullptr;
    ASSERT_TRUE(TreeNode::customParseFile((kDir + "utf16be_bom_ucs2.xml").c_str(), nullptr, nullptr,
                                          &root, true));
    EXPECT_EQ(encodingOf(root), "utf-8");
    root->deleteTree();
}

TEST(DecodeFile, ByteBufferKeepsTheDeclaredEncoding) {
    DataBuffer data;
    RecordingLog log;
    ASSERT_TRUE(data.loadFileUtf8((kDir + "utf16le_bom_decl.xml").c_str(), &log));
    TreeNode* root = nullptr;
    ASSERT_TRUE(TreeNode::customParseData2(data, nullptr, log, &root, true));
    ASSERT_NE(root, nullptr);
    EXPECT_STREQ(root->getContent(), kBodyUtf8);
    EXPECT_EQ(encodingOf(root), "UTF-16");
    // The caller's buffer now holds the UTF-8 text.
    EXPECT_NE(str(data).find("<r a=\"\xc3\xa9t"), std::string::npos);
    root->deleteTree();
}

TEST(DecodeFile, SingleByteCharsetsAreConvertedAndKeepTheirName) {
    TreeNode* root = nullptr;
    ASSERT_TRUE(TreeNode::customParseFile((kDir + "iso-8859-1.xml").c_str(), nullptr, nullptr,
                                          &root, true));
    EXPECT_STREQ(root->getContent(), "caf\xc3\xa9 \xc2\xa9 \xc3\xa5");
    EXPECT_EQ(attrValue(root, "a"), "\xc3\xa9");
    EXPECT_EQ(encodingOf(root), "iso-8859-1");
    root->deleteTree();

    ASSERT_TRUE(TreeNode::customParseFile((kDir + "windows-1252.xml").c_str(), nullptr, nullptr,
                                          &root, true));
    EXPECT_STREQ(root->getContent(), "\xe2\x82\xac \xe2\x80\x9cq\xe2\x80\x9d \xe2\x84\xa2");
    EXPECT_EQ(encodingOf(root), "Windows-1252");
    root->deleteTree();
}

TEST(DecodeFile, Utf8MarkBeatsTheDeclaration) {
    TreeNode* root = nullptr;
    ASSERT_TRUE(TreeNode::customParseFile((kDir + "utf8_bom_decl_latin1.xml").c_str(), nullptr,
                                          nullptr, &root, true));
    EXPECT_STREQ(root->getContent(), "caf\xc3\xa9");
    EXPECT_EQ(encodingOf(root), "iso-8859-1");
    root->deleteTree();
}

TEST(DecodeFile, MissingFileFailsWithoutTouchingOutRoot) {
    RecordingLog log;
    TreeNode* sentinel = reinterpret_cast<TreeNode*>(&log);
    TreeNode* root = sentinel;
    EXPECT_FALSE(
        TreeNode::customParseFile((kDir + "absent.xml").c_str(), &log, nullptr, &root, true));
    EXPECT_EQ(root, sentinel);
    DataBuffer data;
    EXPECT_FALSE(TreeNode::loadToUtf8((kDir + "absent.xml").c_str(), data, log));
}

}  // namespace
