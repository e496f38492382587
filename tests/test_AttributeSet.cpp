// Edits are checked against a vector of pairs by the containers program
// (fuzz/containers_program.h, replayed in test_FuzzReplay.cpp);
// here, nulls, matching and the XML text.

#include <random>

#include "foundation/AttributeSet.h"
#include "foundation/StringBuffer.h"
#include "tests/TestSupport.h"

namespace {

TEST(AttributeSet, NullsAndIndexesOutOfRange) {
    AttributeSet a;
    EXPECT_FALSE(a.addAttribute(nullptr, "v"));
    EXPECT_TRUE(a.addAttribute("empty", nullptr));
    EXPECT_STREQ(a.valueAt(0), "");
    EXPECT_TRUE(a.hasAttrWithValue("empty", nullptr));
    StringBuffer n, v;
    EXPECT_FALSE(a.getAttribute(1, n, v));  // one past the end is out too
    EXPECT_TRUE(a.getAttributeName(0, n) && !a.getAttributeName(1, n));
    EXPECT_STREQ(n.getString(), "empty");
    EXPECT_TRUE(!a.nameAt(1) && !a.valueAt(1) && !a.valueAt(-1));
    EXPECT_EQ(a.indexOf(nullptr), -1);
}

TEST(AttributeSet, MatchingAndXml) {
    AttributeSet a;
    a.addAttribute("href", "http://x/a.xsl");
    a.addAttribute("q", "a&b<c>\"d'");
    a.addAttribute("e", "");
    EXPECT_TRUE(a.hasMatchingAttribute("href", "*.xsl"));
    EXPECT_FALSE(a.hasMatchingAttribute("href", "*.XSL"));
    EXPECT_FALSE(a.hasMatchingAttribute("href", nullptr));
    EXPECT_FALSE(a.hasMatchingAttribute("src", "*"));
    StringBuffer out("<n");
    a.appendXml(out);
    EXPECT_STREQ(out.getString(),
                 "<n href=\"http://x/a.xsl\" q=\"a&amp;b&lt;c&gt;&quot;d'\" e=\"\"");
}

TEST(AttributeSet, XmlOfLongAndDenselyEscapedValues) {
    // Every byte an entity: the output outgrows the room sized for the value.
    std::string dense(3000, '"');
    std::string expected;
    for (size_t i = 0; i < dense.size(); ++i)
        expected += "&quot;";
    // Escapes at both ends of a long run, and a NUL stored inside a value.
    std::string edges = "&" + std::string(5000, 'x') + "<";
    const char withNul[] = {'a', '\0', '>', 'b'};
    AttributeSet a;
    a.addAttribute("d", dense.c_str());
    a.addAttribute("e", edges.c_str());
    a.addAttributeN("n", 1, withNul, 4);
    StringBuffer out;
    a.appendXml(out);
    const std::string want = " d=\"" + expected + "\" e=\"&amp;" + std::string(5000, 'x') +
                             "&lt;\" n=\"a" + std::string(1, '\0') + "&gt;b\"";
    EXPECT_EQ(std::string(out.getString(), out.getSize()), want);
}

}  // namespace
