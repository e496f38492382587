#ifndef XMLTREE_FOUNDATION_ENCODINGCONVERT_H
#define XMLTREE_FOUNDATION_ENCODINGCONVERT_H

class DataBuffer;
class LogBase;

// Character-set conversion through the C library's iconv. Made on the stack
// for one conversion.
//
// Code pages: 1200 UTF-16LE, 1201 UTF-16BE, 65001 UTF-8, 1250-1258
// WINDOWS-125x, 28591-28599 / 28603 / 28605 ISO-8859-x, 20127 US-ASCII,
// 932 SHIFT_JIS, 936 GBK, 949 EUC-KR, 950 BIG5, 54936 GB18030, 12000
// UTF-32LE, 12001 UTF-32BE, 20866 KOI8-R, 21866 KOI8-U, 51932 EUC-JP,
// 50220 ISO-2022-JP, 437 CP437, 850 CP850, 866 CP866, 874 CP874.
//
// Conversions append to `out` and return true when every byte converted. A
// byte-order mark at the start of UTF-8, UTF-16 or UTF-32 input of fixed byte
// order (FF FE for 1200, FE FF for 1201) is dropped, and no UTF-8 mark is
// written. On an invalid or incomplete sequence the first one is reported
// through log.logError (naming the character set and the byte offset); each
// bad code unit becomes U+FFFD when the target is UTF-8 (and is dropped
// otherwise), the conversion goes on, and the result is false. An unknown
// code page or name logs a message, appends nothing and returns false.
class EncodingConvert {
public:
    // Holds no state between calls.
    EncodingConvert() {}
    ~EncodingConvert() {}
    EncodingConvert(const EncodingConvert&) = delete;
    EncodingConvert& operator=(const EncodingConvert&) = delete;

    // Converts numBytes bytes from one code page to another, appending to out.
    bool EncConvert(int fromCodePage, int toCodePage, const unsigned char* bytes,
                    unsigned int numBytes, DataBuffer& out, LogBase& log);
    // The same with the source named as in an XML declaration ("iso-8859-1").
    bool ChConvert2(const char* fromCharset, int toCodePage, const unsigned char* bytes,
                    unsigned int numBytes, DataBuffer& out, LogBase& log);
    // The same with both ends named.
    bool ChConvert3(const char* fromCharset, const char* toCharset, const unsigned char* bytes,
                    unsigned int numBytes, DataBuffer& out, LogBase& log);

    // iconv name of a code page, or null when unknown.
    static const char* codePageToCharset(int codePage);
};

// Which character-set names can be converted.
class CharsetNaming {
public:
    // True exactly when iconv can convert from `name` to UTF-8; false for a
    // null or empty name.
    static bool CharsetValid(const char* name);
};

#endif
