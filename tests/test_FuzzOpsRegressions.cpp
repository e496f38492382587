// Replays the operations, decoding and containers fuzzers' seed corpora and
// saved regression inputs through the same checks the fuzzers run.

#include <cstdint>
#include <random>

#include "fuzz/containers_program.h"
#include "fuzz/decode_check.h"
#include "fuzz/ops_program.h"
#include "tests/TestSupport.h"

namespace {

const std::string kFuzzDir = std::string(XMLTREE_TEST_DATA_DIR) + "/../../fuzz/";

const uint8_t* dataOf(const std::string& s) {
    return reinterpret_cast<const uint8_t*>(s.data());
}

class OpsReplay : public ::testing::Test {
  protected:
    void SetUp() override { opsfuzz::throwOnFailure() = true; }
    void TearDown() override { opsfuzz::throwOnFailure() = false; }

    static void replay(const std::string& dir) {
        for (const std::string& path : filesIn(dir)) {
            std::string program = readFile(path);
            try {
                opsfuzz::runProgram(dataOf(program), program.size());
            } catch (const opsfuzz::CheckFailure& e) {
                ADD_FAILURE() << path << ": " << e.what();
            }
        }
    }
};

TEST_F(OpsReplay, SeedCorpusAndSavedRegressions) {
    ASSERT_GE(filesIn(kFuzzDir + "corpus/ops/").size(), 5u);
    replay(kFuzzDir + "corpus/ops/");
    replay(kFuzzDir + "regressions/ops/");
}

// Each opcode in turn, repeated with varied operands, over a pool that the
// first bytes fill; then programs of random bytes, which grow deeper and
// wider trees than the seeds.
TEST_F(OpsReplay, EveryOpcodeAndRandomPrograms) {
    std::vector<uint8_t> program{0, 0, 0, 0};
    for (int i = 0; i < 40; ++i)
        program.insert(program.end(), {1, 1, 0, 0, 0, 0, 0, 0});
    for (int round = 0; round < 4; ++round) {
        for (uint8_t op = 0; op < 27; ++op) {
            program.push_back(op);
            for (int k = 0; k < 8; ++k)
                program.push_back(static_cast<uint8_t>(round * 37 + k * 11));
        }
    }
    std::mt19937 rng(8);
    for (int run = 0; run < 100; ++run) {
        try {
            opsfuzz::runProgram(program.data(), program.size());
        } catch (const opsfuzz::CheckFailure& e) {
            ADD_FAILURE() << "run " << run << ": " << e.what();
        }
        program.assign(20000, 0);
        for (uint8_t& b : program)
            b = static_cast<uint8_t>(rng());
    }
}

// The checker itself must see bookkeeping that went wrong behind its back.
TEST_F(OpsReplay, CheckerSeesForeignReferencesAndBrokenLinks) {
    opsfuzz::OpsProgram program;
    TreeNode* root = TreeNode::createRoot("r");
    TreeNode* child = TreeNode::createNode(root, "a");
    TreeNode::createNode(root, "b");
    program.adoptTree(root);
    EXPECT_NO_THROW(program.checkNow());
    ASSERT_TRUE(child->incTreeRefCount());
    EXPECT_THROW(program.checkNow(), opsfuzz::CheckFailure);
    ASSERT_TRUE(child->decTreeRefCount());
    ExtPtrArray* kids = root->getChildrenArray();  // the array reordered alone
    kids->append(kids->removeAt(0));
    EXPECT_THROW(program.checkNow(), opsfuzz::CheckFailure);
    root->rebuildChildrenSiblingList();
    EXPECT_NO_THROW(program.checkNow());
}

void replayDecode(const std::string& dir) {
    for (const std::string& path : filesIn(dir)) {
        std::string bytes = readFile(path);
        EXPECT_EQ(decodefuzz::check(dataOf(bytes), bytes.size()), "") << path;
    }
}

TEST(DecodeReplay, SeedCorpusAndSavedRegressions) {
    ASSERT_GE(filesIn(kFuzzDir + "corpus/decode/").size(), 5u);
    replayDecode(kFuzzDir + "corpus/decode/");
    replayDecode(kFuzzDir + "regressions/decode/");
}

// The seeds, and long programs of random bytes: edits of every kind on
// texts, attribute sets, pointer arrays and the queue, checked against
// std::string, a vector of pairs, std::vector and std::deque.
TEST(ContainersReplay, SeedCorpusAndLongRandomPrograms) {
    ASSERT_GE(filesIn(kFuzzDir + "corpus/containers/").size(), 5u);
    for (const std::string& path : filesIn(kFuzzDir + "corpus/containers/")) {
        const std::string bytes = readFile(path);
        EXPECT_EQ(containersfuzz::check(dataOf(bytes), bytes.size()), "") << path;
    }
    std::mt19937 rng(5);
    for (int run = 0; run < 40; ++run) {
        std::string bytes(20000, '\0');
        for (char& c : bytes)
            c = static_cast<char>(rng());
        EXPECT_EQ(containersfuzz::check(dataOf(bytes), bytes.size()), "") << "run " << run;
    }
}

}  // namespace
