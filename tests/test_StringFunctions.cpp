#include <random>

#include "foundation/StringFunctions.h"
#include "tests/TestSupport.h"

namespace {

TEST(StringFunctions, CaseInsensitiveCompareAndSearch) {
    EXPECT_EQ(mxStrICmp("Alpha", "aLPHA"), 0);
    EXPECT_LT(mxStrICmp("alpha", "Beta"), 0);
    EXPECT_GT(mxStrICmp("b", "A"), 0);
    EXPECT_LT(mxStrICmp("ab", "abc"), 0);
    EXPECT_GT(mxStrICmp("\xC3\xA9", "z"), 0);  // unsigned bytes, no folding beyond ASCII

    const char* raw = "\xEF\xBB\xBF  <?XmL version='1.0'?>";
    EXPECT_EQ(stristr(raw, "<?xml"), raw + 5);
    EXPECT_EQ(stristr(raw, ""), raw);
    EXPECT_EQ(stristr("<?xm", "<?xml"), nullptr);
    const char* h = "aaab";
    EXPECT_EQ(stristr(h, "AAB"), h + 1);
    EXPECT_EQ(stristr(nullptr, "x"), nullptr);
}

// Patterns over lower-case letters, case-sensitive, are checked against the
// reference below; these are the rest.
TEST(StringFunctions, WildcardCaseAndNulls) {
    EXPECT_FALSE(wildcardMatch("ABC", "abc", true));
    EXPECT_TRUE(wildcardMatch("ABC", "a?c", false));
    EXPECT_TRUE(wildcardMatch("mIsSiSsIpPi", "M*ISS*PI", false));
    EXPECT_FALSE(wildcardMatch("abc", nullptr, true));
    EXPECT_TRUE(wildcardMatch(nullptr, "*", true));
}

// A pattern that never matches a long text: with backtracking per star this
// would not finish (the test's timeout catches it).
TEST(StringFunctions, WildcardHasNoExponentialBacktracking) {
    const std::string text(10000, 'a');
    std::string pattern;
    for (int i = 0; i < 30; ++i)
        pattern += "*a";
    EXPECT_FALSE(wildcardMatch(text.c_str(), (pattern + "b").c_str(), true));
    EXPECT_TRUE(wildcardMatch(text.c_str(), (pattern + "*").c_str(), true));
}

// Plain dynamic-programming matcher, the reference for the greedy one.
bool referenceMatch(const std::string& t, const std::string& p) {
    std::vector<std::vector<char>> m(t.size() + 1, std::vector<char>(p.size() + 1, 0));
    m[0][0] = 1;
    for (size_t j = 1; j <= p.size(); ++j)
        m[0][j] = p[j - 1] == '*' && m[0][j - 1];
    for (size_t i = 1; i <= t.size(); ++i) {
        for (size_t j = 1; j <= p.size(); ++j) {
            const char pc = p[j - 1];
            if (pc == '*')
                m[i][j] = m[i - 1][j] || m[i][j - 1];
            else
                m[i][j] = (pc == '?' || pc == t[i - 1]) && m[i - 1][j - 1];
        }
    }
    return m[t.size()][p.size()];
}

TEST(StringFunctions, WildcardAgreesWithReference) {
    std::mt19937 rng(7);
    auto randomText = [&](const char* alphabet, int maxLen) {
        std::string s(rng() % (maxLen + 1), ' ');
        for (char& c : s)
            c = alphabet[rng() % std::char_traits<char>::length(alphabet)];
        return s;
    };
    for (int i = 0; i < 20000; ++i) {
        const std::string t = randomText("ab", 8);
        const std::string p = randomText("ab*?", 6);
        ASSERT_EQ(wildcardMatch(t.c_str(), p.c_str(), true), referenceMatch(t, p))
            << '"' << t << "\" against \"" << p << '"';
    }
}

}  // namespace
