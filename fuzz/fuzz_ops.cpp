// libFuzzer target: the input is a program of tree operations (see
// ops_program.h); any broken invariant aborts.

#include <cstddef>
#include <cstdint>

#include "fuzz/ops_program.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    opsfuzz::runProgram(data, size);
    return 0;
}
