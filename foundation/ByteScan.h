#ifndef XMLTREE_FOUNDATION_BYTESCAN_H
#define XMLTREE_FOUNDATION_BYTESCAN_H

// Internal to the library: every byte scan of the parser, the parse cursor
// and the writer, so that each byte class is defined once.
//
// The texts scanned are NUL-terminated; a NUL met before the end stops every
// scan as the end does. The wide scans test 16 bytes a step with SSE2 (every
// x86-64 CPU has it) up to `end`, the terminating NUL, and finish byte by
// byte; elsewhere they look each byte up in a table.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "foundation/ByteCopy.h"
#include "foundation/StringBuffer.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace bytescan {

// ---- byte classes ------------------------------------------------------------

// Whitespace is exactly tab, line feed, carriage return and space.
struct WsTable {
    bool ws[256];
    constexpr WsTable() : ws() {
        ws[9] = true;
        ws[10] = true;
        ws[13] = true;
        ws[32] = true;
    }
};
constexpr WsTable kWs;

inline bool isWs(char c) {
    return kWs.ws[static_cast<unsigned char>(c)];
}

inline const char* skipWs(const char* p) {
    while (isWs(*p))
        ++p;
    return p;
}

inline void skipWs(const char* t, int& c) {
    while (isWs(t[c]))
        ++c;
}

inline bool startsWith(const char* p, const char* s, size_t n) {
    return std::strncmp(p, s, n) == 0;
}

inline bool isQuote(char c) {
    return c == '"' || c == '\'';
}

// Names: each byte is a name byte (StringBuffer::isXmlNameByte), one that
// ends the name, or one that cleaning removes. Tag names end at NUL,
// whitespace, '/' and '>'; attribute names at those and '='.
enum : unsigned char { kNameByte, kNameEnd, kNameDirt };
struct NameClasses {
    unsigned char tag[256];
    unsigned char attr[256];
    constexpr NameClasses() : tag(), attr() {
        for (int c = 0; c < 256; ++c) {
            const bool keep = StringBuffer::isXmlNameByte(static_cast<unsigned char>(c));
            tag[c] = attr[c] = keep ? kNameByte : kNameDirt;
        }
        const char ends[] = "\0 \t\r\n/>";
        for (char ch : ends)
            tag[static_cast<unsigned char>(ch)] = attr[static_cast<unsigned char>(ch)] = kNameEnd;
        attr[static_cast<unsigned char>('=')] = kNameEnd;
    }
};
constexpr NameClasses kNames;

inline bool isNameByte(unsigned char c) {
    return kNames.tag[c] == kNameByte;
}

// StringBuffer::isBadXmlNameStart for the first byte of a clean name, in one
// test: '-', '.' and the digits span '-' to '9' but for '/', which is never
// a name byte.
static_assert(!StringBuffer::isXmlNameByte('/'), "'/' lies inside the range tested");
inline bool isBadCleanNameStart(char c) {
    return static_cast<unsigned char>(c - '-') <= '9' - '-';
}

inline const char* scanToNameEnd(const char* p, const unsigned char (&cls)[256]) {
    while (cls[static_cast<unsigned char>(*p)] != kNameEnd)
        ++p;
    return p;
}

// Length of the name at p when it needs no cleaning, else -1.
inline int cleanNameLength(const char* p, const unsigned char (&cls)[256]) {
    const char* q = p;
    // Four bytes a step, one test each: the NUL that ends the text is never a
    // name byte, so no byte past it is read.
    auto isName = [&cls](const char* at) {
        return cls[static_cast<unsigned char>(*at)] == kNameByte;
    };
    for (;; q += 4) {
        if (!isName(q)) break;
        if (!isName(q + 1)) {
            q += 1;
            break;
        }
        if (!isName(q + 2)) {
            q += 2;
            break;
        }
        if (!isName(q + 3)) {
            q += 3;
            break;
        }
    }
    return cls[static_cast<unsigned char>(*q)] == kNameEnd ? static_cast<int>(q - p) : -1;
}

// ---- scans to a byte -----------------------------------------------------------

#if defined(__SSE2__)
inline unsigned maskOf(__m128i hits) {
    return static_cast<unsigned>(_mm_movemask_epi8(hits));
}
inline __m128i bytesEqual(__m128i v, char c) {
    return _mm_cmpeq_epi8(v, _mm_set1_epi8(c));
}
inline __m128i load16(const char* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
#endif

// First c at or after p, or the NUL that ends the text.
inline const char* findCharOrEnd(const char* p, char c) {
    if (c == '\0') return p + std::strlen(p);
#if defined(__GLIBC__)
    return strchrnul(p, c);
#else
    const char* q = std::strchr(p, c);
    return q ? q : p + std::strlen(p);
#endif
}

// Whether c is among the n bytes at p; reads only [p, p + n). Text runs are
// mostly short, and for up to 32 bytes two loads and compares cost less
// than a call into the C library.
inline bool holds(const char* p, size_t n, char c) {
#if defined(__SSE2__)
    if (n > 32) return std::memchr(p, static_cast<unsigned char>(c), n) != nullptr;
    if (n >= 16) {
        return maskOf(_mm_or_si128(bytesEqual(load16(p), c), bytesEqual(load16(p + n - 16), c))) !=
               0;
    }
    if (n >= 8) {
        uint64_t head, tail;  // may overlap
        std::memcpy(&head, p, 8);
        std::memcpy(&tail, p + n - 8, 8);
        const __m128i v =
            _mm_set_epi64x(static_cast<long long>(tail), static_cast<long long>(head));
        return maskOf(bytesEqual(v, c)) != 0;
    }
    while (n != 0) {
        if (p[--n] == c) return true;
    }
    return false;
#else
    return std::memchr(p, static_cast<unsigned char>(c), n) != nullptr;
#endif
}

// The first occurrence of s in the text at p, or null. The parser's
// delimiters ("-->", "?>") are short and their last byte is rare, so for up
// to four bytes the search jumps from one such byte to the next and
// compares the bytes before it; longer ones go to strstr, which stays
// linear whatever the text.
inline const char* findText(const char* p, const char* s) {
    const size_t n = std::strlen(s);
    if (n == 0 || n > 4) return std::strstr(p, s);
    for (const char* q = findCharOrEnd(p, s[n - 1]); *q != '\0';
         q = findCharOrEnd(q + 1, s[n - 1])) {
        if (static_cast<size_t>(q - p) >= n - 1 && std::memcmp(q - (n - 1), s, n - 1) == 0)
            return q - (n - 1);
    }
    return nullptr;
}

// The first byte at or after p that is not whitespace.
inline const char* skipWsRun(const char* p, const char* end) {
#if defined(__SSE2__)
    // Short runs, such as a line break and a tab, are done before a wide
    // step would pay off.
    for (int i = 0; i < 4; ++i, ++p) {
        if (!isWs(*p)) return p;
    }
    for (; p + 16 <= end; p += 16) {
        const __m128i v = load16(p);
        const __m128i ws = _mm_or_si128(_mm_or_si128(bytesEqual(v, ' '), bytesEqual(v, '\n')),
                                        _mm_or_si128(bytesEqual(v, '\t'), bytesEqual(v, '\r')));
        const unsigned other = ~maskOf(ws) & 0xFFFFu;
        if (other) return p + __builtin_ctz(other);
    }
#else
    (void)end;
#endif
    return skipWs(p);
}

// The first a, b or NUL at or after p, 16 bytes a step while they lie
// before `end`, then byte by byte.
inline const char* findEitherWide(const char* p, const char* end, char a, char b) {
#if defined(__SSE2__)
    for (; p + 16 <= end; p += 16) {
        const __m128i v = load16(p);
        const __m128i hit =
            _mm_or_si128(_mm_or_si128(bytesEqual(v, a), bytesEqual(v, b)), bytesEqual(v, '\0'));
        if (const unsigned m = maskOf(hit)) return p + __builtin_ctz(m);
    }
#else
    (void)end;
#endif
    while (*p != a && *p != b && *p != '\0')
        ++p;
    return p;
}

// The first a, b or NUL at or after p. The first bytes go one by one:
// values and closing tags are often shorter than a wide step.
inline const char* findEither(const char* p, const char* end, char a, char b) {
    for (int i = 0; i < 4; ++i, ++p) {
        if (*p == a || *p == b || *p == '\0') return p;
    }
    return findEitherWide(p, end, a, b);
}

// The same scan for two bytes fixed where it is called: the first bytes are
// tested through a table, one test a byte rather than three.
struct StopPair {
    unsigned char stop[256];
    char a;
    char b;
    constexpr StopPair(char first, char second) : stop(), a(first), b(second) {
        stop[static_cast<unsigned char>(first)] = 1;
        stop[static_cast<unsigned char>(second)] = 1;
        stop[0] = 1;
    }
};
constexpr StopPair kQuoteOrAmp('"', '&');
constexpr StopPair kAposOrAmp('\'', '&');
constexpr StopPair kEitherQuote('"', '\'');
constexpr StopPair kTagEndOrOpen('>', '<');

inline const char* findEither(const char* p, const char* end, const StopPair& s) {
    for (int i = 0; i < 4; ++i, ++p) {
        if (s.stop[static_cast<unsigned char>(*p)]) return p;
    }
    return findEitherWide(p, end, s.a, s.b);
}

// ---- bytes the writer escapes -------------------------------------------------
//
// Content stops at < > " ' & and NUL (the text is read as a C string);
// attribute values at < > " & only, since their length is known and a NUL
// inside one is copied like any other byte. These scans read only [p, end).

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
        hit = _mm_or_si128(
            hit, _mm_or_si128(bytesEqual(v, '\''), _mm_cmpeq_epi8(v, _mm_setzero_si128())));
    }
    return maskOf(hit);
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

// First byte of [p, end) that the writer must escape; end when there is none.
template <bool kContent>
inline const char* findStop(const char* p, const char* end) {
#if defined(__SSE2__)
    if (end - p >= 16) {
        do {
            const unsigned bits = stopBits<kContent>(load16(p));
            if (bits) return p + __builtin_ctz(bits);
            p += 16;
        } while (end - p >= 16);
        if (p == end) return end;
        // The last block overlaps bytes already tested; drop their bits.
        const char* last = end - 16;
        const unsigned bits = stopBits<kContent>(load16(last)) >> (p - last);
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

// ---- references the parser decodes --------------------------------------------
//
// The five predefined references are disjoint (each holds one '&', and the
// replacement characters are none of '&', ';' or a letter), so no replacement
// can create or destroy a match of another. Replacing them one after the
// other, "&amp;" last, therefore gives the same bytes as one left-to-right
// pass that decodes all five at once and never rescans what it produced.

// p[0] is '&'. Returns the length of the reference at p and sets `out` to
// its character, or returns 0. The comparisons stop at the first differing
// byte, so they never read past a terminating NUL.
inline int matchEntity(const char* p, char& out) {
    switch (p[1]) {
        case 'l':
            if (p[2] == 't' && p[3] == ';') return out = '<', 4;
            break;
        case 'g':
            if (p[2] == 't' && p[3] == ';') return out = '>', 4;
            break;
        case 'a':
            if (p[2] == 'm' && p[3] == 'p' && p[4] == ';') return out = '&', 5;
            if (p[2] == 'p' && p[3] == 'o' && p[4] == 's' && p[5] == ';') return out = '\'', 6;
            break;
        case 'q':
            if (p[2] == 'u' && p[3] == 'o' && p[4] == 't' && p[5] == ';') return out = '"', 6;
            break;
        default:
            break;
    }
    return 0;
}

}  // namespace bytescan

#endif
