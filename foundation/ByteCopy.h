#ifndef XMLTREE_FOUNDATION_BYTECOPY_H
#define XMLTREE_FOUNDATION_BYTECOPY_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace bytecopy {

// Copies n bytes from src to dst, n at most 32 (the areas must not overlap).
// Names and most runs are short, and a call into the C library's memcpy
// costs more than the copy itself: the bytes go as two overlapping
// fixed-size moves, which read and write exactly [src, src + n) and
// [dst, dst + n).
inline void copyShort(char* dst, const char* src, size_t n) {
    if (n <= 16) {
        if (n >= 8) {
            uint64_t head, tail;
            std::memcpy(&head, src, 8);
            std::memcpy(&tail, src + n - 8, 8);
            std::memcpy(dst, &head, 8);
            std::memcpy(dst + n - 8, &tail, 8);
        } else if (n >= 4) {
            uint32_t head, tail;
            std::memcpy(&head, src, 4);
            std::memcpy(&tail, src + n - 4, 4);
            std::memcpy(dst, &head, 4);
            std::memcpy(dst + n - 4, &tail, 4);
        } else if (n > 0) {
            dst[0] = src[0];
            dst[n / 2] = src[n / 2];
            dst[n - 1] = src[n - 1];
        }
    } else {
        char head[16], tail[16];
        std::memcpy(head, src, 16);
        std::memcpy(tail, src + n - 16, 16);
        std::memcpy(dst, head, 16);
        std::memcpy(dst + n - 16, tail, 16);
    }
}

// Copies n bytes from src to dst (no overlap), short runs without a call.
inline void copyRun(char* dst, const char* src, size_t n) {
    if (n <= 32) {
        copyShort(dst, src, n);
    } else {
        std::memcpy(dst, src, n);
    }
}

}  // namespace bytecopy

#endif
