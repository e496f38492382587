// Replays every saved fuzz input, and the seed corpus, through the
// parse-write-parse check of the fuzzer.

#include <dirent.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz/roundtrip_check.h"

namespace {

const std::string kFuzzDir = std::string(XMLTREE_TEST_DATA_DIR) + "/../../fuzz/";

std::vector<std::string> filesIn(const std::string& dir) {
    std::vector<std::string> out;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d)) {
            std::string name = e->d_name;
            if (name[0] == '.' || name == "README.md") continue;
            out.push_back(dir + name);
        }
        closedir(d);
    }
    std::sort(out.begin(), out.end());
    return out;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void replay(const std::string& dir) {
    for (const std::string& path : filesIn(dir)) {
        std::string bytes = readFile(path);
        EXPECT_EQ(roundtrip::check(bytes.data(), bytes.size()), "") << path;
    }
}

TEST(FuzzRegressions, SavedInputsRoundTrip) {
    replay(kFuzzDir + "regressions/");
}

TEST(FuzzRegressions, SeedCorpusRoundTrips) {
    ASSERT_FALSE(filesIn(kFuzzDir + "corpus/parse/").empty());
    replay(kFuzzDir + "corpus/parse/");
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
