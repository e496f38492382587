// Input decoding and the file and byte-buffer entry points that depend on it.

#include "tests/TestSupport.h"

namespace {

const std::string kDir = std::string(XMLTREE_TEST_DATA_DIR) + "/encodings/";

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

    const struct {
        std::string in, out;  // out empty: the bytes stay as they were
    } cases[] = {
        {"<r>caf\xe9</r>", ""},
        {"\xff", ""},  // too short for a mark
        // A UTF-8 mark is removed and the declaration ignored.
        {"\xef\xbb\xbf<?xml encoding='iso-8859-1'?><r>\xc3\xa9</r>",
         "<?xml encoding='iso-8859-1'?><r>\xc3\xa9</r>"},
        {"<?XML Version='1.0' ENCODING=\"UTF-8\"?><r>\xe9</r>", ""},
        // Blanks around '=' are passed over, tabs are not.
        {"<?xml encoding = 'iso-8859-1'?><r>\xe9</r>",
         "<?xml encoding = 'iso-8859-1'?><r>\xc3\xa9</r>"},
        {"<?xml encoding\t='iso-8859-1'?><r>\xe9</r>", ""},
        {"<?xml ENCODING=\"ISO-8859-1\"?>\xe9", "<?xml ENCODING=\"ISO-8859-1\"?>\xc3\xa9"},
        {"<?xml encoding='no-such-charset'?><r>\xe9</r>", ""},
        // A name opened with a single quote runs on to a later double quote.
        {"<?xml encoding='iso-8859-1' v=\"1\"?><r>\xe9</r>", ""},
        {"<?xml encoding=''?>\xe9", ""},
        {"<?xml encoding=\"iso-8859-1\xe9", ""},  // no '>' at all
        {std::string("\xff\xfe<\0r\0/\0>\0", 10), "<r/>"},
        {std::string("\xfe\xff\0<\0r\0/\0>", 10), "<r/>"},
        // A zero byte ends the search for the declaration but stays.
        {std::string("<r>\0<?xml encoding='iso-8859-1'?>\xe9", 34), ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.in);
        DataBuffer data;
        data.append(c.in.data(), static_cast<unsigned int>(c.in.size()));
        EXPECT_TRUE(TreeNode::convertXmlToUtf8(data, log));
        EXPECT_EQ(bytesOf(data), c.out.empty() ? c.in : c.out);
    }
}

TEST(DecodeFile, EachEncodingFormReadsTheSameText) {
    const struct {
        const char *file, *content, *attr, *encoding;
    } cases[] = {
        // A declaration in a UTF-16 document is corrected to the text's new form.
        {"utf16le_bom_decl.xml", kBodyUtf8, kAttrUtf8, "utf-8"},
        {"utf16be_bom_decl.xml", kBodyUtf8, kAttrUtf8, "utf-8"},
        {"utf16be_bom_ucs2.xml", kBodyUtf8, kAttrUtf8, "utf-8"},
        {"utf16le_bom.xml", kBodyUtf8, kAttrUtf8, "<none>"},
        {"utf16be_bom.xml", kBodyUtf8, kAttrUtf8, "<none>"},
        // Single-byte charsets are converted and keep their name.
        {"iso-8859-1.xml", "caf\xc3\xa9 \xc2\xa9 \xc3\xa5", "\xc3\xa9", "iso-8859-1"},
        {"windows-1252.xml", "\xe2\x82\xac \xe2\x80\x9cq\xe2\x80\x9d \xe2\x84\xa2", "",
         "Windows-1252"},
        {"utf8_bom_decl_latin1.xml", "caf\xc3\xa9", "", "iso-8859-1"},  // the mark wins
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        RecordingLog log;
        TreeNode* root = nullptr;
        ASSERT_TRUE(TreeNode::customParseFile((kDir + c.file).c_str(), &log, nullptr, &root, true));
        ASSERT_NE(root, nullptr);
        EXPECT_STREQ(root->getContent(), c.content);
        EXPECT_EQ(attrValue(root, "a"), c.attr);
        EXPECT_EQ(encodingOf(root), c.encoding);
        EXPECT_TRUE(log.lines.empty());
        root->deleteTree();
    }
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
    EXPECT_NE(bytesOf(data).find("<r a=\"\xc3\xa9t"), std::string::npos);
    root->deleteTree();
}

}  // namespace
