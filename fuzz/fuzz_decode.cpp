// libFuzzer target: arbitrary bytes through the decoding parse entry point,
// then written and parsed back (see decode_check.h).

#include <cstddef>
#include <cstdint>

#include "fuzz/decode_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    decodefuzz::checkBytes(data, size);
    return 0;
}
