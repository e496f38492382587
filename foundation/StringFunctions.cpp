#include "foundation/StringFunctions.h"

#include <cstddef>
#include <cstring>

int mxStrICmp(const char* a, const char* b) {
    const unsigned char* pa = reinterpret_cast<const unsigned char*>(a);
    const unsigned char* pb = reinterpret_cast<const unsigned char*>(b);
    for (;; ++pa, ++pb) {
        unsigned char ca = foldAscii(*pa);
        unsigned char cb = foldAscii(*pb);
        if (ca != cb) return static_cast<int>(ca) - static_cast<int>(cb);
        if (ca == 0) return 0;
    }
}

const char* stristr(const char* haystack, const char* needle) {
    if (!haystack || !needle) return nullptr;
    if (!*needle) return haystack;
    const unsigned char first = foldAscii(static_cast<unsigned char>(*needle));
    const char* rest = needle + 1;
    for (const char* h = haystack; *h; ++h) {
        if (foldAscii(static_cast<unsigned char>(*h)) != first) continue;
        const char* a = h + 1;
        const char* b = rest;
        while (*b && foldAscii(static_cast<unsigned char>(*a)) ==
                          foldAscii(static_cast<unsigned char>(*b))) {
            ++a;
            ++b;
        }
        if (!*b) return h;
        if (!*a) return nullptr;  // haystack ran out: no later start can fit
    }
    return nullptr;
}

// Greedy matching with one backtrack point, the position after the last '*'
// seen. When a later literal fails, the star is made to swallow one more
// byte and matching resumes from there. Earlier stars never need revisiting:
// whatever they matched, the last star can absorb any extra. This keeps the
// work to O(textLen * patternLen) with no recursion.
bool wildcardMatchN(const char* text, int textLen, const char* pattern, bool caseSensitive) {
    if (!pattern) return false;
    if (!text || textLen < 0) textLen = 0;
    const unsigned char* t = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* p = reinterpret_cast<const unsigned char*>(pattern);
    const size_t n = static_cast<size_t>(textLen);
    size_t ti = 0, pi = 0;
    size_t starP = static_cast<size_t>(-1), starT = 0;
    while (ti < n) {
        const unsigned char pc = p[pi];
        if (pc == '*') {
            starP = ++pi;
            starT = ti;
            continue;
        }
        if (pc != 0) {
            const unsigned char tc = t[ti];
            const bool same = (pc == '?') || pc == tc ||
                              (!caseSensitive && foldAscii(pc) == foldAscii(tc));
            if (same) {
                ++pi;
                ++ti;
                continue;
            }
        }
        if (starP == static_cast<size_t>(-1)) return false;
        pi = starP;
        ti = ++starT;
    }
    while (p[pi] == '*') ++pi;
    return p[pi] == 0;
}

bool wildcardMatch(const char* text, const char* pattern, bool caseSensitive) {
    if (!pattern) return false;
    if (!text) text = "";
    return wildcardMatchN(text, static_cast<int>(std::strlen(text)), pattern, caseSensitive);
}
