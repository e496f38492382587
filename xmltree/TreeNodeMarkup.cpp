// The parser's branches for markup that is not an element: CDATA sections,
// comments and other declarations beginning with '!', the XML declaration,
// style-sheet and other processing instructions, and the pseudo-attributes
// of the declaration and style sheets. Also the decoding of the five
// predefined references, which the main loop shares.
//
// These steps are rare, so they work through the engine's cursor rather
// than the main loop's local pointer.

#include <strings.h>

#include <cstring>

#include "foundation/ByteScan.h"
#include "xmltree/TreeParser.h"

using bytescan::skipWs;
using bytescan::startsWith;

void TreeParser::decodeEntities(StringBuffer& sb, int from) {
    int size = sb.getSize();
    if (from < 0 || from >= size) return;
    // The buffer is never const: getString() gives the start of storage this
    // object owns, and only bytes already in it are rewritten (the text can
    // only shrink).
    char* base = const_cast<char*>(sb.getString());
    char* p = static_cast<char*>(std::memchr(base + from, '&', static_cast<size_t>(size - from)));
    if (!p) return;
    char* end = base + size;
    char* w = p;
    while (p < end) {
        char* amp = static_cast<char*>(std::memchr(p, '&', static_cast<size_t>(end - p)));
        if (!amp) amp = end;
        if (w != p) std::memmove(w, p, static_cast<size_t>(amp - p));
        w += amp - p;
        p = amp;
        if (p == end) break;
        char ch;
        int n = bytescan::matchEntity(p, ch);
        if (n) {
            *w++ = ch;
            p += n;
        } else {
            *w++ = *p++;
        }
    }
    sb.shorten(static_cast<int>(end - w));
}

void TreeParser::decodeIfAmp(StringBuffer& sb, int from) {
    if (from < sb.getSize() &&
        std::memchr(sb.getString() + from, '&', static_cast<size_t>(sb.getSize() - from))) {
        decodeEntities(sb, from);
    }
}

TreeParser::Step TreeParser::cdataSection() {
    int& c = e.cursor;
    for (;;) {
        c += 9;
        // The section runs to the first "]]>" or the end of the text.
        const char* const start = t + c;
        const char* end = bytescan::findText(start, "]]>");
        const int len = end ? static_cast<int>(end - start) : static_cast<int>(std::strlen(start));
        if (!cur->content) {
            cur->content = xmltree::WithRoom::text(start, len);
            if (!cur->content) return kFail;
        } else if (!cur->content->appendN(start, len)) {
            return kFail;
        }
        c += len;
        if (t[c] != '\0') c += 3;
        cur->cdata = true;
        if (t[c] != '<') {
            const int from = c;
            e.skipUntilChar('<');  // text after "]]>" is dropped
            if (notes) notes->afterCdata(t + from, t + c, cur);
        }
        if (t[c] != '<') return kLoop;
        if (!startsWith(t + c, "<![CDATA[", 9)) break;
    }
    ++c;
    return kDispatch;
}

TreeParser::Step TreeParser::bangDeclaration() {
    int& c = e.cursor;
    const int lt = c - 1;
    if (strncasecmp(t + c, "!--", 3) == 0) {
        if (e.seekAndSkipExact("-->")) {
            if (notes) notes->note(xmltree::ParseNote::kComment, lt, c, cur);
            return kLoop;
        }
        if (notes) notes->note(xmltree::ParseNote::kCommentUnclosed, lt, c, cur);
        log->logError("Unclosed comment");
        return kStop;
    }
    if (strncasecmp(t + c, "!DOCTYPE", 8) == 0) {
        docType.appendChar('<');
        if (!e.seekAndCopyToClosing('<', '>', 1, docType)) {
            if (notes) notes->note(xmltree::ParseNote::kDoctypeUnclosed, lt, c, cur);
            log->logError("Failed to parse DTD");
        }
        docType.appendChar('\n');
        return docType.hasFailed() ? kFail : kLoop;
    }
    if (t[c] != '>') e.skipUntilChar('>');
    if (t[c] == '>') ++c;
    if (notes) notes->note(xmltree::ParseNote::kDeclarationDropped, lt, c, cur);
    return kLoop;
}

TreeParser::Step TreeParser::processingInstruction() {
    int& c = e.cursor;
    const int lt = c - 1;
    // Inside or after the top-level element, an instruction still goes to
    // the prolog.
    const bool moved = cur || completed;
    ++c;
    bool isDecl = strncasecmp(t + c, "xml ", 4) == 0;
    if (isDecl || strncasecmp(t + c, "xml-stylesheet", 14) == 0) {
        tagBuf.clear();
        e.captureToNext(" \t\r\n/>", tagBuf);
        skipWs(t, c);
        if (t[c] == '/') ++c;
        if (tagBuf.hasFailed()) return kFail;
        TreeNode* node = TreeNode::createRoot(tagBuf.getString());
        if (!node) return kFail;
        if (isDecl) {
            if (decl && decl->magic == kTreeMagicAlive) delete decl;  // the latest one wins
            decl = node;
        } else if (!sheets.append(node)) {
            delete node;
            return kFail;
        }
        if (tagBuf.getSize() > 0 && !node->tag) return kFail;
        if (!prologLineAttributes(e, node)) return kFail;
        if (notes && moved) notes->note(xmltree::ParseNote::kInstructionMoved, lt, c, cur);
        return kLoop;
    }
    processing.appendChar('<');
    processing.appendChar('?');
    e.seekAndCopy("?>", processing);
    processing.appendChar('\n');
    if (processing.hasFailed()) return kFail;
    if (notes && moved) notes->note(xmltree::ParseNote::kInstructionMoved, lt, c, cur);
    return kLoop;
}

void TreeNode::parsePrologLineAttr(ParseEngine& engine, TreeNode* node, LogBase* /*log*/) {
    if (node) node->editing();
    TreeParser::prologLineAttributes(engine, node);
}

bool TreeParser::prologLineAttributes(ParseEngine& engine, TreeNode* node) {
    const char* t = engine.textPtr;
    bool stored = true;
    int& c = engine.cursor;
    StringBuffer name;
    StringBuffer value;
    skipWs(t, c);
    while (t[c] != '\0' && t[c] != '>') {
        name.clear();
        value.clear();
        engine.captureToNext(" \t\r\n=?>", name);
        name.eliminateChar('"', 0);
        skipWs(t, c);
        if (t[c] == '=') {
            ++c;
            skipWs(t, c);
            bool quoted = false;
            if (t[c] == '"') {
                ++c;
                quoted = true;
            }
            if (t[c] == '\'') {
                ++c;
                quoted = true;
            }
            if (quoted) {
                engine.captureToNext5("\"'\r\n\n", value);
            } else {
                engine.captureToNext7(" \t\"'\r\n\n", value);
            }
            value.eliminateChar('"', 0);
            TreeParser::decodeIfAmp(value, 0);
            if (t[c] == '"') ++c;
            if (t[c] == '\'') ++c;
        }
        if (name.hasFailed() || value.hasFailed()) stored = false;
        if (node && !treeinternal::addCleanedAttribute(
                        node->attributes, name.getString(), static_cast<size_t>(name.getSize()),
                        value.getString(), static_cast<size_t>(value.getSize())))
            stored = false;
        skipWs(t, c);
        if (t[c] == '?') {
            ++c;
            skipWs(t, c);
        }
    }
    if (t[c] == '>') ++c;
    return stored;
}
