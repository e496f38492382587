#ifndef XMLTREE_FOUNDATION_STRINGFUNCTIONS_H
#define XMLTREE_FOUNDATION_STRINGFUNCTIONS_H

// Free string helpers. Case folding is ASCII only: bytes 0x80 and above
// (UTF-8 sequences) always compare exactly.

// Three-way compare ignoring ASCII letter case; the sign follows strcmp
// (bytes compared as unsigned). Neither argument may be null.
int mxStrICmp(const char* a, const char* b);

// The byte with ASCII A-Z folded to a-z; every other byte as it is.
inline unsigned char foldAscii(unsigned char c) {
    return (static_cast<unsigned>(c - 'A') < 26u) ? static_cast<unsigned char>(c + 32) : c;
}

// First occurrence of needle in haystack ignoring ASCII letter case, or null.
// An empty needle matches at the start of haystack. Null arguments give null.
const char* stristr(const char* haystack, const char* needle);

// True when the whole of text matches pattern. In the pattern '*' matches any
// run of bytes (the empty run included), '?' exactly one byte, and every other
// byte itself (ignoring ASCII letter case unless caseSensitive). A null pattern
// matches nothing; a null text reads as "". Runs in constant extra space and
// O(len(text) * len(pattern)) time at worst.
bool wildcardMatch(const char* text, const char* pattern, bool caseSensitive);

// The same, with an explicit text length (the text may hold no NUL before it).
bool wildcardMatchN(const char* text, int textLen, const char* pattern, bool caseSensitive);

#endif
