#ifndef XMLTREE_FOUNDATION_PARSEENGINE_H
#define XMLTREE_FOUNDATION_PARSEENGINE_H

#include <cstddef>
#include <cstring>

#include "foundation/StringBuffer.h"

class DataBuffer;

// The text being parsed and a cursor into it, with the delimiter scans the
// parser uses. The parser reads textPtr[cursor] directly and steps the
// cursor itself; textPtr always points at textBuf's NUL-terminated text.
//
// Every scan starts at the cursor, treats the first NUL byte as the end of
// the text (an embedded NUL ends the text as far as scans go), never moves
// the cursor past that NUL, and never changes the text. "Appends" means the
// bytes passed over are added to `out` (one appendN per scan); out is never
// cleared. Not copyable.
class ParseEngine {
public:
    // The whole text, NUL-terminated.
    StringBuffer textBuf;
    // textBuf's bytes, for direct reads of textPtr[cursor].
    const char* textPtr;
    // Index of the current byte, from 0 to the text size (its NUL).
    int cursor;

    // Empty text, cursor 0.
    ParseEngine();
    // A copy of the bytes, cursor 0. Bytes beyond what the cursor can index
    // (INT_MAX - 1) are not cut off: the text stays empty and isTooLarge()
    // tells why.
    explicit ParseEngine(const DataBuffer& data);
    ParseEngine(const ParseEngine&) = delete;
    ParseEngine& operator=(const ParseEngine&) = delete;
    ~ParseEngine();

    // Both keep textPtr on the text; the cursor stays where it was. False
    // when the text could not take the bytes (out of memory, or past what
    // the cursor can index); textBuf's failure mark then stays set.
    bool append(const char* s);
    bool appendN(const char* p, int n);
    // True when bytes were refused because the text would have grown past
    // INT_MAX - 1 bytes.
    bool isTooLarge() const { return m_tooLarge; }

    // Stops on the first byte that occurs in `delimiters` (not consumed);
    // appends the bytes before it.
    void captureToNext(const char* delimiters, StringBuffer& out);
    // The same for exactly 2, 5 or 7 delimiter bytes (repeats allowed).
    void captureToNext2(const char* delimiters, StringBuffer& out);
    void captureToNext5(const char* delimiters, StringBuffer& out);
    void captureToNext7(const char* delimiters, StringBuffer& out);
    // Stops on the next c (not consumed); appends the bytes before it.
    void captureToNextChar(char c, StringBuffer& out);
    // Stops on the next c (not consumed); appends nothing.
    void skipUntilChar(char c);
    // Stops on the next `first` or `second` (not consumed). True when it
    // stopped on `first`; false on `second` or at the end of the text.
    bool skipUntilChar2(char first, char second);
    // Moves just past the next occurrence of s and returns true. When s does
    // not occur, the cursor goes to the end of the text and the result is
    // false. An empty s is found at once.
    bool seekAndSkipExact(const char* s);
    // Like seekAndSkipExact, appending the bytes from the cursor through the
    // end of s; when s does not occur, appends the rest of the text.
    void seekAndCopy(const char* s, StringBuffer& out);
    // The nesting count starts at depth; each `open` adds one, each `close`
    // takes one. Stops just past the `close` that brings the count to zero
    // (or below), appending everything through it, and returns true. When the
    // text ends first, appends the rest, leaves the cursor on the end and
    // returns false. Quotes are not treated specially.
    bool seekAndCopyToClosing(char open, char close, int depth, StringBuffer& out);

    // Helpers: the text size in bytes, the byte at the cursor, whether that
    // byte is a NUL (the end of the text for every scan), and its address.
    int getTextSize() const { return textBuf.getSize(); }
    char currentChar() const { return textPtr[cursor]; }
    bool atEnd() const { return textPtr[cursor] == '\0'; }
    const char* currentPtr() const { return textPtr + cursor; }

private:
    friend class TextTransfer;
    bool appendBytes(const char* p, std::size_t n);
    bool refuseTooLarge();
    void syncPtr() { textPtr = textBuf.getString(); }
    void captureSpan(const char* p, int n, StringBuffer& out) {
        if (n > 0) out.appendN(p, n);
        cursor += n;
    }

    bool m_tooLarge = false;
};

#endif
