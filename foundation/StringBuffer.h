#ifndef XMLTREE_FOUNDATION_STRINGBUFFER_H
#define XMLTREE_FOUNDATION_STRINGBUFFER_H

#include <cstdint>
#include <cstring>

#include "foundation/PooledObject.h"

class ExtPtrArray;
class TreeArenaCheck;
namespace xmltree {
class WithRoom;
}

// A growable byte string, always NUL-terminated. Sizes and indexes count
// bytes; the class does no character decoding (the tree keeps UTF-8 in it).
//
// Layout: texts of up to kInlineCapacity bytes live inside the object, so a
// short tag or content needs no second allocation. Longer texts live in a
// malloc'd block that grows geometrically. The object is exactly 48 bytes;
// the parser makes content buffers whose text continues into room right
// after the object, in the same block, until it outgrows it.
//
// Nothing here throws. When memory runs out, or a text would grow past
// INT_MAX - 1 bytes, a modifying call returns false, leaves the text as it
// was and sets the failure mark (hasFailed), which stays until clear(): a
// caller that made many appends checks once, at the end.
class StringBuffer {
public:
    // Heap instances come from the small-object pool.
    XMLTREE_SMALL_OBJECT_POOLED(StringBuffer)
    static constexpr int kInlineCapacity = 20;  // bytes of text held inline (+ NUL)

    // Empty text. Both inline: the parser makes one or two per element.
    StringBuffer()
        : m_data(m_inline),
          m_size(0),
          m_cap(kInlineCapacity),
          m_valid(kAliveMark),
          m_cp(0),
          m_failed(false),
          m_roomGrains(0) {
        m_inline[0] = '\0';
    }
    // Holds exactly the first n bytes of s (which need not be NUL-terminated).
    // The third argument is a hint for the spare room to keep; it does not
    // change the text.
    StringBuffer(const char* s, int n, int /*extraHint*/) : StringBuffer() {
        if (!s || n <= 0) return;
        if (n > kInlineCapacity) {
            holdExactly(s, n);
            return;
        }
        copyInline(m_inline, s, static_cast<uint32_t>(n));
        m_inline[n] = '\0';
        m_size = static_cast<uint32_t>(n);
    }
    StringBuffer(const char* s);  // null reads as ""
    // Empty text with room reserved for `capacity` bytes.
    explicit StringBuffer(int capacity);
    // Copies the text (the code-page mark too).
    StringBuffer(const StringBuffer& other);
    StringBuffer& operator=(const StringBuffer& other);
    // Heap instances are freed through this virtual destructor.
    virtual ~StringBuffer();

    // Heap factories; they return null when memory runs out and never throw.
    static StringBuffer* createNewSB();
    static StringBuffer* createNewSB(const char* s);
    static StringBuffer* createNewSB(int capacity);

    // True while the object is alive; false once its destructor has run.
    bool isValidObject() const { return m_valid == kAliveMark; }

    // True once an operation could not make room for its text (out of
    // memory, or past INT_MAX - 1 bytes): the text then lacks what that
    // operation would have added. Sticky: only clear() resets it.
    bool hasFailed() const { return m_failed; }
    // Sets the failure mark, for a writer that could not finish its output
    // for a reason of its own.
    void markFailed() { m_failed = true; }

    // Code-page mark: recorded only, never interpreted (2 means UTF-8).
    void putCP(int cp) { m_cp = static_cast<uint8_t>(cp); }
    int getCP() const { return m_cp; }

    // --- appending -------------------------------------------------------
    // Each returns false, with the text unchanged, when memory runs out.

    // Appends s up to its NUL; null appends nothing.
    bool append(const char* s) {
        if (!s) return true;
        const size_t n = std::strlen(s);
        return n <= static_cast<size_t>(kInlineCapacity) ? appendN(s, static_cast<int>(n))
                                                         : appendLong(s, n);
    }
    // Appends other's whole text (NUL bytes included).
    bool append(const StringBuffer& other) { return appendN(other.m_data, static_cast<int>(other.m_size)); }
    bool append(int v);             // signed decimal text of v
    bool append(char c) = delete;   // use appendChar; append(int) would write the code
    // Appends one byte.
    bool appendChar(char c) {
        if (m_size == m_cap && !growBy(1)) return false;
        m_data[m_size] = c;
        m_data[++m_size] = '\0';
        return true;
    }
    // Appends n copies of c.
    bool appendCharN(char c, int n);
    // Appends exactly n bytes from p, NUL bytes included. p may point into
    // this buffer's own text.
    bool appendN(const char* p, int n) {
        if (n <= 0) return n == 0;
        if (static_cast<uint32_t>(n) > m_cap - m_size) return appendSlow(p, n);
        std::memcpy(m_data + m_size, p, static_cast<size_t>(n));
        m_size += static_cast<uint32_t>(n);
        m_data[m_size] = '\0';
        return true;
    }
    // Inserts s in front of the text.
    bool prepend(const char* s);
    // For writers that size a piece first: reserveMore(n) makes room for n
    // more bytes, after which appendUnchecked/appendCharUnchecked may add up
    // to n bytes in all without a capacity check each.
    bool reserveMore(int n) {
        return n <= 0 || static_cast<uint32_t>(n) <= m_cap - m_size ||
               growBy(static_cast<uint32_t>(n));
    }
    void appendUnchecked(const char* p, int n) {
        std::memcpy(m_data + m_size, p, static_cast<size_t>(n));
        m_size += static_cast<uint32_t>(n);
        m_data[m_size] = '\0';
    }
    void appendCharUnchecked(char c) {
        m_data[m_size] = c;
        m_data[++m_size] = '\0';
    }
    // For writers that fill the text in place: makes room for n more bytes
    // and returns where the text ends (null when memory runs out). Bytes may
    // be written from there up to getCapacity() - getSize() bytes on; then
    // commitTail(end) makes the text run up to end and puts the NUL there.
    char* writableTail(int n) { return reserveMore(n) ? m_data + m_size : nullptr; }
    void commitTail(const char* end) {
        m_size = static_cast<uint32_t>(end - m_data);
        m_data[m_size] = '\0';
    }

    // --- replacing -------------------------------------------------------
    bool setString(const char* s);  // safe when s points into this text
    bool setString(const StringBuffer& other);
    // Empties the text and resets the failure mark; keeps the capacity.
    void clear() {
        m_size = 0;
        m_data[0] = '\0';
        m_failed = false;
    }
    void shorten(int n);  // removes the last n bytes (all of them if n >= size)

    // --- reading ---------------------------------------------------------
    const char* getString() const { return m_data; }  // never null, "" when empty
    int getSize() const { return static_cast<int>(m_size); }
    // Bytes of text that fit before the buffer must grow.
    int getCapacity() const { return static_cast<int>(m_cap); }
    // Byte i; NUL when i is out of range.
    char charAt(int i) const { return (static_cast<uint32_t>(i) < m_size) ? m_data[i] : '\0'; }
    // Pointer to byte i; i == getSize() gives the terminating NUL. Null when
    // i is outside [0, getSize()].
    const char* pCharAt(int i) const {
        return (static_cast<uint32_t>(i) <= m_size) ? m_data + i : nullptr;
    }
    // The last byte; NUL for an empty text.
    char lastChar() const { return m_size ? m_data[m_size - 1] : '\0'; }

    // Byte-for-byte equality with s; false for null.
    bool equals(const char* s) const;
    bool equalsIgnoreCase(const char* s) const;  // ASCII letters fold
    int compare(const char* s) const;            // strcmp sign convention
    // Whether c, or the text s, occurs in the text; NoCase folds ASCII letters.
    bool containsChar(char c) const;
    bool containsSubstring(const char* s) const;
    bool containsSubstringNoCase(const char* s) const;
    bool matches(const char* pattern, bool caseSensitive) const;  // see wildcardMatch
    // atoi reading (leading white space, optional sign, digits); saturates at
    // INT_MIN / INT_MAX instead of overflowing.
    int intValue() const;
    double doubleValue() const;  // strtod reading; 0 when no number

    // --- editing in place ------------------------------------------------
    // Replaces every occurrence of `from` by `to` in one left-to-right pass;
    // replaced text is never scanned again. Returns the number of
    // replacements (0 also when memory runs out, text then unchanged).
    int replaceAllOccurances(const char* from, const char* to);
    int removeCharOccurances(char c);  // returns the number removed
    // Removes occurrences of c: every one when n is 0, otherwise the first n.
    int eliminateChar(char c, int n);
    void toLowerCase();  // ASCII letters only
    void trim2();        // drops tab, LF, CR and space at both ends
    // Drops every ASCII byte that is not a letter, digit, '_', '-', '.' or
    // ':'; bytes 0x80 and above stay.
    void removeInvalidXmlTagChars();
    // Length of the leading run of p[0, n) that removeInvalidXmlTagChars keeps
    // as it is: n when the name needs no cleaning.
    static int cleanXmlTagPrefix(const char* p, int n);
    // The bytes a cleaned name keeps: ASCII letters and digits, '_', '-', '.',
    // ':', and every byte from 0x80 up.
    static constexpr bool isXmlNameByte(unsigned char c) {
        return c >= 0x80 || static_cast<unsigned>((c | 0x20) - 'a') < 26u ||
               static_cast<unsigned>(c - '0') < 10u || c == '_' || c == '-' || c == '.' ||
               c == ':';
    }
    // A name may not begin with these; a leading "A" makes it legal.
    static constexpr bool isBadXmlNameStart(char c) {
        return (c >= '0' && c <= '9') || c == '.' || c == '-';
    }

    // --- capacity ----------------------------------------------------------
    bool reserve(int totalBytes);  // room for totalBytes of text in all
    void expectNumBytes(int n, int callerId);  // room for n more bytes
    void minimizeMemoryUsage();  // gives back spare room (may move back inline)

    // Appends one new heap StringBuffer per piece between separators to out,
    // in order. Empty pieces are kept ("a||b" gives "a", "", "b"; "" gives one
    // empty piece). The flags are accepted for compatibility and ignored.
    // The caller owns the pieces (ExtPtrArray::removeAllObjects frees them).
    void split(ExtPtrArray& out, char sep, bool flag1, bool flag2) const;

private:
    friend class TextTransfer;
    friend class ::TreeArenaCheck;  // reads where the text lives
    // For buffers made with room (foundation/WithRoom.h, internal): the
    // object is followed in its block by `room` more bytes, which continue
    // m_inline; it holds the n bytes at s there.
    friend class xmltree::WithRoom;
    // `room` is a multiple of 8, under 1024; n is at most kInlineCapacity +
    // room.
    StringBuffer(uint32_t room, const char* s, int n);
    static constexpr uint8_t kAliveMark = 0xA7;
    static constexpr uint8_t kDeadMark = 0x31;

    // Copies n <= kInlineCapacity bytes with overlapping fixed-size moves: a
    // call into the C library's memcpy costs more than such a copy. The moves
    // read and write exactly [src, src + n) and [dst, dst + n).
    static void copyInline(char* dst, const char* src, uint32_t n) {
        if (n >= 8) {
            uint64_t head, mid, tail;  // [0, 8), [n/2 - 4, n/2 + 4), [n - 8, n)
            std::memcpy(&head, src, 8);
            std::memcpy(&mid, src + n / 2 - 4, 8);
            std::memcpy(&tail, src + n - 8, 8);
            std::memcpy(dst, &head, 8);
            std::memcpy(dst + n / 2 - 4, &mid, 8);
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
    }
    static_assert(kInlineCapacity <= 24, "three 8-byte moves cover at most 24 bytes");

    bool onHeap() const { return m_data != m_inline; }
    bool fail() {
        m_failed = true;
        return false;
    }
    bool growBy(uint32_t extra);          // ensures room for extra more bytes
    bool growTo(uint32_t neededCap);      // ensures capacity >= neededCap
    bool appendSlow(const char* p, int n);
    bool appendLong(const char* s, size_t n);  // refuses texts an int cannot count
    void holdExactly(const char* s, int n);  // empty buffer, text above kInlineCapacity
    void releaseHeap();
    void resetInline();  // empty, on m_inline; a heap block is forgotten, not freed

    char* m_data;     // m_inline or a malloc'd block of m_cap + 1 bytes
    uint32_t m_size;  // bytes of text, NUL excluded
    uint32_t m_cap;   // bytes of text that fit, NUL excluded
    uint8_t m_valid;
    uint8_t m_cp;
    bool m_failed : 1;
    // The room after the object in its pool block, in 8-byte grains (made
    // with room only): the object's own, whichever block the text is in.
    uint8_t m_roomGrains : 7;
    char m_inline[kInlineCapacity + 1];
};

static_assert(sizeof(void*) != 8 || sizeof(StringBuffer) == 48,
              "StringBuffer is meant to be 48 bytes on 64-bit targets");

#endif
