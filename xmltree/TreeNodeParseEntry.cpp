// The parse entry points: a document from a file, a string, a string
// buffer or a byte buffer, brought to UTF-8 where it may be in another
// encoding, handed to customParse.
//
// A buffer that could not take all of its bytes (its failure mark is set,
// for instance when decoding ran out of memory) is not parsed: what it holds
// is not the whole document, and a tree of it would lose the rest silently.

#include "foundation/PoolArena.h"
#include "foundation/TextTransfer.h"
#include "xmltree/TreeNode.h"
#include "xmltree/TreeParser.h"

namespace {

// The caller's logger and monitor, called with the tree's arena paused:
// what they allocate is theirs, not the tree's, and must outlive it.
class ArenaPausingLog : public LogBase {
  public:
    explicit ArenaPausingLog(LogBase& inner) : m_inner(inner) {}
    void logError(const char* message) override {
        xmltree::TreeArenaPause pause;
        m_inner.logError(message);
    }
    void logNameValue(const char* name, const char* value) override {
        xmltree::TreeArenaPause pause;
        m_inner.logNameValue(name, value);
    }
    bool wantsParseNotes() const override {
        xmltree::TreeArenaPause pause;
        return m_inner.wantsParseNotes();
    }
    void logParseNote(xmltree::ParseNote what, int offset, int length,
                      const TreeNode* element) override {
        xmltree::TreeArenaPause pause;
        m_inner.logParseNote(what, offset, length, element);
    }

  private:
    LogBase& m_inner;
};

class ArenaPausingMonitor : public ProgressMonitor {
  public:
    explicit ArenaPausingMonitor(ProgressMonitor* inner) : m_inner(inner) {}
    void progressReset_32(unsigned int total) override {
        xmltree::TreeArenaPause pause;
        m_inner->progressReset_32(total);
    }
    void setAmountConsumed2_32(unsigned int amount, bool& abort) override {
        xmltree::TreeArenaPause pause;
        m_inner->setAmountConsumed2_32(amount, abort);
    }
    void consumeRemaining(int code) override {
        xmltree::TreeArenaPause pause;
        m_inner->consumeRemaining(code);
    }

  private:
    ProgressMonitor* m_inner;
};

bool refuseIncomplete(LogBase& log, TreeNode** outRoot) {
    if (outRoot) *outRoot = nullptr;
    log.logError("Out of memory");
    return false;
}

bool isSixteenBitName(const StringBuffer& enc) {
    return enc.equalsIgnoreCase("utf-16") || enc.equalsIgnoreCase("ucs-2") ||
           enc.equalsIgnoreCase("unicode");
}

}  // namespace

// The tree is made in an arena of its own (foundation/PoolArena.h), which
// must outlive everything else the parse made: the parser and its buffers
// are gone before the arena closes.
bool TreeNode::customParse(ParseEngine& engine, LogBase* log, ProgressMonitor* monitor,
                           TreeNode** outRoot, bool trimWhitespace) {
    LogNull nullLog;
    if (!log) log = &nullLog;
    if (!outRoot) return false;
    *outRoot = nullptr;
    xmltree::PoolArena* arena = xmltree::TreeArena::open();
    bool ok = false;
    {
        ArenaPausingLog pausingLog(*log);
        ArenaPausingMonitor pausingMonitor(monitor);
        TreeParser parser(engine, &pausingLog, monitor ? &pausingMonitor : nullptr, trimWhitespace);
        ok = parser.run(outRoot);
    }
    arena = xmltree::TreeArena::close(arena);
    if (arena && *outRoot) {
        (*outRoot)->treeInfo->arena = arena;
    } else {
        xmltree::TreeArena::release(arena);
    }
    return ok;
}

bool TreeNode::customParseFile(const char* path, LogBase* log, ProgressMonitor* monitor,
                               TreeNode** outRoot, bool trimWhitespace) {
    LogNull nullLog;
    if (!log) log = &nullLog;
    DataBuffer data;
    if (!loadToUtf8(path, data, *log)) return false;
    if (data.hasFailed()) return refuseIncomplete(*log, outRoot);
    ParseEngine engine;
    TextTransfer::load(data, engine);  // the loaded bytes are parsed where they lie
    bool ok = customParse(engine, log, monitor, outRoot, trimWhitespace);
    if (ok && outRoot && *outRoot) {
        // The tree holds UTF-8 now; a declared 16-bit encoding would be a lie.
        StringBuffer enc;
        bool found = false;
        (*outRoot)->getDocEncoding(enc, found);
        if (found && isSixteenBitName(enc)) {
            (*outRoot)->setDocEncoding("utf-8");
            (*outRoot)->getDocEncoding(enc, found);
        }
        if (enc.hasFailed() || (found && isSixteenBitName(enc))) {
            (*outRoot)->deleteTree();
            return refuseIncomplete(*log, outRoot);
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
    if (text.hasFailed()) {
        LogNull nullLog;
        return refuseIncomplete(log ? *log : nullLog, outRoot);
    }
    ParseEngine engine;
    engine.append(text.getString());
    return customParse(engine, log, monitor, outRoot, trimWhitespace);
}

bool TreeNode::customParseUtf8Data(DataBuffer& data, ProgressMonitor* monitor, LogBase& log,
                                   TreeNode** outRoot, bool trimWhitespace) {
    if (data.hasFailed()) return refuseIncomplete(log, outRoot);
    // The caller's bytes are parsed where they lie (when their block has a
    // spare byte for the NUL) and handed back unchanged afterwards.
    ParseEngine engine;
    const bool lent = TextTransfer::load(data, engine);
    const bool ok = customParse(engine, &log, monitor, outRoot, trimWhitespace);
    if (lent) TextTransfer::giveBack(engine, data);
    return ok;
}

bool TreeNode::customParseData2(DataBuffer& data, ProgressMonitor* monitor, LogBase& log,
                                TreeNode** outRoot, bool trimWhitespace) {
    if (data.hasFailed()) return refuseIncomplete(log, outRoot);
    if (!convertXmlToUtf8(data, log)) {
        log.logError("Failed to convert XML data to utf-8 internal representation");
        return false;
    }
    return customParseUtf8Data(data, monitor, log, outRoot, trimWhitespace);
}
