// The forgiving markup parser: the main loop, elements, attributes, text
// runs and closing tags. The branches for other markup are in
// TreeNodeMarkup.cpp, the entry points in TreeNodeParseEntry.cpp.
//
// The parser is one forward pass over the engine's text. It never recurses:
// the parent links of the open elements are its stack. Malformed markup is
// logged and passed over; whatever was read is returned.

#include <cstring>
#include <new>

#include "foundation/WithRoom.h"
#include "foundation/ByteScan.h"
#include "foundation/PoolSlabs.h"
#include "xmltree/TreeParser.h"

using bytescan::cleanNameLength;
using bytescan::findEither;
using bytescan::isQuote;
using bytescan::isWs;
using bytescan::kNames;
using bytescan::scanToNameEnd;
using bytescan::skipWs;
using bytescan::skipWsRun;
using bytescan::startsWith;

TreeNode* TreeParser::topOf(TreeNode* n) const {
    while (n->parent)
        n = n->parent;
    return n;
}

bool TreeParser::run(TreeNode** outRoot) {
    if (e.textBuf.hasFailed()) {
        // The text is not all there: parsing what is would be a silent cut.
        log->logError(e.isTooLarge() ? "Input too large" : "Out of memory");
        return false;
    }
    if (monitor) {
        if (e.textBuf.getSize() > 0) {
            monitor->progressReset_32(static_cast<unsigned int>(e.textBuf.getSize()));
        } else {
            monitor = nullptr;  // an empty text gets no progress call at all
        }
    }
    closeHooks = monitor || notes;
    if (notes) return runNoted(outRoot);
    const char* p = t + e.cursor;
    Step step = kLoop;
    while (step != kStop) {
        switch (step) {
            case kLoop:
                step = failed ? kFail : loopTop(p);
                break;
            case kDispatch:
                step = dispatch(p);
                break;
            case kCdata:
                step = viaEngine(p, &TreeParser::cdataSection);
                break;
            case kFail:
                e.cursor = static_cast<int>(p - t);
                return fail();
            case kStop:
                break;
        }
    }
    e.cursor = static_cast<int>(p - t);
    if (failed || !finish(outRoot)) return fail();
    return true;
}

bool TreeParser::fail() {
    releaseAll();
    log->logError("Out of memory");
    return false;
}

// The main loop for a logger that wants notes: the same steps but for the
// opening tags, which are noted around the common step. So the loop of
// every other parse has no trace of them.
bool TreeParser::runNoted(TreeNode** outRoot) {
    notes->checkText();
    const char* p = t + e.cursor;
    Step step = kLoop;
    while (step != kStop) {
        switch (step) {
            case kLoop:
                step = failed ? kFail : loopTop(p);
                break;
            case kDispatch:
                step = notedDispatch(p);
                break;
            case kCdata:
                step = viaEngine(p, &TreeParser::cdataSection);
                break;
            case kFail:
                e.cursor = static_cast<int>(p - t);
                return fail();
            case kStop:
                break;
        }
    }
    e.cursor = static_cast<int>(p - t);
    if (failed || !finish(outRoot)) return fail();
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
    if (*p != '<') {
        const char* lt = bytescan::findCharOrEnd(p, '<');  // text outside elements is dropped
        if (notes) notes->outside(p, lt);
        p = lt;
    }
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
        if (!wsRun.appendN(start, static_cast<int>(p - start))) return kFail;
    }
    const char* start = p;
    if (p[0] == '<' && p[1] == '!' && startsWith(p, "<![CDATA[", 9)) {
        pos = p;
        return kCdata;
    }
    if (*p != '<') p = bytescan::findCharOrEnd(p, '<');
    const char* runEnd = p;
    if (*p == '<') ++p;
    if (trim) {
        while (runEnd > start && isWs(runEnd[-1]))
            --runEnd;
    }
    if (runEnd > start) {
        const int len = static_cast<int>(runEnd - start);
        if (trim && !cur->content && !notes) {
            // The common case, an element's first text, is stored here rather
            // than through a call; a buffer that cannot be made drops the run.
            StringBuffer* sb = xmltree::WithRoom::text(start, len);
            cur->content = sb;
            if (sb && bytescan::holds(start, static_cast<size_t>(len), '&')) decodeEntities(*sb, 0);
        } else if (!appendText(start, len)) {
            return kFail;
        }
    } else if (!trim && wsRun.getSize() > 0 && cur->getNumChildren() == 0) {
        if (!appendWhitespaceOnly()) return kFail;
    }
    if (*p == '!' && startsWith(p, "![CDATA[", 8)) {
        pos = p - 1;
        return kCdata;
    }
    pos = p;
    return kDispatch;
}

// False when the text could not be stored. A content buffer that cannot be
// made at all only costs its run, which is dropped while parsing goes on.
bool TreeParser::appendText(const char* run, int len) {
    if (notes) notes->textRun(run, len, cur);
    StringBuffer* sb = cur->content;
    int from = 0;
    if (!sb) {
        if (trim) {
            sb = xmltree::WithRoom::text(run, len);
        } else {
            sb = StringBuffer::createNewSB();
            if (sb) {
                sb->append(wsRun);
                sb->appendN(run, len);
            }
        }
        if (!sb) return true;
        cur->content = sb;
    } else {
        if (!trim) sb->append(wsRun);
        from = sb->getSize();
        if (from != 0) sb->appendChar(' ');
        sb->appendN(run, len);
    }
    if (sb->hasFailed()) return false;
    if (bytescan::holds(run, static_cast<size_t>(len), '&')) decodeEntities(*sb, from);
    return true;
}

// Whitespace alone stays as the content of an element without children, as
// long as whitespace is kept; a buffer that cannot be made drops it.
bool TreeParser::appendWhitespaceOnly() {
    if (!cur->content) cur->content = StringBuffer::createNewSB();
    return !cur->content || cur->content->append(wsRun);
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

// Dispatch with the opening tag noted: the element made is the one opened,
// or the child (or top-level element) that a self-closing tag added.
TreeParser::Step TreeParser::notedDispatch(const char*& pos) {
    const char noted = *pos;
    if (noted == '?' || noted == '/' || noted == '!') return dispatch(pos);
    pos = skipWs(pos);
    if (*pos == '\0') return kStop;
    TreeNode* const parent = cur;
    const int children = parent ? parent->getNumChildren() : 0;
    const TreeNode* const previousRoot = completed;
    const char* const name = pos;
    notes->tagStarts(name, !parent);
    const Step next = openingTag(pos);
    const TreeNode* made = nullptr;
    if (cur && cur != parent) {
        made = cur;
    } else if (parent && cur == parent && parent->getNumChildren() == children + 1) {
        made = parent->getChild(children);
    } else if (!parent && !cur && completed != previousRoot) {
        made = completed;
    }
    if (made) notes->elementStart(name, scanToNameEnd(name, kNames.tag), made);
    return next;
}

TreeParser::Step TreeParser::openingTag(const char*& pos) {
    const char* name = pos;
    const int cleanLen = cleanNameLength(name, kNames.tag);
    const char* end = cleanLen >= 0 ? name + cleanLen : scanToNameEnd(name, kNames.tag);
    pos = end;
    if (*end == '\0') {  // a tag cut off by the end makes no element
        if (notes) notes->tagCutOff(name);
        return kStop;
    }
    bool selfClosing = false;
    const char* p = skipWs(end);
    if (*p == '/') {
        p = skipWs(p + 1);
        selfClosing = true;
    }
    TreeNode* node = cleanLen >= 0 && cur ? newChild(name, cleanLen)
                                          : newElement(name, static_cast<int>(end - name));
    pos = p;
    if (!node) return kFail;
    cur = node;
    if (decoded.getSize() != 0) decoded.clear();
    while (*p != '\0' && *p != '>') {
        p = skipWs(attribute(p, node));
        if (*p == '/') {
            p = skipWs(p + 1);
            selfClosing = true;
        }
    }
    pos = p;
    if (numPending != 0) {
        // The common case, a fresh element whose pairs are all in the text,
        // makes its set here rather than through a call.
        if (!node->attributes && !pendingInDecoded) {
            if (!firstSet(node)) return kFail;
        } else if (!flushAttributes(node)) {
            return kFail;
        }
    }
    if (failed || decoded.hasFailed()) return kFail;
    if (setGrew) {
        if (node->attributes) node->attributes->shrinkToFit();
        setGrew = false;
    }
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
    TreeNode* node = xmltree::pool::make<TreeNode>();
    if (!node) return nullptr;
    if (len > 0 && !node->makeTag(name, len)) {
        delete node;
        return nullptr;
    }
    if (!TreeNodeLinks::linkLast(cur, node)) {
        delete node;
        return nullptr;
    }
    node->treeInfo = cur->treeInfo;
    return node;
}

// Null when memory runs out.
TreeNode* TreeParser::newElement(const char* name, int len) {
    tagBuf.clear();
    if (!tagBuf.appendN(name, len)) return nullptr;
    tagBuf.removeCharOccurances('<');
    TreeNode* node = cur ? TreeNode::createNode(cur, tagBuf.getString())
                         : TreeNode::createRoot(tagBuf.getString());
    if (!node || (tagBuf.getSize() == 0 || (node->tag && !node->tag->hasFailed()))) return node;
    // The node was made but its tag could not be stored. Under a parent it
    // already belongs to the tree, which goes as a whole.
    if (!cur) delete node;
    return nullptr;
}

// One name, optionally "=" and a value, at p; returns where it ends. A clean
// name and its value wait in `pending` until the tag ends, so that the node's
// attribute storage is sized once, exactly; a name that needs cleaning goes
// through addAttribute, after those before it.
const char* TreeParser::attribute(const char* p, TreeNode* node) {
    const char* const raw = p;
    const char* name = p;
    int nameLen = cleanNameLength(name, kNames.attr);
    const bool clean = nameLen >= 0;
    if (clean) {
        p += nameLen;
    } else {
        p = scanToNameEnd(name, kNames.attr);
        nameBuf.clear();
        if (!nameBuf.appendN(name, static_cast<int>(p - name))) failed = true;
        // Quotes and '<' are never name bytes.
        nameBuf.eliminateChar('"', 0);
        nameBuf.eliminateChar('\'', 0);
        nameBuf.removeCharOccurances('<');
        name = nameBuf.getString();
        nameLen = nameBuf.getSize();
    }
    if (notes) notes->attribute(raw, p, name, nameLen, node);
    p = skipWs(p);
    PendingAttr a{name, nameLen, "", 0, -1};
    if (*p == '=') p = scanValue(skipWs(p + 1), a);
    if (nameLen == 0) return p;
    if (clean && !bytescan::isBadCleanNameStart(name[0])) {
        if (numPending == kMaxPending && !flushAttributes(node)) failed = true;
        pending[numPending] = {a.name, a.nameLen, a.value, a.valueLen};
        pendingDecoded[numPending++] = a.decodedAt;
        pendingBytes += static_cast<size_t>(a.nameLen) + static_cast<size_t>(a.valueLen);
        if (a.decodedAt >= 0) pendingInDecoded = true;
        return p;
    }
    if (!flushAttributes(node)) failed = true;
    const char* value = a.decodedAt >= 0 ? decoded.getString() + a.decodedAt : a.value;
    if (!treeinternal::addCleanedAttribute(node->attributes, name, static_cast<size_t>(nameLen),
                                           value, static_cast<size_t>(a.valueLen)))
        failed = true;
    setGrew = true;
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
        const bytescan::StopPair& stops = q == '"' ? bytescan::kQuoteOrAmp : bytescan::kAposOrAmp;
        end = findEither(value, textEnd, stops);
        while (*end == '&') {
            amp = true;
            end = findEither(end + 1, textEnd, stops);
        }
    } else {
        end = findEither(value, textEnd, bytescan::kEitherQuote);
        amp = std::memchr(value, '&', static_cast<size_t>(end - value)) != nullptr;
        if (notes) notes->note(xmltree::ParseNote::kUnquotedValue, value, end, cur);
    }
    a.value = value;
    a.valueLen = static_cast<int>(end - value);
    if (amp) {
        if (notes) notes->references(value, end, cur);
        const int from = decoded.getSize();
        if (!decoded.appendN(value, a.valueLen)) failed = true;
        decodeEntities(decoded, from);
        a.decodedAt = from;
        a.valueLen = decoded.getSize() - from;
    }
    return isQuote(*end) ? end + 1 : end;
}

// The pending pairs, their values pointed at, as the node's first set,
// sized for them; false when memory runs out.
bool TreeParser::firstSet(TreeNode* node) {
    node->attributes = xmltree::WithRoom::attributeSetOf(pending, numPending, pendingBytes);
    numPending = 0;
    pendingBytes = 0;
    return node->attributes != nullptr;
}

// Stores the pending attributes; false when memory runs out.
bool TreeParser::flushAttributes(TreeNode* node) {
    if (numPending == 0) return true;
    if (pendingInDecoded) {
        pendingInDecoded = false;
        for (int i = 0; i < numPending; ++i) {
            if (pendingDecoded[i] >= 0) pending[i].value = decoded.getString() + pendingDecoded[i];
        }
    }
    if (!node->attributes) return firstSet(node);
    const int n = numPending;
    const size_t bytes = pendingBytes;
    numPending = 0;
    pendingBytes = 0;
    AttributeSet* set = node->attributes;
    if (!set->reserve(n, bytes)) return false;
    setGrew = true;
    for (int i = 0; i < n; ++i) {
        const xmltree::WithRoom::Pair& a = pending[i];
        if (!set->addAttributeN(a.name, a.nameLen, a.value, a.valueLen)) return false;
    }
    return true;
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
    if (closeHooks) {
        if (monitor) {
            bool abort = false;
            monitor->setAmountConsumed2_32(static_cast<unsigned int>(p - t), abort);
        }
        if (notes) notes->closingTag(p, cur);
    }
    p = findEither(p, textEnd, bytescan::kTagEndOrOpen);
    if (*p == '>') {
        ++p;
    } else {
        e.cursor = static_cast<int>(p - t);  // a log may report where the parse stands
        if (notes) notes->note(xmltree::ParseNote::kClosingTagUnended, p, p, cur);
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

// The root takes the declaration and the style sheets now; the doctype and
// processing texts as they stand now are handed over in finish().
void TreeParser::finishRoot(TreeNode* r, bool deletePrevious) {
    TreeInfo* info = r->treeInfo;
    if (info) {
        info->xmlDecl = decl;
        decl = nullptr;
        if (!takeStyleSheets(info->styleSheets)) failed = true;
    }
    docTypeTaken = docType.getSize();
    processingTaken = processing.getSize();
    if (notes) {
        const bool replaces = deletePrevious && completed && completed->magic == kTreeMagicAlive;
        notes->rootFinished(replaces ? completed : nullptr);
    }
    // A later top-level element replaces an earlier one.
    if (deletePrevious && completed && completed->magic == kTreeMagicAlive) delete completed;
    completed = r;
    cur = nullptr;
}

// Moves the pending style sheets to `to`, or leaves them pending (and
// returns false) when `to` cannot make room for them all.
bool TreeParser::takeStyleSheets(ExtPtrArray& to) {
    if (sheets.getSize() == 0) return true;
    if (!to.reserve(to.getSize() + sheets.getSize())) return false;
    TreeNode::transferStyleSheets(sheets, to);
    return true;
}

// False when memory ran out; the caller then releases what is left.
bool TreeParser::finish(TreeNode** outRoot) {
    if (cur) {
        if (notes) notes->openAtEnd(cur, completed != nullptr, t + e.cursor);
        TreeNode* top = topOf(cur);
        if (!completed) {
            finishRoot(top, false);  // open elements are closed silently
        } else {
            // A later top-level element that never closed is not returned.
            cur = nullptr;
            if (top->magic == kTreeMagicAlive) delete top;
        }
    }
    if (failed) return false;
    if (completed) {
        // Texts met after the root closed belong to no root.
        docType.shorten(docType.getSize() - docTypeTaken);
        processing.shorten(processing.getSize() - processingTaken);
        completed->setDocType(docType.getString());
        completed->setProcessing(processing.getString());
        const TreeInfo* info = completed->treeInfo;
        if ((docTypeTaken > 0 && !info->docType) || (processingTaken > 0 && !info->processing))
            return false;
    }
    if (monitor) monitor->consumeRemaining(112);
    *outRoot = completed;
    completed = nullptr;
    releasePending();
    return true;
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
