// libFuzzer target: the input is a program of edits on the foundation
// containers (see containers_program.h); any disagreement with the models
// aborts.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/containers_program.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string error = containersfuzz::check(data, size);
    if (!error.empty()) {
        std::fprintf(stderr, "containers: %s\n", error.c_str());
        std::abort();
    }
    return 0;
}
