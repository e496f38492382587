// The forgiving markup parser, its prolog branches, the parse entry points
// and style-sheet text input.
//
// The parser is one forward pass over the engine's text. It never recurses:
// the parent links of the open elements are its stack. Malformed markup is
// logged and passed over; whatever was read is returned.

#include <strings.h>

#include <cstring>
#include <new>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

inline const char* skipWs(const char* p) {
    while (isWs(*p))
        ++p;
    return p;
}

// Wide scans for the long runs of a document: indentation, closing tags and
// attribute values. `end` is the text's terminating NUL; the scans read 16
// bytes a step up to it and finish byte by byte, and a NUL met earlier
// stops them as it stops the byte loops.
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

// The first a, b or NUL at or after p.
inline const char* findEither(const char* p, const char* end, char a, char b) {
#if defined(__SSE2__)
    for (int i = 0; i < 4; ++i, ++p) {
        if (*p == a || *p == b || *p == '\0') return p;
    }
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

inline bool isQuote(char c) {
    return c == '"' || c == '\'';
}

// Name scanning: each byte is a name byte, one that ends the name, or one
// that cleaning would remove. Tag names end at NUL, whitespace, '/' and '>';
// attribute names at those and '='.
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

inline const char* scanToNameEnd(const char* p, const unsigned char (&cls)[256]) {
    while (cls[static_cast<unsigned char>(*p)] != kNameEnd)
        ++p;
    return p;
}

// Length of the name at p when it needs no cleaning, else -1.
inline int cleanNameLength(const char* p, const unsigned char (&cls)[256]) {
    const char* q = p;
    while (cls[static_cast<unsigned char>(*q)] == kNameByte)
        ++q;
    return cls[static_cast<unsigned char>(*q)] == kNameEnd ? static_cast<int>(q - p) : -1;
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

// The steps of the main loop are folded into it, so that the cursor stays in
// a register across a whole element; left as calls they cost about a tenth
// of the parse time.
#if defined(__GNUC__)
#define XMLTREE_HOT_STEP inline __attribute__((always_inline))
#else
#define XMLTREE_HOT_STEP inline
#endif

// State of one customParse call. The prolog items it collects belong to it
// until a finished root takes them; everything else it makes belongs to the
// tree under construction.
class TreeParser {
  public:
    TreeParser(ParseEngine& engine, LogBase* logger, ProgressMonitor* progress, bool trimWs)
        : e(engine),
          t(engine.textPtr),
          textEnd(engine.textPtr + engine.getTextSize()),
          log(logger),
          monitor(progress),
          trim(trimWs),
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

    // The hot steps move a cursor the caller keeps in a local pointer, so
    // that it stays in a register rather than being reloaded after every
    // store into a buffer; the rare ones go through the engine's cursor.
    XMLTREE_HOT_STEP Step loopTop(const char*& pos);
    XMLTREE_HOT_STEP Step textRun(const char*& pos);
    XMLTREE_HOT_STEP Step dispatch(const char*& pos);
    XMLTREE_HOT_STEP Step openingTag(const char*& pos);
    XMLTREE_HOT_STEP Step closingTag(const char*& pos);
    Step viaEngine(const char*& pos, Step (TreeParser::*step)());
    XMLTREE_HOT_STEP TreeNode* newChild(const char* name, int len);
    TreeNode* newElement(const char* name, int len);
    struct PendingAttr {
        const char* name;
        int nameLen;
        const char* value;
        int valueLen;
        int decodedAt;  // offset of the value in `decoded`, or -1 (it is in the text)
    };
    XMLTREE_HOT_STEP const char* attribute(const char* p, TreeNode* node);
    XMLTREE_HOT_STEP const char* scanValue(const char* p, PendingAttr& a);
    void flushAttributes(TreeNode* node);
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
    const char* textEnd;  // its terminating NUL
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
    StringBuffer decoded;
    static constexpr int kMaxPending = 32;
    PendingAttr pending[kMaxPending] = {};
    int numPending = 0;
};

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
    if (from < sb.getSize() &&
        std::memchr(sb.getString() + from, '&', static_cast<size_t>(sb.getSize() - from))) {
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
    const char* p = t + e.cursor;
    Step step = kLoop;
    while (step != kStop) {
        switch (step) {
            case kLoop:
                step = loopTop(p);
                break;
            case kDispatch:
                step = dispatch(p);
                break;
            case kCdata:
                step = viaEngine(p, &TreeParser::cdataSection);
                break;
            case kFail:
                releaseAll();
                return false;
            case kStop:
                break;
        }
    }
    e.cursor = static_cast<int>(p - t);
    finish(outRoot);
    return true;
}

TreeParser::Step TreeParser::viaEngine(const char*& pos, Step (TreeParser::*step)()) {
    e.cursor = static_cast<int>(pos - t);
    Step next = (this->*step)();
    pos = t + e.cursor;
    return next;
}

TreeParser::Step TreeParser::loopTop(const char*& pos) {
    const char* p = pos;
    if (*p == '\0') return kStop;
    if (cur) return textRun(pos);
    p = skipWs(p);
    if (*p != '<') p = ParseEngine::findCharOrEnd(p, '<');  // text outside elements is dropped
    pos = p;
    if (*p != '<') return kStop;
    pos = p + 1;
    return kDispatch;
}

TreeParser::Step TreeParser::textRun(const char*& pos) {
    const char* p = pos;
    if (trim) {
        p = skipWsRun(p, textEnd);
    } else {
        wsRun.clear();
        const char* start = p;
        p = skipWsRun(p, textEnd);
        wsRun.appendN(start, static_cast<int>(p - start));
    }
    const char* start = p;
    if (p[0] == '<' && p[1] == '!' && startsWith(p, "<![CDATA[", 9)) {
        pos = p;
        return kCdata;
    }
    if (*p != '<') p = ParseEngine::findCharOrEnd(p, '<');
    const char* runEnd = p;
    if (*p == '<') ++p;
    if (trim) {
        while (runEnd > start && isWs(runEnd[-1]))
            --runEnd;
    }
    if (runEnd > start) {
        appendText(start, static_cast<int>(runEnd - start));
    } else if (!trim && wsRun.getSize() > 0 && cur->getNumChildren() == 0) {
        if (!cur->content) cur->content = StringBuffer::createNewSB();
        if (cur->content) cur->content->append(wsRun);
    }
    if (*p == '!' && startsWith(p, "![CDATA[", 8)) {
        pos = p - 1;
        return kCdata;
    }
    pos = p;
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
    if (std::memchr(run, '&', static_cast<size_t>(len))) decodeEntities(*sb, from);
}

TreeParser::Step TreeParser::dispatch(const char*& pos) {
    const char noted = *pos;
    pos = skipWs(pos);
    if (*pos == '\0') return kStop;
    switch (noted) {
        case '?':
            return viaEngine(pos, &TreeParser::processingInstruction);
        case '/':
            return closingTag(pos);
        case '!':
            return viaEngine(pos, &TreeParser::bangDeclaration);
        default:
            return openingTag(pos);
    }
}

TreeParser::Step TreeParser::openingTag(const char*& pos) {
    const char* name = pos;
    const int cleanLen = cleanNameLength(name, kNames.tag);
    const char* end = cleanLen >= 0 ? name + cleanLen : scanToNameEnd(name, kNames.tag);
    pos = end;
    if (*end == '\0') return kStop;  // a tag cut off by the end makes no element
    bool selfClosing = false;
    const char* p = skipWs(end);
    if (*p == '/') {
        ++p;
        selfClosing = true;
    }
    TreeNode* node = cleanLen >= 0 && cur ? newChild(name, cleanLen)
                                          : newElement(name, static_cast<int>(end - name));
    if (!node) {
        pos = p;
        return kStop;
    }
    cur = node;
    p = skipWs(p);
    decoded.clear();
    while (*p != '\0' && *p != '>') {
        p = skipWs(attribute(p, node));
        if (*p == '/') {
            p = skipWs(p + 1);
            selfClosing = true;
        }
    }
    flushAttributes(node);
    if (*p == '>') ++p;
    pos = p;
    if (selfClosing) closeCurrent();
    return kLoop;
}

// The common case: a clean name under an open element. The tag is stored
// straight from the text, and the node, fresh and childless, is attached
// without the checks and subtree walk a general append makes.
TreeNode* TreeParser::newChild(const char* name, int len) {
    if (!cur->treeInfo) return nullptr;
    TreeNode* node = new (std::nothrow) TreeNode();
    if (!node) return nullptr;
    if (len > 0) {
        node->tag = new (std::nothrow) StringBuffer(name, len, 0);
        if (node->tag && node->tag->getSize() != len) {
            delete node->tag;
            node->tag = nullptr;
        }
    }
    ExtPtrArray* kids = cur->children;
    if (!kids) {
        // Siblings tend to have alike shapes; size the array after the
        // previous sibling's.
        int cap = 5;
        if (cur->prevSibling && cur->prevSibling->getNumChildren() > 0)
            cap = cur->prevSibling->getNumChildren();
        kids = cur->children = new (std::nothrow) ExtPtrArray(cap, 5);
    }
    TreeNode* last = kids ? static_cast<TreeNode*>(kids->lastElement()) : nullptr;
    if (!kids || !kids->append(node)) {
        delete node;
        return nullptr;
    }
    if (last) last->nextSibling = node;
    node->prevSibling = last;
    node->parent = cur;
    node->treeInfo = cur->treeInfo;
    return node;
}

TreeNode* TreeParser::newElement(const char* name, int len) {
    tagBuf.clear();
    tagBuf.appendN(name, len);
    tagBuf.removeCharOccurances('<');
    return cur ? TreeNode::createNode(cur, tagBuf.getString())
               : TreeNode::createRoot(tagBuf.getString());
}

// One name, optionally "=" and a value, at p; returns where it ends. A clean
// name and its value wait in `pending` until the tag ends, so that the node's
// attribute storage is sized once, exactly; a name that needs cleaning goes
// through addAttribute, after those before it.
const char* TreeParser::attribute(const char* p, TreeNode* node) {
    const char* name = p;
    int nameLen = cleanNameLength(name, kNames.attr);
    const bool clean = nameLen >= 0;
    if (clean) {
        p += nameLen;
    } else {
        p = scanToNameEnd(name, kNames.attr);
        nameBuf.clear();
        nameBuf.appendN(name, static_cast<int>(p - name));
        // Quotes and '<' are never name bytes.
        nameBuf.eliminateChar('"', 0);
        nameBuf.eliminateChar('\'', 0);
        nameBuf.removeCharOccurances('<');
        name = nameBuf.getString();
        nameLen = nameBuf.getSize();
    }
    p = skipWs(p);
    PendingAttr a{name, nameLen, "", 0, -1};
    if (*p == '=') p = scanValue(skipWs(p + 1), a);
    if (nameLen == 0) return p;
    if (clean && !StringBuffer::isBadXmlNameStart(name[0])) {
        if (numPending == kMaxPending) flushAttributes(node);
        pending[numPending++] = a;
        return p;
    }
    flushAttributes(node);
    if (clean) {
        nameBuf.clear();
        nameBuf.appendN(name, nameLen);
    }
    valueBuf.clear();
    if (a.decodedAt >= 0) {
        valueBuf.appendN(decoded.getString() + a.decodedAt, a.valueLen);
    } else {
        valueBuf.appendN(a.value, a.valueLen);
    }
    node->addAttribute(nameBuf.getString(), valueBuf.getString());
    return p;
}

// The value at p: quoted, up to the same quote; unquoted, up to the next
// quote of either kind. A value holding '&' is decoded into `decoded`.
// Returns where the value ends, past its closing quote.
const char* TreeParser::scanValue(const char* p, PendingAttr& a) {
    const char q = *p;
    const char* value = p + (isQuote(q) ? 1 : 0);
    const char* end;
    bool amp = false;
    if (isQuote(q)) {
        end = findEither(value, textEnd, q, '&');
        while (*end == '&') {
            amp = true;
            end = findEither(end + 1, textEnd, q, '&');
        }
    } else {
        end = findEither(value, textEnd, '"', '\'');
        amp = std::memchr(value, '&', static_cast<size_t>(end - value)) != nullptr;
    }
    a.value = value;
    a.valueLen = static_cast<int>(end - value);
    if (amp) {
        const int from = decoded.getSize();
        decoded.appendN(value, a.valueLen);
        decodeEntities(decoded, from);
        a.decodedAt = from;
        a.valueLen = decoded.getSize() - from;
    }
    return isQuote(*end) ? end + 1 : end;
}

void TreeParser::flushAttributes(TreeNode* node) {
    if (numPending == 0) return;
    size_t bytes = 0;
    for (int i = 0; i < numPending; ++i)
        bytes += static_cast<size_t>(pending[i].nameLen) + static_cast<size_t>(pending[i].valueLen);
    if (!node->attributes) node->attributes = new (std::nothrow) AttributeSet();
    if (node->attributes) {
        node->attributes->reserveExact(numPending, bytes);
        for (int i = 0; i < numPending; ++i) {
            const PendingAttr& a = pending[i];
            const char* value = a.decodedAt >= 0 ? decoded.getString() + a.decodedAt : a.value;
            node->attributes->addAttributeN(a.name, a.nameLen, value, a.valueLen);
        }
    }
    numPending = 0;
}

void TreeParser::closeCurrent() {
    if (cur->parent) {
        cur = cur->parent;
    } else {
        finishRoot(cur, true);
    }
}

TreeParser::Step TreeParser::closingTag(const char*& pos) {
    const char* p = pos;
    if (monitor) {
        bool abort = false;
        monitor->setAmountConsumed2_32(static_cast<unsigned int>(p - t), abort);
    }
    p = findEither(p, textEnd, '>', '<');
    if (*p == '>') {
        ++p;
    } else {
        e.cursor = static_cast<int>(p - t);  // a log may report where the parse stands
        log->logError("Error in closing tag");
        if (cur) log->logNameValue("error_tag", cur->getTag());
    }
    pos = p;
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
