// The XML writer: a node and its subtree (plus the prolog, for a root) as
// indented text with CR LF line ends.
//
// The output is defined level by level as if each element wrote its children
// recursively. Documents can be nested far deeper than the call stack allows,
// so the walk keeps its own stack of frames instead; every node still goes
// through exactly the steps a recursive call would take, in the same order.

#include <climits>
#include <cstdlib>
#include <cstring>

#include "foundation/ByteScan.h"
#include "foundation/MemoryHook.h"
#include "xmltree/TreeInternal.h"
#include "xmltree/TreeNode.h"

namespace {

constexpr int kMaxIndentLevels = 50;
constexpr int kBlanksPerLevel = 4;

// Indentation goes out in blocks of 16 blanks.
const char kBlanks16[17] = "                ";

const char kCrLf[] = "\r\n";
const char kDeclOpen[] = "<?xml";
const char kEmptyTagEnd[] = " />\r\n";
const char kMissingName[] = "nothing";
const char kCdataOpen[] = "<![CDATA[";
const char kCdataClose[] = "]]>";

template <std::size_t N>
bool appendLit(StringBuffer& out, const char (&text)[N]) {
    return out.appendN(text, static_cast<int>(N - 1));
}

// Room for the deepest indentation written in whole 16-byte blocks.
constexpr size_t kIndentRoom = (kMaxIndentLevels * kBlanksPerLevel + 15) / 16 * 16;

// Writes straight into the output buffer's storage: one capacity check per
// piece of markup, and the size and the NUL are set once when done. Code that
// appends through the StringBuffer itself gets it with release() and gives
// it back with reclaim().
//
// Once the buffer could not grow (its failure mark is set) no room is given
// any more, so the output is always a prefix of the whole: no piece that
// came after a missing one is written.
class Sink {
  public:
    explicit Sink(StringBuffer& out) : m_out(out) { attach(out.writableTail(0)); }
    ~Sink() { m_out.commitTail(m_w); }
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    // Makes sure n more bytes fit; false when memory runs out.
    bool room(size_t n) {
        return (static_cast<size_t>(m_lim - m_w) >= n && !m_out.hasFailed()) || grow(n);
    }
    bool failed() const { return m_out.hasFailed(); }
    void fail() { m_out.markFailed(); }
    StringBuffer& release() {
        m_out.commitTail(m_w);
        return m_out;
    }
    void reclaim() { attach(m_out.writableTail(0)); }
    char lastByte() const { return m_w != m_base ? m_w[-1] : '\0'; }

    void put(char c) { *m_w++ = c; }
    void put(const char* p, size_t n) {
        bytescan::copyRun(m_w, p, n);
        m_w += n;
    }
    template <size_t N>
    void putLit(const char (&text)[N]) {
        std::memcpy(m_w, text, N - 1);
        m_w += N - 1;
    }
    // Needs room for kIndentRoom bytes: the blanks go in whole blocks, and
    // what lies past the indentation is written over next.
    void putIndent(int depth) {
        const int levels = depth < kMaxIndentLevels ? depth : kMaxIndentLevels;
        if (levels <= 0) return;
        const int n = levels * kBlanksPerLevel;
        for (int i = 0; i < n; i += 16)
            std::memcpy(m_w + i, kBlanks16, 16);
        m_w += n;
    }

  private:
    bool grow(size_t n) {
        if (m_out.hasFailed()) return false;
        if (n > static_cast<size_t>(INT_MAX)) {
            m_out.markFailed();
            return false;
        }
        m_out.commitTail(m_w);
        char* tail = m_out.writableTail(static_cast<int>(n));
        attach(tail ? tail : m_out.writableTail(0));
        return tail != nullptr;
    }
    void attach(char* tail) {
        m_w = tail;
        m_base = tail - m_out.getSize();
        m_lim = tail + (m_out.getCapacity() - m_out.getSize());
    }

    StringBuffer& m_out;
    char* m_base;  // start of the text
    char* m_w;     // where the next byte goes
    char* m_lim;   // end of the room
};

// The len bytes at text, escaped, up to the first NUL. Plain runs are copied
// whole into room made for the whole text; an entity makes room for itself
// and the rest.
void putEscaped(Sink& sink, const char* text, size_t len) {
    if (!sink.room(len)) return;
    const char* p = text;
    const char* const end = text + len;
    for (;;) {
        const char* stop = bytescan::findStop<true>(p, end);
        sink.put(p, static_cast<size_t>(stop - p));
        if (stop == end || *stop == '\0') return;
        const bytescan::Entity entity = bytescan::entityFor(*stop);
        p = stop + 1;
        if (!sink.room(entity.len + static_cast<size_t>(end - p))) return;
        sink.put(entity.text, entity.len);
    }
}

bool needsCdata(const char* text) {
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; ++p) {
        const unsigned char c = *p;
        if (c == '"' || c == '&' || c == '<' || c == '>') return true;
    }
    return false;
}

}  // namespace

// The writer's own walk; a friend of TreeNode so that it reads the fields
// directly on the hot path. The piece writers are shared with the public
// openTag, closeTag and outputContent.
class TreeWriter {
  public:
    explicit TreeWriter(StringBuffer& out) : m_sink(out) {}
    ~TreeWriter() {
        if (m_frames != m_inline) xmltree::mem::release(m_frames);
    }
    TreeWriter(const TreeWriter&) = delete;
    TreeWriter& operator=(const TreeWriter&) = delete;

    void write(TreeNode* top, int index, int depth, bool omitDeclaration);

    // lineBreak puts CR LF before the indentation.
    static bool putOpenTag(Sink& sink, const TreeNode* node, int depth, bool lineBreak);
    static void putCloseTag(Sink& sink, const TreeNode* node, int depth);
    static bool putContent(Sink& sink, const TreeNode* node);

  private:
    // 16 bytes, so that the stack of a document nested a million deep stays
    // small. Frame k stands at depth m_topDepth + k, and its node is the top
    // node (k = 0) or the child frame k - 1 wrote last. The walk changes no
    // children array, so its slots and count are read once.
    struct Frame {
        void* const* kids;
        int next;  // index of the next child to write
        int count;
    };
    static constexpr int kInlineFrames = 64;

    // The element name: the tag text, or "nothing" for a missing or empty tag.
    static void name(const TreeNode* node, const char*& text, size_t& len) {
        const StringBuffer* tag = node->tag;
        if (tag && tag->getSize() > 0) {
            text = tag->getString();
            len = static_cast<size_t>(tag->getSize());
        } else {
            text = kMissingName;
            len = sizeof(kMissingName) - 1;
        }
    }
    static void putCdata(Sink& sink, const StringBuffer& text);

    bool openNode(TreeNode* node, int index, int depth, bool omitDeclaration);
    // The prolog goes out through the StringBuffer while the sink is released.
    void writeProlog(TreeNode* root, int index, bool omitDeclaration);
    void writeDeclaration(TreeNode* root, StringBuffer& out);
    bool push(TreeNode* node, int depth);

    Sink m_sink;
    Frame m_inline[kInlineFrames] = {};
    Frame* m_frames = m_inline;
    int m_size = 0;
    int m_cap = kInlineFrames;
    int m_topDepth = 0;
    TreeNode* m_top = nullptr;
};

void TreeWriter::write(TreeNode* top, int index, int depth, bool omitDeclaration) {
    if (m_sink.failed() || !openNode(top, index, depth, omitDeclaration)) return;
    while (m_size > 0 && !m_sink.failed()) {
        Frame& f = m_frames[m_size - 1];
        const int level = m_topDepth + m_size - 1;
        if (f.next < f.count) {
            const int i = f.next++;
            // f may move when a frame is pushed; it is not used past here.
            TreeNode* child = static_cast<TreeNode*>(f.kids[i]);
            if (child) openNode(child, i, level + 1, false);
            continue;
        }
        // A node with a children array closes at its own depth, even when
        // the array is empty.
        --m_size;
        const TreeNode* node = m_top;
        if (m_size > 0) {
            const Frame& parent = m_frames[m_size - 1];
            node = static_cast<const TreeNode*>(parent.kids[parent.next - 1]);
        }
        putCloseTag(m_sink, node, level);
    }
}

// Steps of one node up to its children. Returns true when a frame was pushed
// for the node's children (its close tag then comes when they are done).
bool TreeWriter::openNode(TreeNode* node, int index, int depth, bool omitDeclaration) {
    const TreeInfo* info = node->treeInfo;
    if (!info || info->magic != kTreeMagicAlive) return false;
    bool lineBreak = false;
    if (info->root == node) {
        writeProlog(node, index, omitDeclaration);
        if (m_sink.failed()) return false;
    } else {
        // The parent's open tag ended without a line break.
        lineBreak = index == 0;
    }
    if (putOpenTag(m_sink, node, depth, lineBreak)) return false;
    putContent(m_sink, node);
    if (node->children) return push(node, depth);
    // Content that ended its own line puts the close tag on the next one,
    // indented; otherwise the close tag follows the content directly.
    putCloseTag(m_sink, node, m_sink.lastByte() == '\n' ? depth : 0);
    return false;
}

bool TreeWriter::putOpenTag(Sink& sink, const TreeNode* node, int depth, bool lineBreak) {
    const char* text;
    size_t len;
    name(node, text, len);
    // Room for all but the attributes: CR LF, indentation, '<', the name and
    // " />\r\n" at most.
    if (!sink.room(2 + kIndentRoom + 1 + len + 5)) return true;
    if (lineBreak) sink.putLit(kCrLf);
    sink.putIndent(depth);
    sink.put('<');
    sink.put(text, len);
    const AttributeSet* attributes = node->attributes;
    if (attributes && attributes->numAttributes() > 0) {
        attributes->appendXml(sink.release());
        sink.reclaim();
        if (!sink.room(5)) return true;
    }
    if ((node->content && node->content->getSize() > 0) || node->children) {
        sink.put('>');
        return false;
    }
    sink.putLit(kEmptyTagEnd);
    return true;
}

void TreeWriter::putCloseTag(Sink& sink, const TreeNode* node, int depth) {
    const char* text;
    size_t len;
    name(node, text, len);
    if (!sink.room(kIndentRoom + 2 + len + 3)) return;
    sink.putIndent(depth);
    sink.putLit("</");
    sink.put(text, len);
    sink.putLit(">\r\n");
}

bool TreeWriter::putContent(Sink& sink, const TreeNode* node) {
    const StringBuffer* content = node->content;
    if (!content || content->getSize() == 0) return false;
    if (node->cdata) {
        putCdata(sink, *content);
    } else {
        putEscaped(sink, content->getString(), static_cast<size_t>(content->getSize()));
    }
    return true;
}

void TreeWriter::putCdata(Sink& sink, const StringBuffer& text) {
    StringBuffer& out = sink.release();
    if (text.containsSubstringNoCase(kCdataClose)) {
        // One section only: markers inside the text are dropped, not split.
        StringBuffer copy(text);
        copy.replaceAllOccurances(kCdataOpen, "");
        copy.replaceAllOccurances(kCdataClose, "");
        if (copy.hasFailed()) {
            out.markFailed();
        } else if (appendLit(out, kCdataOpen) && out.append(copy)) {
            appendLit(out, kCdataClose);
        }
    } else if (appendLit(out, kCdataOpen) && out.append(text)) {
        appendLit(out, kCdataClose);
    }
    sink.reclaim();
}

// Each piece is appended only while every earlier one went out whole.
void TreeWriter::writeProlog(TreeNode* root, int index, bool omitDeclaration) {
    StringBuffer& out = m_sink.release();
    TreeInfo* info = root->treeInfo;
    bool nothingWritten = true;
    if (!omitDeclaration && info->xmlDecl) {
        writeDeclaration(root, out);
        nothingWritten = false;
    }
    // Style sheets alone still leave room for the empty line below.
    if (!out.hasFailed()) root->appendStyleInfoToString(out);
    if (info->docType && info->docType->getSize() > 0) {
        if (!out.hasFailed() && out.append(*info->docType)) appendLit(out, kCrLf);
        nothingWritten = false;
    }
    if (info->processing && info->processing->getSize() > 0) {
        if (!out.hasFailed() && out.append(*info->processing)) appendLit(out, kCrLf);
    } else if (index == 0 && nothingWritten && !out.hasFailed()) {
        appendLit(out, kCrLf);
    }
    m_sink.reclaim();
}

void TreeWriter::writeDeclaration(TreeNode* root, StringBuffer& out) {
    TreeNode* decl = root->treeInfo->xmlDecl;
    if (!appendLit(out, kDeclOpen)) return;
    if (decl->attributes) {
        // "standalone" always goes out last, whatever order it was set in:
        // a copy is added at the end before the first one is removed, so
        // that running out of memory loses nothing.
        StringBuffer standalone;
        bool found = false;
        root->getDocStandalone(standalone, found);
        if (found) root->editing();  // the declaration's attributes change
        if (found && (standalone.hasFailed() ||
                      !treeinternal::addCleanedAttribute(
                          decl->attributes, "standalone", 10, standalone.getString(),
                          static_cast<size_t>(standalone.getSize())))) {
            out.markFailed();
            return;
        }
        if (found) decl->attributes->removeAttribute("standalone");
        decl->attributes->appendXml(out);
    }
    if (!out.hasFailed()) appendLit(out, TreeNode::kPrologLineEnd);
}

bool TreeWriter::push(TreeNode* node, int depth) {
    if (m_size == m_cap) {
        const int newCap = m_cap * 2;
        void* block =
            m_frames == m_inline
                ? xmltree::mem::allocate(sizeof(Frame) * static_cast<size_t>(newCap))
                : xmltree::mem::reallocate(m_frames, sizeof(Frame) * static_cast<size_t>(newCap));
        if (!block) {
            m_sink.fail();  // the rest of the output cannot be written in order
            return false;
        }
        if (m_frames == m_inline) std::memcpy(block, m_inline, sizeof(m_inline));
        m_frames = static_cast<Frame*>(block);
        m_cap = newCap;
    }
    if (m_size == 0) {
        m_top = node;
        m_topDepth = depth;
    }
    const ExtPtrArray* kids = node->children;
    m_frames[m_size++] = Frame{kids->getItems(), 0, kids->getSize()};
    return true;
}

void TreeNode::createXML(StringBuffer& out, int index, int depth, bool omitDeclaration) {
    TreeWriter writer(out);
    writer.write(this, index, depth, omitDeclaration);
}

bool TreeNode::openTag(StringBuffer& out, int depth) {
    Sink sink(out);
    return TreeWriter::putOpenTag(sink, this, depth, false);
}

void TreeNode::closeTag(StringBuffer& out, int depth) {
    Sink sink(out);
    TreeWriter::putCloseTag(sink, this, depth);
}

bool TreeNode::outputContent(StringBuffer& out) const {
    Sink sink(out);
    return TreeWriter::putContent(sink, this);
}

void TreeNode::checkCdataRequired() {
    if (!content || content->getSize() == 0 || cdata) return;
    if (needsCdata(content->getString())) cdata = true;
}
