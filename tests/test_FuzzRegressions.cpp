// Replays every saved fuzz input, and the seed corpus, through the
// parse-write-parse check and the parse-notes check of the fuzzer.

#include <gtest/gtest.h>

#include <string>

#include "fuzz/notes_check.h"
#include "fuzz/roundtrip_check.h"
#include "tests/TestSupport.h"

namespace {

const std::string kFuzzDir = std::string(XMLTREE_TEST_DATA_DIR) + "/../../fuzz/";

void replay(const std::string& dir) {
    for (const std::string& path : filesIn(dir)) {
        std::string bytes = readFile(path);
        EXPECT_EQ(roundtrip::check(bytes.data(), bytes.size()), "") << path;
        EXPECT_EQ(notescheck::check(bytes.data(), bytes.size()), "") << path;
    }
}

TEST(FuzzRegressions, SeedCorpusAndSavedInputsRoundTrip) {
    ASSERT_FALSE(filesIn(kFuzzDir + "corpus/parse/").empty());
    replay(kFuzzDir + "corpus/parse/");
    replay(kFuzzDir + "regressions/");
}

TEST(FuzzRegressions, CheckSeesADifference) {
    // The comparison itself must catch a change: two different trees differ.
    TreeNode* a = nullptr;
    TreeNode* b = nullptr;
    ASSERT_TRUE(TreeNode::customParseStringN("<a x='1'>t</a>", 14, nullptr, &a, true));
    ASSERT_TRUE(TreeNode::customParseStringN("<a x='2'>t</a>", 14, nullptr, &b, true));
    EXPECT_NE(roundtrip::compareElements(a, b, true), "");
    a->deleteTree();
    b->deleteTree();
}

}  // namespace
