// Parse fuzzer: every byte sequence must parse without crash, hang, bad read
// or leak, and writing the tree and parsing the result again must give the
// same tree (see roundtrip_check.h for what "the same" allows). A parse that
// takes notes must agree with one that does not (notes_check.h).

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/notes_check.h"
#include "fuzz/roundtrip_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string diff = roundtrip::check(reinterpret_cast<const char*>(data), size);
    if (!diff.empty()) {
        std::fprintf(stderr, "round trip differs: %s\n", diff.c_str());
        std::abort();
    }
    diff = notescheck::check(reinterpret_cast<const char*>(data), size);
    if (!diff.empty()) {
        std::fprintf(stderr, "notes: %s\n", diff.c_str());
        std::abort();
    }
    return 0;
}
