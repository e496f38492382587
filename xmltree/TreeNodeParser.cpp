// The forgiving markup parser, its prolog branches, the parse entry points
// and style-sheet text input.
//
// The parser is one forward pass over the engine's text. It never recurses:
// the parent links of the open elements are its stack. Malformed markup is
// logged and passed over; whatever was read is returned.

#include <strings.h>

#include <cstring>
#include <new>

#include "foundation/EncodingConvert.h"
#include "foundation/StringFunctions.h"
#include "xmltree/TreeNode.h"

namespace {

// Byte classes for the hot loops: only tab, LF, CR and space are whitespace.
struct ByteClass {
    bool ws[256];
    constexpr ByteClass() : ws() {
        ws[9] = true;   // tab
        ws[10] = true;  // line feed
        ws[13] = true;  // carriage return
        ws[32] = true;  // space
    }
};
constexpr ByteClass kByteClass;

inline bool isWs(char c) {
    return kByteClass.ws[static_cast<unsigned char>(c)];
}

inline void skipWs(const char* t, int& c) {
    while (isWs(t[c]))
        ++c;
}

inline bool isQuote(char c) {
    return c == '"' || c == '\'';
}

inline bool startsWith(const char* p, const char* s, size_t n) {
    return std::strncmp(p, s, n) == 0;
}

// Which characters each decoded reference stands for. The five references
// are disjoint (each holds one '&', and the replacement characters are none of
// '&', ';' or a letter), so no replacement can create or destroy a match of
// another. Replacing them one after the other, "&amp;" last, therefore gives
// the same bytes as one left-to-right pass that decodes all five at once and
// never rescans what it produced. That holds for every order used by the
// parser, since all of them end with "&amp;".
inline int matchEntity(const char* p, char& out) {
    // p[0] is '&'. The comparisons stop at the first differing byte, so they
    // never read past the terminating NUL.
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

}  // namespace

// State of one customParse call. The prolog items it collects belong to it
// until a finished root takes them; everything else it makes belongs to the
// tree under construction.
class TreeParser {
  public:
    TreeParser(ParseEngine& engine, LogBase* log, ProgressMonitor* monitor, bool trim)
        : e(engine),
          t(engine.textPtr),
          log(log),
          monitor(monitor),
          trim(trim),
          docType(2000),
          processing(2000) {}
    ~TreeParser() { releasePending(); }

    bool run(TreeNode** outRoot);

    // Decodes the five predefined references in sb from byte `from` on, in
    // place. Numeric and unknown references stay as written.
    static void decodeEntities(StringBuffer& sb, int from);
    static void decodeIfAmp(StringBuffer& sb, int from);

  private:
    enum Step { kLoop, kDispatch, kCdata, kStop, kFail };

    Step loopTop();
    Step textRun();
    Step dispatch();
    Step openingTag();
    Step closingTag();
    Step cdataSection();
    Step bangDeclaration();
    Step processingInstruction();
    void closeCurrent();
    void appendText(const char* run, int len);
    void finishRoot(TreeNode* r, bool deletePrevious);
    void finish(TreeNode** outRoot);
    void releaseAll();
    void releasePending();
    TreeNode* topOf(TreeNode* n) const;

    ParseEngine& e;
    const char* t;  // the engine's text; the parse never changes it
    LogBase* log;
    ProgressMonitor* monitor;
    bool trim;

    TreeNode* cur = nullptr;
    TreeNode* completed = nullptr;
    TreeNode* decl = nullptr;
    ExtPtrArray sheets;
    StringBuffer docType;
    StringBuffer processing;
    StringBuffer wsRun;
    StringBuffer tagBuf;
    StringBuffer nameBuf;
    StringBuffer valueBuf;
};

void TreeParser::decodeEntities(StringBuffer& sb, int from) {
    int size = sb.getSize();
    if (from < 0 || from >= size) return;
    // The buffer is never const: getString() gives the start of storage this
    // object owns, and only bytes already in it are rewritten (the text can
    // only shrink).
    char* base = const_cast<char*>(sb.getString());
    char* p = static_cast<char*>(std::memchr(base + from, '&', size - from));
    if (!p) return;
    char* end = base + size;
    char* w = p;
    while (p < end) {
        char* amp = static_cast<char*>(std::memchr(p, '&', end - p));
        if (!amp) amp = end;
        if (w != p) std::memmove(w, p, amp - p);
        w += amp - p;
        p = amp;
        if (p == end) break;
        char ch;
        int n = matchEntity(p, ch);
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
    if (from < sb.getSize() && std::memchr(sb.getString() + from, '&', sb.getSize() - from)) {
        decodeEntities(sb, from);
    }
}

TreeNode* TreeParser::topOf(TreeNode* n) const {
    while (n->parent)
        n = n->parent;
    return n;
}

bool TreeParser::run(TreeNode** outRoot) {
    if (monitor) {
        if (e.textBuf.getSize() > 0) {
            monitor->progressReset_32(static_cast<unsigned int>(e.textBuf.getSize()));
        } else {
            monitor = nullptr;  // an empty text gets no progress call at all
        }
    }
    Step step = kLoop;
    while (step != kStop) {
        switch (step) {
            case kLoop:
                step = loopTop();
                break;
            case kDispatch:
                step = dispatch();
                break;
            case kCdata:
                step = cdataSection();
                break;
            case kFail:
                releaseAll();
                return false;
            case kStop:
                break;
        }
    }
    finish(outRoot);
    return true;
}

TreeParser::Step TreeParser::loopTop() {
    int& c = e.cursor;
    if (t[c] == '\0') return kStop;
    if (cur) return textRun();
    skipWs(t, c);
    if (t[c] == '\0') return kStop;
    if (t[c] != '<') e.skipUntilChar('<');  // text outside elements is dropped
    if (t[c] != '<') return kStop;
    ++c;
    return kDispatch;
}

TreeParser::Step TreeParser::textRun() {
    int& c = e.cursor;
    if (trim) {
        skipWs(t, c);
    } else {
        wsRun.clear();
        int start = c;
        skipWs(t, c);
        wsRun.appendN(t + start, c - start);
    }
    int start = c;
    if (t[c] == '<' && t[c + 1] == '!' && startsWith(t + c, "<![CDATA[", 9)) return kCdata;
    if (t[c] != '<') e.skipUntilChar('<');
    int runEnd = c;
    if (t[c] == '<') ++c;
    if (trim) {
        while (runEnd > start && isWs(t[runEnd - 1]))
            --runEnd;
    }
    if (runEnd > start) {
        appendText(t + start, runEnd - start);
    } else if (!trim && wsRun.getSize() > 0 && cur->getNumChildren() == 0) {
        if (!cur->content) cur->content = StringBuffer::createNewSB();
        if (cur->content) cur->content->append(wsRun);
    }
    if (t[c] == '!' && startsWith(t + c, "![CDATA[", 8)) {
        --c;
        return kCdata;
    }
    return kDispatch;
}

void TreeParser::appendText(const char* run, int len) {
    StringBuffer* sb = cur->content;
    int from = 0;
    if (!sb) {
        if (trim) {
            sb = new (std::nothrow) StringBuffer(run, len, 20);
        } else {
            sb = StringBuffer::createNewSB();
            if (sb) {
                sb->append(wsRun);
                sb->appendN(run, len);
            }
        }
        if (!sb) return;  // the run is dropped; parsing goes on
        cur->content = sb;
    } else {
        if (!trim) sb->append(wsRun);
        from = sb->getSize();
        if (from != 0) sb->appendChar(' ');
        sb->appendN(run, len);
    }
    if (std::memchr(run, '&', len)) decodeEntities(*sb, from);
}

TreeParser::Step TreeParser::dispatch() {
    int& c = e.cursor;
    char noted = t[c];
    skipWs(t, c);
    if (t[c] == '\0') return kStop;
    switch (noted) {
        case '?':
            return processingInstruction();
        case '/':
            return closingTag();
        case '!':
            return bangDeclaration();
        default:
            return openingTag();
    }
}

TreeParser::Step TreeParser::openingTag() {
    int& c = e.cursor;
    tagBuf.clear();
    e.captureToNext7(" \t\r\n/>>", tagBuf);
    if (t[c] == '\0') return kStop;  // a tag cut off by the end makes no element
    tagBuf.removeCharOccurances('<');
    bool selfClosing = false;
    skipWs(t, c);
    if (t[c] == '/') {
        ++c;
        selfClosing = true;
    }
    TreeNode* node = cur ? TreeNode::createNode(cur, tagBuf.getString())
                         : TreeNode::createRoot(tagBuf.getString());
    if (!node) return kStop;
    cur = node;
    skipWs(t, c);
    while (t[c] != '\0' && t[c] != '>') {
        nameBuf.clear();
        valueBuf.clear();
        e.captureToNext7(" \t\r\n=/>", nameBuf);
        // Quotes and '<' are never name bytes, so a name that is clean already
        // (nearly every real one) has none of them to remove.
        if (StringBuffer::cleanXmlTagPrefix(nameBuf.getString(), nameBuf.getSize()) !=
            nameBuf.getSize()) {
            nameBuf.eliminateChar('"', 0);
            nameBuf.eliminateChar('\'', 0);
            nameBuf.removeCharOccurances('<');
        }
        skipWs(t, c);
        if (t[c] == '=') {
            ++c;
            skipWs(t, c);
            char q = t[c];
            if (isQuote(q)) {
                ++c;
                e.captureToNext2(q == '"' ? "\"\"" : "''", valueBuf);
            } else {
                e.captureToNext2("'\"", valueBuf);  // unquoted: runs to the next quote
            }
            decodeIfAmp(valueBuf, 0);
            if (isQuote(t[c])) ++c;
        }
        if (nameBuf.getSize() > 0) node->addAttribute(nameBuf.getString(), valueBuf.getString());
        skipWs(t, c);
        if (t[c] == '/') {
            ++c;
            skipWs(t, c);
            selfClosing = true;
        }
    }
    if (t[c] == '>') ++c;
    if (selfClosing) closeCurrent();
    return kLoop;
}

void TreeParser::closeCurrent() {
    if (cur->parent) {
        cur = cur->parent;
    } else {
        finishRoot(cur, true);
    }
}

TreeParser::Step TreeParser::closingTag() {
    int& c = e.cursor;
    if (monitor) {
        bool abort = false;
        monitor->setAmountConsumed2_32(static_cast<unsigned int>(c), abort);
    }
    if (e.skipUntilChar2('>', '<')) {
        ++c;
    } else {
        log->logError("Error in closing tag");
        if (cur) log->logNameValue("error_tag", cur->getTag());
    }
    if (!cur) return kLoop;
    // The name in the closing tag is never compared: it closes whatever is open.
    if (!trim && cur->getNumChildren() > 0 && cur->content) {
        cur->content->trim2();
        if (cur->content->getSize() == 0) {
            delete cur->content;
            cur->content = nullptr;
        }
    }
    closeCurrent();
    return kLoop;
}

TreeParser::Step TreeParser::cdataSection() {
    int& c = e.cursor;
    for (;;) {
        c += 9;
        if (!cur->content) {
            cur->content = StringBuffer::createNewSB(120);
            if (!cur->content) return kFail;
        }
        StringBuffer& sb = *cur->content;
        e.captureToNextChar(']', sb);
        while (t[c] != '\0' && !(t[c + 1] == ']' && t[c + 2] == '>')) {
            sb.appendChar(']');
            ++c;
            e.captureToNextChar(']', sb);
        }
        if (t[c] != '\0') c += 3;
        cur->cdata = true;
        if (t[c] != '<') e.skipUntilChar('<');  // text after "]]>" is dropped
        if (t[c] != '<') return kLoop;
        if (!startsWith(t + c, "<![CDATA[", 9)) break;
    }
    ++c;
    return kDispatch;
}

TreeParser::Step TreeParser::bangDeclaration() {
    int& c = e.cursor;
    if (strncasecmp(t + c, "!--", 3) == 0) {
        if (e.seekAndSkipExact("-->")) return kLoop;
        log->logError("Unclosed comment");
        return kStop;
    }
    if (strncasecmp(t + c, "!DOCTYPE", 8) == 0) {
        docType.appendChar('<');
        if (!e.seekAndCopyToClosing('<', '>', 1, docType)) log->logError("Failed to parse DTD");
        docType.appendChar('\n');
        return kLoop;
    }
    if (t[c] != '>') e.skipUntilChar('>');
    if (t[c] == '>') ++c;
    return kLoop;
}

TreeParser::Step TreeParser::processingInstruction() {
    int& c = e.cursor;
    ++c;
    bool isDecl = strncasecmp(t + c, "xml ", 4) == 0;
    if (isDecl || strncasecmp(t + c, "xml-stylesheet", 14) == 0) {
        tagBuf.clear();
        e.captureToNext(" \t\r\n/>", tagBuf);
        skipWs(t, c);
        if (t[c] == '/') ++c;
        TreeNode* node = TreeNode::createRoot(tagBuf.getString());
        if (isDecl) {
            if (decl && decl->magic == kTreeMagicAlive) delete decl;  // the latest one wins
            decl = node;
        } else if (node && !sheets.append(node)) {
            delete node;
            node = nullptr;
        }
        TreeNode::parsePrologLineAttr(e, node, log);
        return kLoop;
    }
    processing.appendChar('<');
    processing.appendChar('?');
    e.seekAndCopy("?>", processing);
    processing.appendChar('\n');
    return kLoop;
}

void TreeParser::finishRoot(TreeNode* r, bool deletePrevious) {
    TreeInfo* info = r->treeInfo;
    if (info) {
        info->xmlDecl = decl;
        TreeNode::transferStyleSheets(sheets, info->styleSheets);
        decl = nullptr;
    }
    r->setDocType(docType.getString());
    r->setProcessing(processing.getString());
    // A later top-level element replaces an earlier one.
    if (deletePrevious && completed && completed->magic == kTreeMagicAlive) delete completed;
    completed = r;
    cur = nullptr;
}

void TreeParser::finish(TreeNode** outRoot) {
    if (cur) {
        TreeNode* top = topOf(cur);
        if (!completed) {
            finishRoot(top, false);  // open elements are closed silently
        } else {
            // A later top-level element that never closed is not returned.
            cur = nullptr;
            if (top->magic == kTreeMagicAlive) delete top;
        }
    }
    if (monitor) monitor->consumeRemaining(112);
    *outRoot = completed;
    completed = nullptr;
    releasePending();
}

void TreeParser::releasePending() {
    if (decl && decl->magic == kTreeMagicAlive) delete decl;
    decl = nullptr;
    for (int i = 0; i < sheets.getSize(); ++i) {
        TreeNode* n = static_cast<TreeNode*>(sheets.elementAt(i));
        if (n && n->magic == kTreeMagicAlive) delete n;
    }
    sheets.removeAll();
}

void TreeParser::releaseAll() {
    if (cur) {
        TreeNode* top = topOf(cur);
        cur = nullptr;
        if (top != completed && top->magic == kTreeMagicAlive) delete top;
    }
    if (completed && completed->magic == kTreeMagicAlive) delete completed;
    completed = nullptr;
    releasePending();
}

bool TreeNode::customParse(ParseEngine& engine, LogBase* log, ProgressMonitor* monitor,
                           TreeNode** outRoot, bool trimWhitespace) {
    LogNull nullLog;
    if (!log) log = &nullLog;
    if (!outRoot) return false;
    *outRoot = nullptr;
    TreeParser parser(engine, log, monitor, trimWhitespace);
    return parser.run(outRoot);
}

void TreeNode::parsePrologLineAttr(ParseEngine& engine, TreeNode* node, LogBase* /*log*/) {
    const char* t = engine.textPtr;
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
        if (node) node->addAttribute(name.getString(), value.getString());
        skipWs(t, c);
        if (t[c] == '?') {
            ++c;
            skipWs(t, c);
        }
    }
    if (t[c] == '>') ++c;
}

// ---- entry points ---------------------------------------------------------

bool TreeNode::customParseFile(const char* path, LogBase* log, ProgressMonitor* monitor,
                               TreeNode** outRoot, bool trimWhitespace) {
    LogNull nullLog;
    if (!log) log = &nullLog;
    DataBuffer data;
    if (!loadToUtf8(path, data, *log)) return false;
    ParseEngine engine(data);
    bool ok = customParse(engine, log, monitor, outRoot, trimWhitespace);
    if (ok && outRoot && *outRoot) {
        // The tree holds UTF-8 now; a declared 16-bit encoding would be a lie.
        StringBuffer enc;
        bool found = false;
        (*outRoot)->getDocEncoding(enc, found);
        if (found && (enc.equalsIgnoreCase("utf-16") || enc.equalsIgnoreCase("ucs-2") ||
                      enc.equalsIgnoreCase("unicode"))) {
            (*outRoot)->setDocEncoding("utf-8");
        }
    }
    return ok;
}

bool TreeNode::customParseStringN(const char* text, int n, ProgressMonitor* monitor,
                                  TreeNode** outRoot, bool trimWhitespace) {
    ParseEngine engine;
    if (text && n > 0) engine.appendN(text, n);
    return customParse(engine, nullptr, monitor, outRoot, trimWhitespace);
}

bool TreeNode::customParseString(const StringBuffer& text, LogBase* log, ProgressMonitor* monitor,
                                 TreeNode** outRoot, bool trimWhitespace) {
    ParseEngine engine;
    engine.append(text.getString());
    return customParse(engine, log, monitor, outRoot, trimWhitespace);
}

bool TreeNode::customParseUtf8Data(DataBuffer& data, ProgressMonitor* monitor, LogBase& log,
                                   TreeNode** outRoot, bool trimWhitespace) {
    ParseEngine engine(data);
    engine.cursor = 0;
    return customParse(engine, &log, monitor, outRoot, trimWhitespace);
}

bool TreeNode::customParseData2(DataBuffer& data, ProgressMonitor* monitor, LogBase& log,
                                TreeNode** outRoot, bool trimWhitespace) {
    if (!convertXmlToUtf8(data, log)) {
        log.logError("Failed to convert XML data to utf-8 internal representation");
        return false;
    }
    return customParseUtf8Data(data, monitor, log, outRoot, trimWhitespace);
}

// ---- style-sheet text input -------------------------------------------------

bool TreeNode::addStyleSheet(const char* text, LogBase& log) {
    if (!text) return false;
    ParseEngine engine;
    engine.append(text);
    engine.skipUntilChar('<');
    const char* t = engine.textPtr;
    int& c = engine.cursor;
    if (t[c] != '<') return false;
    ++c;
    skipWs(t, c);
    if (t[c] == '\0') return false;
    if (strncasecmp(t + c, "?xml-stylesheet ", 15) != 0) return false;
    StringBuffer name;
    engine.captureToNext(" \t\r\n/>", name);
    skipWs(t, c);
    if (t[c] == '/') ++c;
    TreeNode* node = createRoot(name.getString());
    ExtPtrArray list;
    if (node) list.append(node);
    parsePrologLineAttr(engine, node, &log);
    if (treeInfo) {
        transferStyleSheets(list, treeInfo->styleSheets);
    } else if (node) {
        delete node;  // nothing keeps a declaration for a node outside any tree
    }
    return true;
}
