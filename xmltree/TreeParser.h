#ifndef XMLTREE_TREEPARSER_H
#define XMLTREE_TREEPARSER_H

// Internal to the library: the state of one customParse call, shared by the
// main loop (TreeNodeParser.cpp) and the branches for CDATA sections,
// declarations and processing instructions (TreeNodeMarkup.cpp).

#include <memory>
#include <new>

#include "foundation/PoolSlabs.h"
#include "foundation/WithRoom.h"
#include "xmltree/TreeInternal.h"
#include "xmltree/TreeNode.h"
#include "xmltree/TreeParseNotes.h"

// The steps of the main loop are folded into it, so that the cursor stays in
// a register across a whole element; left as calls they cost about a tenth
// of the parse time.
#define XMLTREE_HOT_STEP XMLTREE_ALWAYS_INLINE

// State of one customParse call. The prolog items it collects belong to it
// until a finished root takes them; everything else it makes belongs to the
// tree under construction.
//
// Running out of memory ends the parse: whatever step meets an allocation it
// cannot get returns kFail (or sets `failed`, which the main loop turns into
// kFail), and run() destroys everything made so far. The one exception is
// the content buffer of a plain text run, whose run is dropped while the
// parse goes on.
class TreeParser {
  public:
    TreeParser(ParseEngine& engine, LogBase* logger, ProgressMonitor* progress, bool trimWs)
        : e(engine),
          t(engine.textPtr),
          textEnd(engine.textPtr + engine.getTextSize()),
          log(logger),
          monitor(progress),
          trim(trimWs),
          notes(logger->wantsParseNotes() ? new (std::nothrow) xmltree::ParseNoter(
                                                *logger, engine.textPtr, textEnd)
                                          : nullptr) {}
    ~TreeParser() { releasePending(); }

    bool run(TreeNode** outRoot);

    // Decodes the five predefined references in sb from byte `from` on, in
    // place. Numeric and unknown references stay as written.
    static void decodeEntities(StringBuffer& sb, int from);
    static void decodeIfAmp(StringBuffer& sb, int from);
    // parsePrologLineAttr, telling whether every attribute could be stored.
    static bool prologLineAttributes(ParseEngine& engine, TreeNode* node);

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
    bool runNoted(TreeNode** outRoot);
    Step notedDispatch(const char*& pos);
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
    XMLTREE_HOT_STEP bool firstSet(TreeNode* node);
    bool flushAttributes(TreeNode* node);
    Step cdataSection();
    Step bangDeclaration();
    Step processingInstruction();
    void closeCurrent();
    bool appendText(const char* run, int len);
    bool appendWhitespaceOnly();
    void finishRoot(TreeNode* r, bool deletePrevious);
    bool takeStyleSheets(ExtPtrArray& to);
    bool fail();
    bool finish(TreeNode** outRoot);
    void releaseAll();
    void releasePending();
    TreeNode* topOf(TreeNode* n) const;

    ParseEngine& e;
    const char* t;        // the engine's text; the parse never changes it
    const char* textEnd;  // its terminating NUL
    LogBase* log;
    ProgressMonitor* monitor;
    bool trim;
    // Only for a logger that asks for notes; every use is guarded by it.
    std::unique_ptr<xmltree::ParseNoter> notes;
    bool closeHooks = false;  // a monitor or notes want each closing tag

    bool failed = false;  // an allocation failed; the parse ends
    TreeNode* cur = nullptr;
    TreeNode* completed = nullptr;
    TreeNode* decl = nullptr;
    ExtPtrArray sheets;
    StringBuffer docType;
    StringBuffer processing;
    // How much of each the completed root holds: the texts go to it once, at
    // the end, so that many top-level elements do not copy them many times.
    int docTypeTaken = 0;
    int processingTaken = 0;
    StringBuffer wsRun;
    StringBuffer tagBuf;
    StringBuffer nameBuf;
    StringBuffer valueBuf;
    StringBuffer decoded;
    static constexpr int kMaxPending = 32;
    // The clean pairs of the tag being read, and for each the offset of its
    // decoded value in `decoded` (-1: the value is `value` in the text);
    // values are pointed at in `decoded` only when they are stored, since
    // appending to it may move it.
    xmltree::WithRoom::Pair pending[kMaxPending] = {};
    int pendingDecoded[kMaxPending] = {};
    int numPending = 0;
    size_t pendingBytes = 0;        // their names' and values' bytes
    bool pendingInDecoded = false;  // one of them is in `decoded`
    // The element's set took pairs in more than one flush, so it may have
    // grown past them: it is shrunk when the start tag ends.
    bool setGrew = false;
};

#endif
