#include <gtest/gtest.h>

#include <string>

#include "foundation/AttributeSet.h"
#include "foundation/StringBuffer.h"

namespace {

TEST(AttributeSet, OrderLookupAndRemoval) {
    AttributeSet a;
    EXPECT_TRUE(a.addAttribute("x", "1"));
    EXPECT_TRUE(a.addAttribute("y", "2"));
    EXPECT_TRUE(a.addAttribute("x", "dup"));
    EXPECT_TRUE(a.addAttribute("empty", nullptr));
    EXPECT_FALSE(a.addAttribute(nullptr, "v"));
    ASSERT_EQ(a.getSize(), 4);
    EXPECT_STREQ(a.nameAt(0), "x");
    EXPECT_STREQ(a.nameAt(1), "y");
    EXPECT_STREQ(a.valueAt(3), "");
    StringBuffer n, v;
    EXPECT_TRUE(a.getAttribute(3, n, v));
    EXPECT_FALSE(a.getAttribute(4, n, v));  // one past the end is out too
    EXPECT_EQ(a.nameAt(4), nullptr);
    EXPECT_EQ(a.valueAt(4), nullptr);
    EXPECT_EQ(a.valueAt(-1), nullptr);
    EXPECT_STREQ(a.findValue("x"), "1");  // first of a duplicate name
    EXPECT_FALSE(a.hasAttribute("X"));    // names are case-sensitive
    EXPECT_TRUE(a.hasAttrWithValue("empty", nullptr));
    EXPECT_FALSE(a.hasAttrWithValue("y", "22"));

    EXPECT_TRUE(a.removeAttribute("x"));  // removes the first only
    EXPECT_FALSE(a.removeAttribute("nope"));
    ASSERT_EQ(a.numAttributes(), 3);
    EXPECT_STREQ(a.nameAt(0), "y");
    EXPECT_STREQ(a.findValue("x"), "dup");
    EXPECT_TRUE(a.addAttribute("z", "3"));  // later pairs still intact after the shift
    EXPECT_STREQ(a.valueAt(1), "dup");
    EXPECT_STREQ(a.valueAt(3), "3");

    AttributeSet copy(a);
    a.clear();
    EXPECT_EQ(a.getSize(), 0);
    EXPECT_FALSE(a.hasAttribute("y"));
    EXPECT_EQ(copy.getSize(), 4);
    EXPECT_STREQ(copy.valueAt(3), "3");
}

TEST(AttributeSet, ManyPairsSurviveGrowthRemovalAndCopy) {
    AttributeSet a;
    for (int i = 0; i < 300; ++i) {
        const std::string n = "attr" + std::to_string(i);
        ASSERT_TRUE(
            a.addAttribute(n.c_str(), std::string(static_cast<size_t>(i % 7), 'v').c_str()));
    }
    for (int i = 0; i < 300; i += 3)
        EXPECT_TRUE(a.removeAttribute(("attr" + std::to_string(i)).c_str()));
    a.addAttribute("last", "x");
    AttributeSet copy;
    copy.addAttribute("replaced", "y");
    copy = a;
    for (const AttributeSet* s : {&a, &copy}) {
        ASSERT_EQ(s->getSize(), 201);
        int k = 0;
        for (int i = 0; i < 300; ++i) {
            if (i % 3 == 0) continue;
            ASSERT_EQ(std::string(s->nameAt(k)), "attr" + std::to_string(i));
            ASSERT_EQ(std::string(s->valueAt(k)), std::string(static_cast<size_t>(i % 7), 'v'));
            ++k;
        }
        EXPECT_STREQ(s->findValue("last"), "x");
    }
    a.clear();
    a.addAttribute("again", "z");  // storage reused after clear
    EXPECT_STREQ(a.valueAt(0), "z");
    copy = a;
    EXPECT_EQ(copy.getSize(), 1);
    EXPECT_STREQ(copy.nameAt(0), "again");
}

// Found: the output is replaced; not found: left as it was.
TEST(AttributeSet, OutputBuffersAreReplacedOnlyWhenFound) {
    AttributeSet a;
    a.addAttribute("id", "7");
    a.addAttribute("lang", "en-GB");
    StringBuffer name("previous text"), value("previous");
    EXPECT_TRUE(a.getAttribute(1, name, value));
    EXPECT_FALSE(a.getAttribute(2, name, value));
    EXPECT_FALSE(a.getAttributeValue("ID", value));
    EXPECT_FALSE(a.getAttributeValue(-1, value));
    EXPECT_EQ(std::string(name.getString()) + "=" + value.getString(), "lang=en-GB");
    EXPECT_TRUE(a.getAttributeValue("id", value));
    EXPECT_TRUE(a.getAttributeName(0, name));
    EXPECT_EQ(std::string(name.getString()) + "=" + value.getString(), "id=7");
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
