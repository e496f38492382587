#ifndef XMLTREE_TREE_H
#define XMLTREE_TREE_H

// Ownership and iteration helpers around TreeNode:
//
//   Tree          owns a whole tree: parses into it, holds a tree reference on
//                 the root, frees the tree when it goes. Move-only.
//   NodeRef       holds one tree reference on a node for a scope, so that a
//                 detach does not delete that node's subtree. Not copyable.
//   children(n)   range over the direct children of n.
//   BreadthFirst  range over a subtree, level by level, each level in
//                 document order; no recursion.
//
// Why a reference on the root matters: removeFromTree() and the remove
// operations destroy what is left of a tree when no reference is held in
// it. On a freshly parsed tree nobody holds one, so `first->removeChild("x")`
// would free the whole document, `first` included. Holding the tree through a
// Tree makes every edit leave the document in place.
//
// What these helpers cannot rule out, because TreeNode's own interface keeps
// them: `TreeNode copy = *node;` compiles and makes an empty node outside any
// tree (nothing is copied), and `delete node` compiles for any node but is
// right only for a root nobody else owns (a child leaves a dangling slot in
// its parent). Detach with Tree::detach(); let a Tree free its tree.

#include <cstddef>
#include <iterator>

#include "foundation/DataBuffer.h"
#include "foundation/LogBase.h"
#include "foundation/ProgressMonitor.h"
#include "foundation/StringBuffer.h"
#include "foundation/mxQueue.h"
#include "xmltree/TreeNode.h"

namespace xmltree {

// Owner of one tree. Holds one tree reference on the root for as long as it
// owns it, and calls deleteTree() when it goes (or on reset()).
class Tree {
public:
    // An empty handle.
    Tree() noexcept = default;
    // Takes ownership of the tree whose root is `root` (from createRoot, a
    // parse, or removeFromTree); nobody else may free it. A node outside any
    // tree is taken too, and deleted in the end. Null: empty handle.
    explicit Tree(TreeNode* root) noexcept : m_root(root) {
        if (m_root) m_root->incTreeRefCount();
    }
    ~Tree() { reset(); }

    // The moved-from handle is left empty.
    Tree(Tree&& other) noexcept : m_root(other.m_root) { other.m_root = nullptr; }
    Tree& operator=(Tree&& other) noexcept {
        if (this != &other) {
            reset();
            m_root = other.m_root;
            other.m_root = nullptr;
        }
        return *this;
    }
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    // Parsing. Each frees what the handle held, then parses. The result is the
    // parse entry point's: false when the input cannot be read or converted,
    // or memory runs out (the handle is then empty; the cause went to `log`);
    // true otherwise, malformed markup included. True with an empty handle
    // means the text held no element. `log` and `monitor` may be null;
    // `trimWhitespace` true drops whitespace around text runs.

    // A file, in UTF-8, UTF-16 with a byte-order mark, or the encoding its
    // XML declaration names. An empty file gives false.
    bool parseFile(const char* path, LogBase* log = nullptr, bool trimWhitespace = true,
                   ProgressMonitor* monitor = nullptr) {
        reset();
        TreeNode* root = nullptr;
        bool ok = TreeNode::customParseFile(path, log, monitor, &root, trimWhitespace);
        reset(root);
        return ok;
    }
    // UTF-8 text, up to its first NUL byte (a const char* converts).
    bool parseString(const StringBuffer& text, LogBase* log = nullptr, bool trimWhitespace = true,
                     ProgressMonitor* monitor = nullptr) {
        reset();
        TreeNode* root = nullptr;
        bool ok = TreeNode::customParseString(text, log, monitor, &root, trimWhitespace);
        reset(root);
        return ok;
    }
    // Bytes in any supported encoding; `data` is converted to UTF-8 in place.
    // An empty buffer gives false.
    bool parseData(DataBuffer& data, LogBase* log = nullptr, bool trimWhitespace = true,
                   ProgressMonitor* monitor = nullptr) {
        reset();
        LogNull quiet;
        TreeNode* root = nullptr;
        bool ok = TreeNode::customParseData2(data, monitor, log ? *log : quiet, &root,
                                             trimWhitespace);
        reset(root);
        return ok;
    }

    // Detaches `node` from its parent (removeFromTree) and returns the new
    // tree it roots, which the caller now owns. Empty for a null node or one
    // without a parent. Holding the old tree in a Tree keeps it alive.
    static Tree detach(TreeNode* node) {
        if (!node || !node->getParent()) return Tree();
        node->removeFromTree();
        return Tree(node);
    }

    // The root (borrowed), or null for an empty handle.
    TreeNode* root() const noexcept { return m_root; }
    TreeNode* operator->() const noexcept { return m_root; }
    // True when the handle owns a tree.
    explicit operator bool() const noexcept { return m_root != nullptr; }

    // Gives the tree back: drops the handle's reference and returns the root,
    // which the caller now frees (deleteTree). The handle is left empty.
    TreeNode* release() noexcept {
        TreeNode* root = m_root;
        m_root = nullptr;
        if (root) root->decTreeRefCount();
        return root;
    }
    // Frees the tree held (if any), then takes `root` as Tree(root) does.
    // A root that was attached under another node meanwhile belongs to that
    // tree: only the reference is dropped, nothing is freed.
    void reset(TreeNode* root = nullptr) noexcept {
        if (root == m_root) return;
        if (TreeNode* old = release()) {
            if (!old->getParent()) {
                if (old->getRoot()) {
                    old->deleteTree();
                } else {
                    delete old;  // a node outside any tree owns only itself
                }
            }
        }
        m_root = root;
        if (m_root) m_root->incTreeRefCount();
    }

private:
    TreeNode* m_root = nullptr;
};

// One tree reference on a node for the guard's scope. While it is held, a
// detach never deletes the node: removeChild() and the like leave it alive
// as the root of its own tree (hand that to a Tree before the guard ends),
// and removeFromTree() elsewhere never destroys the tree the node is in.
// It does not stop deleteTree(): the guard must end before its tree is freed.
class NodeRef {
public:
    // Null: holds nothing.
    explicit NodeRef(TreeNode* node) noexcept : m_node(node) {
        if (m_node) m_node->incTreeRefCount();
    }
    ~NodeRef() {
        if (m_node) m_node->decTreeRefCount();
    }
    NodeRef(const NodeRef&) = delete;
    NodeRef& operator=(const NodeRef&) = delete;

    // The node (borrowed).
    TreeNode* get() const noexcept { return m_node; }
    TreeNode* operator->() const noexcept { return m_node; }

private:
    TreeNode* m_node;
};

// Iterator over the children of one node, in document order. It reads the
// children array at every step, so it never runs past the end, but adding
// or removing children while iterating skips or repeats some.
class ChildIterator {
public:
    // Iterator traits, for the standard algorithms.
    using iterator_category = std::forward_iterator_tag;
    using value_type = TreeNode*;
    using difference_type = std::ptrdiff_t;
    using pointer = TreeNode* const*;
    using reference = TreeNode*;

    // The end iterator.
    ChildIterator() noexcept = default;
    ChildIterator(const TreeNode* parent, int index) noexcept : m_parent(parent), m_index(index) {}

    // The child (borrowed).
    TreeNode* operator*() const noexcept {
        // getChild only reads; it is not const because the node model's
        // getters never were.
        return const_cast<TreeNode*>(m_parent)->getChild(m_index);
    }
    // The next child.
    ChildIterator& operator++() noexcept {
        ++m_index;
        return *this;
    }
    ChildIterator operator++(int) noexcept {
        ChildIterator before = *this;
        ++m_index;
        return before;
    }
    friend bool operator==(const ChildIterator& a, const ChildIterator& b) noexcept {
        bool aEnd = a.atEnd(), bEnd = b.atEnd();
        if (aEnd || bEnd) return aEnd == bEnd;
        return a.m_parent == b.m_parent && a.m_index == b.m_index;
    }
    friend bool operator!=(const ChildIterator& a, const ChildIterator& b) noexcept {
        return !(a == b);
    }

private:
    bool atEnd() const noexcept {
        return !m_parent || m_index < 0 || m_index >= m_parent->getNumChildren();
    }

    const TreeNode* m_parent = nullptr;
    int m_index = -1;
};

// The children of one node: `for (TreeNode* child : xmltree::children(node))`.
class ChildRange {
public:
    // The children of parent; none for null.
    explicit ChildRange(const TreeNode* parent) noexcept : m_parent(parent) {}
    ChildIterator begin() const noexcept { return ChildIterator(m_parent, 0); }
    ChildIterator end() const noexcept { return ChildIterator(); }
    // The number of children now, and whether there are none.
    int size() const noexcept { return m_parent ? m_parent->getNumChildren() : 0; }
    bool empty() const noexcept { return size() == 0; }

private:
    const TreeNode* m_parent;
};

// The children of `node` (none for null), as a range.
inline ChildRange children(const TreeNode* node) noexcept {
    return ChildRange(node);
}

// A walk over `start` and every node below it, level by level, each level
// in document order: the order in which the subtree searches and content
// extraction visit nodes. Single pass: `for (TreeNode* n : walk)` steps the
// walk itself. Two queues hold the nodes still to come (the children of one
// parent at a time, and the visited nodes whose children are pending), so
// neither depth nor width costs stack. The subtree must not gain, lose or
// move nodes during the walk.
class BreadthFirst {
public:
    class iterator {
    public:
        // Iterator traits, for the standard algorithms.
        using iterator_category = std::input_iterator_tag;
        using value_type = TreeNode*;
        using difference_type = std::ptrdiff_t;
        using pointer = TreeNode* const*;
        using reference = TreeNode*;

        // The end iterator.
        iterator() noexcept = default;
        explicit iterator(BreadthFirst* walk) noexcept : m_walk(walk) {}
        // The node the walk stands on (borrowed).
        TreeNode* operator*() const noexcept { return m_walk->m_current; }
        // Steps the walk to the next node.
        iterator& operator++() noexcept {
            m_walk->advance();
            return *this;
        }
        friend bool operator==(const iterator& a, const iterator& b) noexcept {
            return a.done() == b.done();
        }
        friend bool operator!=(const iterator& a, const iterator& b) noexcept {
            return a.done() != b.done();
        }

    private:
        bool done() const noexcept { return !m_walk || !m_walk->m_current; }
        BreadthFirst* m_walk = nullptr;
    };

    // A walk that starts on `start`; null gives an empty walk.
    explicit BreadthFirst(TreeNode* start) noexcept : m_current(start) {}
    BreadthFirst(const BreadthFirst&) = delete;
    BreadthFirst& operator=(const BreadthFirst&) = delete;

    // begin() continues from where the walk stands: the walk is one pass.
    iterator begin() noexcept { return iterator(this); }
    iterator end() noexcept { return iterator(); }

    // The node the walk stands on; null once it is over.
    TreeNode* current() const noexcept { return m_current; }
    // Levels between the current node and `start` (0 for `start` itself).
    int depth() const noexcept { return m_depth; }
    // Leaves the current node's descendants out of the walk.
    void skipChildren() noexcept { m_skip = true; }
    // True when a queue could not grow (memory ran out) and the walk ended
    // before visiting every node.
    bool failed() const noexcept { return m_failed; }

private:
    void advance() noexcept {
        TreeNode* node = m_current;
        if (!node) return;
        m_current = nullptr;
        if (!m_skip && node->getNumChildren() > 0 && !pushParent(node)) return;
        m_skip = false;
        while (!m_visit.hasObjects()) {
            TreeNode* parent = popParent();
            if (!parent) return;
            const int n = parent->getNumChildren();
            for (int i = 0; i < n; ++i) {
                TreeNode* child = parent->getChild(i);
                if (child && !m_visit.push(child)) return fail();
            }
        }
        m_current = static_cast<TreeNode*>(m_visit.pop());
    }

    // The parent queue holds nodes of at most two levels, the front one and
    // the next; counting both gives each popped parent's depth without
    // storing it.
    bool pushParent(TreeNode* node) noexcept {
        if (!m_parents.push(node)) {
            fail();
            return false;
        }
        if (m_frontCount + m_backCount == 0) {
            m_frontDepth = m_depth;
            m_frontCount = 1;
        } else if (m_depth == m_frontDepth) {
            ++m_frontCount;
        } else {
            ++m_backCount;
        }
        return true;
    }
    TreeNode* popParent() noexcept {
        TreeNode* parent = static_cast<TreeNode*>(m_parents.pop());
        if (!parent) return nullptr;
        if (m_frontCount == 0) {
            ++m_frontDepth;
            m_frontCount = m_backCount;
            m_backCount = 0;
        }
        --m_frontCount;
        m_depth = m_frontDepth + 1;
        return parent;
    }
    void fail() noexcept {
        m_failed = true;
        m_current = nullptr;
    }

    _mxQueue m_visit;    // children of one parent, still to be visited
    _mxQueue m_parents;  // visited nodes whose children are still to come
    TreeNode* m_current;
    int m_depth = 0;       // depth of m_current and of everything in m_visit
    int m_frontDepth = 0;  // depth of the parents at the front of m_parents
    int m_frontCount = 0;  // parents queued at m_frontDepth
    int m_backCount = 0;   // parents queued one level deeper
    bool m_skip = false;
    bool m_failed = false;
};

}  // namespace xmltree

#endif
