#ifndef XMLTREE_FOUNDATION_ESCAPESCAN_H
#define XMLTREE_FOUNDATION_ESCAPESCAN_H

// Scans for the bytes the writer has to replace by entities, so that the runs
// between them can be copied whole. Content stops at < > " ' & and NUL (the
// text is read as a C string); attribute values at < > " & only, since their
// length is known and a NUL inside one is copied like any other byte.
//
// On x86-64 the scan tests 16 bytes a step with SSE2, which every such CPU
// has; elsewhere, and for the last bytes of a short text, it looks each byte
// up in a table. Both read only the bytes of [p, end).

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "foundation/ByteCopy.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace escapescan {

struct StopTable {
    bool stop[256];
    constexpr explicit StopTable(bool content) : stop() {
        stop[static_cast<unsigned char>('<')] = true;
        stop[static_cast<unsigned char>('>')] = true;
        stop[static_cast<unsigned char>('"')] = true;
        stop[static_cast<unsigned char>('&')] = true;
        stop[static_cast<unsigned char>('\'')] = content;
        stop[0] = content;
    }
};
constexpr StopTable kContentStops(true);
constexpr StopTable kValueStops(false);

#if defined(__SSE2__)
// One bit per byte of v that stops the run. '"' (0x22) and '&' (0x26) differ
// only in bit 2, '<' (0x3C) and '>' (0x3E) only in bit 1, so two compares
// find those four.
template <bool kContent>
inline unsigned stopBits(__m128i v) {
    __m128i hit =
        _mm_or_si128(_mm_cmpeq_epi8(_mm_or_si128(v, _mm_set1_epi8(0x04)), _mm_set1_epi8(0x26)),
                     _mm_cmpeq_epi8(_mm_or_si128(v, _mm_set1_epi8(0x02)), _mm_set1_epi8(0x3E)));
    if (kContent) {
        hit = _mm_or_si128(hit, _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('\'')),
                                             _mm_cmpeq_epi8(v, _mm_setzero_si128())));
    }
    return static_cast<unsigned>(_mm_movemask_epi8(hit));
}

template <bool kContent>
inline unsigned stopBitsAt(const char* p) {
    return stopBits<kContent>(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

// Texts of 4 to 15 bytes: the first and the last `half` bytes (8 or 4, they
// may overlap) side by side in one register. A stop among the first half is
// the earliest; otherwise one in the last half lies past the first.
template <bool kContent, int kHalf>
inline const char* findStopShort(const char* p, const char* end) {
    __m128i v;
    if (kHalf == 8) {
        uint64_t head, tail;
        std::memcpy(&head, p, 8);
        std::memcpy(&tail, end - 8, 8);
        v = _mm_set_epi64x(static_cast<long long>(tail), static_cast<long long>(head));
    } else {
        uint32_t head, tail;
        std::memcpy(&head, p, 4);
        std::memcpy(&tail, end - 4, 4);
        v = _mm_set_epi32(0, 0, static_cast<int>(tail), static_cast<int>(head));
    }
    const unsigned bits = stopBits<kContent>(v) & ((1u << (2 * kHalf)) - 1);
    if (bits & ((1u << kHalf) - 1)) return p + __builtin_ctz(bits);
    return bits ? end - 2 * kHalf + __builtin_ctz(bits) : end;
}
#endif

// First byte of [p, end) that stops a plain run; end when there is none.
template <bool kContent>
inline const char* findStop(const char* p, const char* end) {
#if defined(__SSE2__)
    if (end - p >= 16) {
        do {
            const unsigned bits = stopBitsAt<kContent>(p);
            if (bits) return p + __builtin_ctz(bits);
            p += 16;
        } while (end - p >= 16);
        if (p == end) return end;
        // The last block overlaps bytes already tested; drop their bits.
        const char* last = end - 16;
        const unsigned bits = stopBitsAt<kContent>(last) >> (p - last);
        return bits ? p + __builtin_ctz(bits) : end;
    }
    if (end - p >= 8) return findStopShort<kContent, 8>(p, end);
    if (end - p >= 4) return findStopShort<kContent, 4>(p, end);
#endif
    const StopTable& table = kContent ? kContentStops : kValueStops;
    while (p != end && !table.stop[static_cast<unsigned char>(*p)])
        ++p;
    return p;
}

using bytecopy::copyRun;

// What a byte that stops a run is written as. Values never stop at an
// apostrophe, so only content asks for "&apos;".
struct Entity {
    const char* text;
    size_t len;
};
inline Entity entityFor(char c) {
    switch (c) {
        case '<':
            return {"&lt;", 4};
        case '>':
            return {"&gt;", 4};
        case '"':
            return {"&quot;", 6};
        case '\'':
            return {"&apos;", 6};
        default:
            return {"&amp;", 5};
    }
}

}  // namespace escapescan

#endif
