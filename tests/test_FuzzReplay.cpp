// Replays the fuzzers' seed corpora and saved regression inputs, and long
// programs of random bytes, through the same checks the fuzzers run.

#include <cstdint>
#include <functional>
#include <random>

#include "fuzz/containers_program.h"
#include "fuzz/decode_check.h"
#include "fuzz/notes_check.h"
#include "fuzz/ops_program.h"
#include "fuzz/roundtrip_check.h"
#include "tests/TestSupport.h"

namespace {

const std::string kFuzzDir = std::string(XMLTREE_TEST_DATA_DIR) + "/../../fuzz/";

// A check gives "" for an input that passes, else what went wrong.
using Check = std::function<std::string(const uint8_t*, size_t)>;

std::string opsCheck(const uint8_t* data, size_t size) {
    opsfuzz::throwOnFailure() = true;
    std::string problem;
    try {
        opsfuzz::runProgram(data, size);
    } catch (const opsfuzz::CheckFailure& e) {
        problem = e.what();
    }
    opsfuzz::throwOnFailure() = false;
    return problem;
}

std::string parseCheck(const uint8_t* data, size_t size) {
    const char* text = reinterpret_cast<const char*>(data);
    return roundtrip::check(text, size) + notescheck::check(text, size);
}

// Every seed (at least five) and every saved regression input.
void replay(const char* fuzzer, const char* regressions, const Check& check) {
    const std::string seeds = kFuzzDir + "corpus/" + fuzzer + "/";
    EXPECT_GE(filesIn(seeds).size(), 5u) << seeds;
    for (const std::string& dir : {seeds, kFuzzDir + "regressions/" + regressions}) {
        for (const std::string& path : filesIn(dir)) {
            const std::string bytes = readFile(path);
            EXPECT_EQ(check(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), "")
                << path;
        }
    }
}

void randomPrograms(unsigned seed, int runs, const Check& check) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> program(20000);
    for (int run = 0; run < runs; ++run) {
        for (uint8_t& b : program)
            b = static_cast<uint8_t>(rng());
        EXPECT_EQ(check(program.data(), program.size()), "") << "run " << run;
    }
}

TEST(FuzzReplay, SeedsAndSavedInputs) {
    replay("parse", "", parseCheck);
    replay("ops", "ops/", opsCheck);
    replay("decode", "decode/", decodefuzz::check);
    replay("containers", "containers/", containersfuzz::check);
}

// Programs of random bytes grow deeper and wider trees than the seeds (one
// of which runs each opcode in turn with varied operands).
TEST(FuzzReplay, RandomOperationPrograms) {
    randomPrograms(8, 100, opsCheck);
}

// Edits of every kind on texts, attribute sets, pointer arrays and the
// queue, checked against std::string, a vector of pairs, std::vector and
// std::deque.
TEST(FuzzReplay, LongRandomContainerPrograms) {
    randomPrograms(5, 40, containersfuzz::check);
}

}  // namespace
