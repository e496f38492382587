// libFuzzer target: arbitrary bytes through the decoding parse entry point,
// then written and parsed back (see decode_check.h).

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz/decode_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string failure = decodefuzz::check(data, size);
    if (!failure.empty()) {
        std::fprintf(stderr, "decode check failed: %s\n", failure.c_str());
        std::abort();
    }
    return 0;
}
