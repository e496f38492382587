// Replays every saved fuzz input, and the seed corpus, through the
// parse-write-parse check and the parse-notes check of the fuzzer.

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

}  // namespace
