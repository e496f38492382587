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
    EXPECT_TRUE(!a.nameAt(1) && !a.valueAt(1) && !a.valueAt(-1));
    EXPECT_EQ(a.indexOf(nullptr), -1);
}

// Every edit against a vector of pairs: duplicate names (lookups find the
// first, removal takes the first), values around the inline room and past
// the pool's blocks, copies and assignments, reserving and shrinking.
TEST(AttributeSet, AgreesWithAVectorOfPairsUnderRandomEdits) {
    std::mt19937 rng(9);
    using Pairs = std::vector<std::pair<std::string, std::string>>;
    auto find = [](const Pairs& m, const std::string& name) {
        return std::find_if(m.begin(), m.end(), [&](const auto& p) { return p.first == name; });
    };
    for (int run = 0; run < 40; ++run) {
        AttributeSet a;
        Pairs model;
        for (int step = 0; step < 200; ++step) {
            const std::string name = "n" + std::to_string(rng() % 12);
            const std::string value(rng() % 4 ? rng() % 12 : rng() % 600, 'a' + rng() % 26);
            switch (rng() % 8) {
                case 0:
                case 1:
                case 2:
                    ASSERT_TRUE(a.addAttribute(name.c_str(), value.c_str()));
                    model.emplace_back(name, value);
                    break;
                case 3:
                    ASSERT_EQ(a.removeAttribute(name.c_str()), find(model, name) != model.end());
                    if (find(model, name) != model.end()) model.erase(find(model, name));
                    break;
                case 4: {
                    AttributeSet copy(a);
                    a.clear();
                    a = copy;
                    break;
                }
                case 5:
                    a.shrinkToFit();
                    break;
                case 6:
                    ASSERT_TRUE(a.reserve(a.getSize() + 3, 100));
                    break;
                default:
                    if (rng() % 8 == 0) {
                        a.clear();
                        model.clear();
                    }
            }
            ASSERT_EQ(a.getSize(), static_cast<int>(model.size()));
            for (size_t i = 0; i < model.size(); ++i) {
                ASSERT_EQ(model[i].first, a.nameAt(static_cast<int>(i))) << step;
                ASSERT_EQ(model[i].second, a.valueAt(static_cast<int>(i))) << step;
            }
            const auto hit = find(model, name);
            ASSERT_EQ(a.indexOf(name.c_str()), hit == model.end() ? -1 : hit - model.begin());
            ASSERT_EQ(a.hasAttrWithValue(name.c_str(), value.c_str()),
                      hit != model.end() && hit->second == value);
        }
    }
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
