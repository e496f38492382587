// Input decoding: bring a document's bytes to UTF-8 before parsing, guided by
// a byte-order mark or, failing that, by the declaration's encoding.

#include <cstring>

#include "foundation/EncodingConvert.h"
#include "foundation/StringFunctions.h"
#include "xmltree/TreeNode.h"

namespace {

const int kCodePageUtf16Le = 1200;
const int kCodePageUtf16Be = 1201;
const int kCodePageUtf8 = 65001;

// Replaces the buffer's bytes by the converter's output. The converter's
// verdict is not looked at: whatever it delivered is what gets parsed, and it
// has already reported any trouble through the logger.
void replaceWith(DataBuffer& data, DataBuffer& out) {
    data.clear();
    data.takeData(out);
}

void convertUtf16(DataBuffer& data, int codePage, LogBase& log) {
    EncodingConvert conv;
    DataBuffer out;
    conv.EncConvert(codePage, kCodePageUtf8, data.getData2(), data.getSize(), out, log);
    replaceWith(data, out);
}

// The encoding name declared in the text of the declaration (from "<?xml" up
// to its '>'), or an empty buffer when none is found. Spaces are dropped
// before the search so that `encoding = 'x'` is found; tabs and line breaks
// stay and hide the attribute, as they always have.
bool findDeclaredEncoding(const char* decl, size_t len, StringBuffer& name) {
    StringBuffer copy(decl, static_cast<int>(len), 0);
    copy.removeCharOccurances(' ');
    copy.toLowerCase();
    const char* s = copy.getString();
    const char* m = std::strstr(s, "encoding=\"");
    if (!m) m = std::strstr(s, "encoding='");
    if (!m) return false;
    const char* start = m + 10;
    const char* end = std::strchr(start, '"');
    if (!end) end = std::strchr(start, '\'');
    if (end) name.appendN(start, static_cast<int>(end - start));
    return true;
}

// The bytes stay as they are, so the offsets of the name in them are those
// of the text the parser gets. The name was found in a lower-case copy
// without spaces; it is looked for again in the declaration itself.
void noteUnconverted(const char* text, const char* decl, const char* gt, const StringBuffer& name,
                     LogBase& log) {
    const char* at = stristr(decl, name.getString());
    int len = name.getSize();
    if (!at || at >= gt) {
        at = decl;
        len = static_cast<int>(gt - decl) + 1;
    }
    log.logParseNote(xmltree::ParseNote::kEncodingUnconverted, static_cast<int>(at - text), len,
                     nullptr);
}

}  // namespace

bool TreeNode::convertXmlToUtf8(DataBuffer& data, LogBase& log) {
    const unsigned char* p = data.getData2();
    if (!p) return false;
    unsigned int size = data.getSize();
    if (size >= 3 && p[0] == 0xEF && p[1] == 0xBB && p[2] == 0xBF) {
        data.removeHead(3);
        return true;
    }
    if (size >= 2 && p[0] == 0xFF && p[1] == 0xFE) {
        convertUtf16(data, kCodePageUtf16Le, log);
        return true;
    }
    if (size >= 2 && p[0] == 0xFE && p[1] == 0xFF) {
        convertUtf16(data, kCodePageUtf16Be, log);
        return true;
    }
    // A zero byte at the end lets the bytes be searched as a C string.
    if (!data.appendChar(0)) return true;
    const char* text = reinterpret_cast<const char*>(data.getData2());
    if (!text) return false;
    const char* decl = stristr(text, "<?xml");
    const char* gt = decl ? std::strchr(decl, '>') : nullptr;
    StringBuffer name;
    bool found = gt && findDeclaredEncoding(decl, static_cast<size_t>(gt - decl), name);
    if (!found || name.getSize() == 0 || name.equalsIgnoreCase("utf-8")) {
        data.shorten(1);
        return true;
    }
    if (!CharsetNaming::CharsetValid(name.getString())) {
        if (log.wantsParseNotes()) noteUnconverted(text, decl, gt, name, log);
        data.shorten(1);
        return true;
    }
    data.shorten(1);
    EncodingConvert conv;
    DataBuffer out;
    conv.ChConvert2(name.getString(), kCodePageUtf8, data.getData2(), data.getSize(), out, log);
    replaceWith(data, out);
    return true;
}

bool TreeNode::loadToUtf8(const char* path, DataBuffer& data, LogBase& log) {
    if (!data.loadFileUtf8(path, &log)) return false;
    return convertXmlToUtf8(data, log);
}
