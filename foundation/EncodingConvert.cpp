#include "foundation/EncodingConvert.h"

#include <cerrno>
#include <cstring>

#include <iconv.h>

#include "foundation/DataBuffer.h"
#include "foundation/LogBase.h"
#include "foundation/StringBuffer.h"
#include "foundation/StringFunctions.h"

namespace {

struct CodePageName {
    int codePage;
    const char* name;
};

const CodePageName kCodePages[] = {
    {65001, "UTF-8"},       {1200, "UTF-16LE"},     {1201, "UTF-16BE"},
    {12000, "UTF-32LE"},    {12001, "UTF-32BE"},    {20127, "US-ASCII"},
    {1250, "WINDOWS-1250"}, {1251, "WINDOWS-1251"}, {1252, "WINDOWS-1252"},
    {1253, "WINDOWS-1253"}, {1254, "WINDOWS-1254"}, {1255, "WINDOWS-1255"},
    {1256, "WINDOWS-1256"}, {1257, "WINDOWS-1257"}, {1258, "WINDOWS-1258"},
    {28591, "ISO-8859-1"},  {28592, "ISO-8859-2"},  {28593, "ISO-8859-3"},
    {28594, "ISO-8859-4"},  {28595, "ISO-8859-5"},  {28596, "ISO-8859-6"},
    {28597, "ISO-8859-7"},  {28598, "ISO-8859-8"},  {28599, "ISO-8859-9"},
    {28603, "ISO-8859-13"}, {28605, "ISO-8859-15"}, {932, "SHIFT_JIS"},
    {936, "GBK"},           {949, "EUC-KR"},        {950, "BIG5"},
    {54936, "GB18030"},     {20866, "KOI8-R"},      {21866, "KOI8-U"},
    {51932, "EUC-JP"},      {50220, "ISO-2022-JP"}, {437, "CP437"},
    {850, "CP850"},         {866, "CP866"},         {874, "CP874"},
};

bool sameName(const char* a, const char* b) { return mxStrICmp(a, b) == 0; }

bool isUtf8Name(const char* n) { return sameName(n, "UTF-8") || sameName(n, "UTF8"); }

// Bytes of the byte-order mark that starts the input in this character set,
// or 0. Only charsets of fixed byte order are checked: for those iconv would
// carry the mark into the output as U+FEFF. (Plain "UTF-16" consumes its own.)
unsigned int leadingMarkLength(const char* from, const unsigned char* b, unsigned int n) {
    if ((sameName(from, "UTF-16LE") || sameName(from, "UCS-2LE")) && n >= 2 && b[0] == 0xFF &&
        b[1] == 0xFE)
        return 2;
    if ((sameName(from, "UTF-16BE") || sameName(from, "UCS-2BE")) && n >= 2 && b[0] == 0xFE &&
        b[1] == 0xFF)
        return 2;
    if (isUtf8Name(from) && n >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF) return 3;
    if (sameName(from, "UTF-32LE") && n >= 4 && b[0] == 0xFF && b[1] == 0xFE && b[2] == 0 &&
        b[3] == 0)
        return 4;
    if (sameName(from, "UTF-32BE") && n >= 4 && b[0] == 0 && b[1] == 0 && b[2] == 0xFE &&
        b[3] == 0xFF)
        return 4;
    return 0;
}

// Width of one code unit of the source, so that skipping a bad unit keeps
// the rest of a 16- or 32-bit text aligned.
unsigned int codeUnitWidth(const char* from) {
    StringBuffer n(from);
    n.toLowerCase();
    if (n.containsSubstring("32") || n.containsSubstring("ucs-4") || n.containsSubstring("ucs4"))
        return (n.containsSubstring("utf") || n.containsSubstring("ucs")) ? 4u : 1u;
    if (n.containsSubstring("16") || n.containsSubstring("ucs-2") || n.containsSubstring("ucs2"))
        return (n.containsSubstring("utf") || n.containsSubstring("ucs")) ? 2u : 1u;
    return 1u;
}

void logUnknown(LogBase& log, const char* what, const char* name) {
    StringBuffer msg("Unsupported character set conversion ");
    msg.append(what);
    msg.append(": ");
    msg.append(name ? name : "(null)");
    log.logError(msg.getString());
}

// The charset name of a code page, or null after logging that the code page
// is not one we know (`what` says which side of the conversion it is).
const char* charsetOfCodePage(int codePage, const char* what, LogBase& log) {
    const char* name = EncodingConvert::codePageToCharset(codePage);
    if (!name) {
        StringBuffer cp;
        cp.append(codePage);
        logUnknown(log, what, cp.getString());
    }
    return name;
}

}  // namespace

const char* EncodingConvert::codePageToCharset(int codePage) {
    for (const CodePageName& c : kCodePages) {
        if (c.codePage == codePage) return c.name;
    }
    return nullptr;
}

bool EncodingConvert::EncConvert(int fromCodePage, int toCodePage, const unsigned char* bytes,
                                 unsigned int numBytes, DataBuffer& out, LogBase& log) {
    const char* from = charsetOfCodePage(fromCodePage, "from code page", log);
    if (!from) return false;
    const char* to = charsetOfCodePage(toCodePage, "to code page", log);
    if (!to) return false;
    return ChConvert3(from, to, bytes, numBytes, out, log);
}

bool EncodingConvert::ChConvert2(const char* fromCharset, int toCodePage,
                                 const unsigned char* bytes, unsigned int numBytes,
                                 DataBuffer& out, LogBase& log) {
    const char* to = charsetOfCodePage(toCodePage, "to code page", log);
    if (!to) return false;
    return ChConvert3(fromCharset, to, bytes, numBytes, out, log);
}

bool EncodingConvert::ChConvert3(const char* fromCharset, const char* toCharset,
                                 const unsigned char* bytes, unsigned int numBytes,
                                 DataBuffer& out, LogBase& log) {
    if (!fromCharset || !*fromCharset) {
        logUnknown(log, "from", fromCharset);
        return false;
    }
    if (!toCharset || !*toCharset) {
        logUnknown(log, "to", toCharset);
        return false;
    }
    iconv_t cd = iconv_open(toCharset, fromCharset);
    if (cd == reinterpret_cast<iconv_t>(-1)) {
        StringBuffer names(fromCharset);
        names.append(" to ");
        names.append(toCharset);
        logUnknown(log, "from", names.getString());
        return false;
    }
    if (!bytes) numBytes = 0;

    const bool toUtf8 = isUtf8Name(toCharset);
    const unsigned int skip = leadingMarkLength(fromCharset, bytes, numBytes);
    const unsigned int unit = codeUnitWidth(fromCharset);
    const unsigned int outStart = out.getSize();
    // Most conversions to UTF-8 stay within twice the input; more is grown as needed.
    if (numBytes < (1u << 30)) out.reserve(outStart + numBytes + numBytes / 2 + 16);

    char* in = const_cast<char*>(reinterpret_cast<const char*>(bytes + skip));
    size_t inLeft = numBytes - skip;
    bool ok = true;
    char chunk[16384];
    for (;;) {
        char* o = chunk;
        size_t oLeft = sizeof chunk;
        // A null input flushes any pending shift state once all input is used.
        const size_t r = inLeft ? iconv(cd, &in, &inLeft, &o, &oLeft)
                                : iconv(cd, nullptr, nullptr, &o, &oLeft);
        const int err = (r == static_cast<size_t>(-1)) ? errno : 0;
        if (o != chunk && !out.append(chunk, static_cast<unsigned int>(o - chunk))) {
            // The output's failure mark tells the caller; a parse reports it
            // once, as it reports running out of memory anywhere else.
            ok = false;
            break;
        }
        if (!err) {
            if (!inLeft) break;
            continue;
        }
        if (err == E2BIG) continue;
        if (err == EILSEQ || err == EINVAL) {
            if (ok) {
                StringBuffer msg(err == EILSEQ ? "Invalid byte sequence in " : "Incomplete byte sequence in ");
                msg.append(fromCharset);
                msg.append(" input at byte offset ");
                msg.append(static_cast<int>(reinterpret_cast<const unsigned char*>(in) - bytes));
                log.logError(msg.getString());
            }
            ok = false;
            if (toUtf8) out.append("\xEF\xBF\xBD", 3);
            if (err == EINVAL) break;  // the input ends inside a sequence
            const size_t step = inLeft < unit ? inLeft : unit;
            in += step;
            inLeft -= step;
            continue;
        }
        log.logError("Character set conversion failed");
        ok = false;
        break;
    }
    iconv_close(cd);

    // Some converters emit a byte-order mark of their own; a UTF-8 text never needs one.
    if (toUtf8 && out.getSize() - outStart >= 3) {
        unsigned char* d = out.getDataMutable() + outStart;
        if (d[0] == 0xEF && d[1] == 0xBB && d[2] == 0xBF) {
            std::memmove(d, d + 3, out.getSize() - outStart - 3);
            out.shorten(3);
        }
    }
    return ok;
}

bool CharsetNaming::CharsetValid(const char* name) {
    if (!name || !*name) return false;
    iconv_t cd = iconv_open("UTF-8", name);
    if (cd == reinterpret_cast<iconv_t>(-1)) return false;
    iconv_close(cd);
    return true;
}
