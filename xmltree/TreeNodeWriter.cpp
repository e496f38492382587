// The XML writer: a node and its subtree (plus the prolog, for a root) as
// indented text with CR LF line ends.
//
// The output is defined level by level as if each element wrote its children
// recursively. Documents can be nested far deeper than the call stack allows,
// so the walk keeps its own stack of frames instead; every node still goes
// through exactly the steps a recursive call would take, in the same order.

#include <cstdlib>
#include <cstring>

#include "xmltree/TreeNode.h"

namespace {

constexpr int kMaxIndentLevels = 50;
constexpr int kBlanksPerLevel = 4;

// One run long enough for the deepest indentation, appended in one block.
const char kBlanks[kMaxIndentLevels * kBlanksPerLevel + 1] =
    "                                                                                "
    "                                                                                "
    "                                        ";
static_assert(sizeof(kBlanks) == kMaxIndentLevels * kBlanksPerLevel + 1,
              "indentation run must hold exactly the deepest indentation");

const char kCrLf[] = "\r\n";
const char kDeclOpen[] = "<?xml";
const char kPrologLineEnd[] = " ?>\r\n";
const char kEmptyTagEnd[] = " />\r\n";
const char kMissingName[] = "nothing";
const char kCdataOpen[] = "<![CDATA[";
const char kCdataClose[] = "]]>";

template <int N>
void appendLit(StringBuffer& out, const char (&text)[N]) {
    out.appendN(text, N - 1);
}

// Byte classes for escaping: 0 copies the byte, 1 is the terminating NUL,
// any other value indexes kEntities.
struct EscapeTable {
    unsigned char cls[256];
    constexpr EscapeTable() : cls() {
        cls[0] = 1;
        cls[static_cast<unsigned char>('<')] = 2;
        cls[static_cast<unsigned char>('>')] = 3;
        cls[static_cast<unsigned char>('"')] = 4;
        cls[static_cast<unsigned char>('\'')] = 5;
        cls[static_cast<unsigned char>('&')] = 6;
    }
};
constexpr EscapeTable kEscape;

struct Entity {
    const char* text;
    int len;
};
const Entity kEntities[7] = {{"", 0},       {"", 0},       {"&lt;", 4}, {"&gt;", 4},
                             {"&quot;", 6}, {"&apos;", 6}, {"&amp;", 5}};

void appendIndent(StringBuffer& out, int depth) {
    const int levels = depth < kMaxIndentLevels ? depth : kMaxIndentLevels;
    if (levels > 0) out.appendN(kBlanks, levels * kBlanksPerLevel);
}

// First byte at or after p that is not copied as it is.
inline const unsigned char* skipPlain(const unsigned char* p) {
    for (;;) {
        if (kEscape.cls[p[0]]) return p;
        if (kEscape.cls[p[1]]) return p + 1;
        if (kEscape.cls[p[2]]) return p + 2;
        if (kEscape.cls[p[3]]) return p + 3;
        p += 4;
    }
}

// The len bytes at text, escaped, in runs copied whole into room reserved
// up front; an entity makes room for itself and the rest. The scan stops at
// the first NUL, as the text is read as a C string.
void appendEscaped(StringBuffer& out, const char* text, int len) {
    if (!out.reserveMore(len)) return;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* const end = p + len;
    const unsigned char* run = p;
    for (;;) {
        p = skipPlain(p);
        out.appendUnchecked(reinterpret_cast<const char*>(run), static_cast<int>(p - run));
        const unsigned char cls = kEscape.cls[*p];
        if (cls == 1) return;
        const Entity& entity = kEntities[cls];
        run = ++p;
        if (!out.reserveMore(entity.len + static_cast<int>(end - p))) return;
        out.appendUnchecked(entity.text, entity.len);
    }
}

bool needsCdata(const char* text) {
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; ++p) {
        const unsigned char cls = kEscape.cls[*p];
        if (cls >= 2 && cls != 5) return true;  // the apostrophe does not count
    }
    return false;
}

}  // namespace

// The writer's own walk; a friend of TreeNode so that it reads the fields
// directly on the hot path.
class TreeWriter {
  public:
    explicit TreeWriter(StringBuffer& out) : m_out(out) {}
    ~TreeWriter() {
        if (m_frames != m_inline) std::free(m_frames);
    }
    TreeWriter(const TreeWriter&) = delete;
    TreeWriter& operator=(const TreeWriter&) = delete;

    void write(TreeNode* top, int index, int depth, bool omitDeclaration);

  private:
    struct Frame {
        TreeNode* node;
        int next;  // index of the next child to write
        int depth;
    };
    static constexpr int kInlineFrames = 64;

    bool openNode(TreeNode* node, int index, int depth, bool omitDeclaration);
    void writeProlog(TreeNode* root, int index, bool omitDeclaration);
    void writeDeclaration(TreeNode* root);
    void closeLeaf(TreeNode* node, int depth);
    bool push(TreeNode* node, int depth);

    StringBuffer& m_out;
    Frame m_inline[kInlineFrames] = {};
    Frame* m_frames = m_inline;
    int m_size = 0;
    int m_cap = kInlineFrames;
};

void TreeWriter::write(TreeNode* top, int index, int depth, bool omitDeclaration) {
    if (!openNode(top, index, depth, omitDeclaration)) return;
    while (m_size > 0) {
        Frame& f = m_frames[m_size - 1];
        TreeNode* node = f.node;
        const ExtPtrArray* kids = node->children;
        if (f.next < kids->getSize()) {
            const int i = f.next++;
            const int childDepth = f.depth + 1;
            // f may move when a frame is pushed; it is not used past here.
            TreeNode* child = static_cast<TreeNode*>(kids->elementAt(i));
            if (child) openNode(child, i, childDepth, false);
            continue;
        }
        // A node with a children array closes at its own depth, even when
        // the array is empty.
        const int closeDepth = f.depth;
        --m_size;
        node->closeTag(m_out, closeDepth);
    }
}

// Steps of one node up to its children. Returns true when a frame was pushed
// for the node's children (its close tag then comes when they are done).
bool TreeWriter::openNode(TreeNode* node, int index, int depth, bool omitDeclaration) {
    const TreeInfo* info = node->treeInfo;
    if (!info || info->magic != kTreeMagicAlive) return false;
    if (info->root == node) {
        writeProlog(node, index, omitDeclaration);
    } else if (index == 0) {
        // The parent's open tag ended without a line break.
        appendLit(m_out, kCrLf);
    }
    if (node->openTag(m_out, depth)) return false;
    node->outputContent(m_out);
    if (node->children) return push(node, depth);
    closeLeaf(node, depth);
    return false;
}

void TreeWriter::closeLeaf(TreeNode* node, int depth) {
    // Content that ended its own line puts the close tag on the next one,
    // indented; otherwise the close tag follows the content directly.
    node->closeTag(m_out, m_out.lastChar() == '\n' ? depth : 0);
}

void TreeWriter::writeProlog(TreeNode* root, int index, bool omitDeclaration) {
    TreeInfo* info = root->treeInfo;
    bool nothingWritten = true;
    if (!omitDeclaration && info->xmlDecl) {
        writeDeclaration(root);
        nothingWritten = false;
    }
    // Style sheets alone still leave room for the empty line below.
    root->appendStyleInfoToString(m_out);
    if (info->docType && info->docType->getSize() > 0) {
        m_out.append(*info->docType);
        appendLit(m_out, kCrLf);
        nothingWritten = false;
    }
    if (info->processing && info->processing->getSize() > 0) {
        m_out.append(*info->processing);
        appendLit(m_out, kCrLf);
    } else if (index == 0 && nothingWritten) {
        appendLit(m_out, kCrLf);
    }
}

void TreeWriter::writeDeclaration(TreeNode* root) {
    TreeNode* decl = root->treeInfo->xmlDecl;
    appendLit(m_out, kDeclOpen);
    if (decl->attributes) {
        // "standalone" always goes out last, whatever order it was set in.
        StringBuffer standalone;
        bool found = false;
        root->getDocStandalone(standalone, found);
        if (found) {
            decl->attributes->removeAttribute("standalone");
            decl->addAttribute("standalone", standalone.getString());
        }
        decl->attributes->appendXml(m_out);
    }
    appendLit(m_out, kPrologLineEnd);
}

bool TreeWriter::push(TreeNode* node, int depth) {
    if (m_size == m_cap) {
        const int newCap = m_cap * 2;
        void* block = m_frames == m_inline ? std::malloc(sizeof(Frame) * newCap)
                                           : std::realloc(m_frames, sizeof(Frame) * newCap);
        if (!block) return false;  // out of memory: the subtree is left unfinished
        if (m_frames == m_inline) std::memcpy(block, m_inline, sizeof(m_inline));
        m_frames = static_cast<Frame*>(block);
        m_cap = newCap;
    }
    m_frames[m_size++] = Frame{node, 0, depth};
    return true;
}

void TreeNode::createXML(StringBuffer& out, int index, int depth, bool omitDeclaration) {
    TreeWriter writer(out);
    writer.write(this, index, depth, omitDeclaration);
}

bool TreeNode::openTag(StringBuffer& out, int depth) {
    appendIndent(out, depth);
    out.appendChar('<');
    if (tag && tag->getSize() > 0) {
        out.append(*tag);
    } else {
        appendLit(out, kMissingName);
    }
    if (attributes && attributes->numAttributes() > 0) attributes->appendXml(out);
    if ((content && content->getSize() > 0) || children) {
        out.appendChar('>');
        return false;
    }
    appendLit(out, kEmptyTagEnd);
    return true;
}

void TreeNode::closeTag(StringBuffer& out, int depth) {
    appendIndent(out, depth);
    out.appendN("</", 2);
    if (tag && tag->getSize() > 0) {
        out.append(*tag);
    } else {
        appendLit(out, kMissingName);
    }
    out.appendN(">\r\n", 3);
}

bool TreeNode::outputContent(StringBuffer& out) const {
    if (!content || content->getSize() == 0) return false;
    if (!cdata) {
        appendEscaped(out, content->getString(), content->getSize());
        return true;
    }
    appendLit(out, kCdataOpen);
    if (content->containsSubstringNoCase(kCdataClose)) {
        // One section only: markers inside the text are dropped, not split.
        StringBuffer copy(*content);
        copy.replaceAllOccurances(kCdataOpen, "");
        copy.replaceAllOccurances(kCdataClose, "");
        out.append(copy);
    } else {
        out.append(*content);
    }
    appendLit(out, kCdataClose);
    return true;
}

void TreeNode::checkCdataRequired() {
    if (!content || content->getSize() == 0 || cdata) return;
    if (needsCdata(content->getString())) cdata = true;
}
