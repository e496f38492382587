#ifndef XMLTREE_FUZZ_OPS_PROGRAM_H
#define XMLTREE_FUZZ_OPS_PROGRAM_H

// Reads a byte string as a program of tree operations over a small pool of
// trees and checks the tree's bookkeeping after every step. Shared by the
// operations fuzzer and the test that replays its regression inputs.
//
// Bookkeeping kept on the side, and checked against the library:
//   - pool_: roots of the live trees, at most kMaxTrees. On each pool root we
//     hold exactly one "anchor" reference, so that detaching children never
//     destroys the tree we are working in.
//   - held_: every other tree reference we took, one entry per reference.
// After each step every node's localRefCount must equal the references we
// know of on it, and every tree's refCount the sum over its nodes.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "foundation/PoolArena.h"
#include "foundation/StringFunctions.h"
#include "fuzz/tree_invariants.h"
#include "xmltree/TreeArenaCheck.h"
#include "xmltree/TreeNode.h"

namespace opsfuzz {

// Under the fuzzer a broken invariant aborts at once, with the tree as it
// is; the replay test asks for an exception instead, so that one bad input
// fails one test and names itself.
struct CheckFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

inline bool& throwOnFailure() {
    static bool flag = false;
    return flag;
}

[[noreturn]] inline void fail(int step, const char* what) {
    std::string message = "tree invariant broken after step " + std::to_string(step) + ": " + what;
    if (throwOnFailure()) throw CheckFailure(message);
    std::fprintf(stderr, "%s\n", message.c_str());
    std::abort();
}

// Hands out operand bytes; an exhausted input reads as zeros, so every
// program is complete whatever its length.
class ByteReader {
  public:
    ByteReader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    bool atEnd() const { return pos_ >= size_; }
    uint8_t byte() { return pos_ < size_ ? data_[pos_++] : 0; }
    int below(int n) { return n > 0 ? byte() % n : 0; }

  private:
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
};

constexpr int kMaxTrees = 4;
constexpr int kMaxNodes = 400;
constexpr int kMaxSteps = 3000;

// Small vocabularies so that lookups, removals and sorts find matches often.
// Each list ends with nullptr, picked when a null argument is allowed.
inline const char* const kTags[] = {"a", "b", "B", "c", "1x", "", "r:s", "a b", nullptr};
inline const char* const kTexts[] = {"", "1", "2", "10", "x", "X y", "<&\"'>", "abc", nullptr};
inline const char* const kAttrNames[] = {"id", "n", "1st", "x-y", "", " k", nullptr};
inline const char* const kAttrValues[] = {"1", "2", "10", "-3", "v", "", "a&b", nullptr};

template <size_t N>
const char* pick(ByteReader& in, const char* const (&list)[N], bool allowNull) {
    int n = static_cast<int>(N) - (allowNull ? 0 : 1);
    return list[in.below(n)];
}

inline const char* tagText(const TreeNode* n) {
    return n->getTag();
}
inline const char* contentText(const TreeNode* n) {
    return n->getContent();
}

// True when `a` lies on the parent chain of `b` (or is `b`).
inline bool isAncestorOrSelf(const TreeNode* a, const TreeNode* b) {
    for (const TreeNode* p = b; p; p = p->getParent()) {
        if (p == a) return true;
    }
    return false;
}

class OpsProgram {
  public:
    OpsProgram() = default;
    OpsProgram(const OpsProgram&) = delete;
    OpsProgram& operator=(const OpsProgram&) = delete;
    ~OpsProgram() { releaseAll(false); }

    void run(const uint8_t* data, size_t size) {
        ByteReader in(data, size);
        for (step_ = 0; step_ < kMaxSteps && !in.atEnd(); ++step_) {
            doOp(in);
            check();
        }
        releaseAll(true);
    }

    // For tests of the checker itself: take a tree into the pool, and check.
    void adoptTree(TreeNode* root) { adopt(root); }
    void checkNow() { check(); }

  private:
    // ---- addressing -------------------------------------------------------

    // Pre-order listing of one tree, built with an explicit stack.
    static void listTree(TreeNode* root, std::vector<TreeNode*>& out) {
        out.clear();
        std::vector<TreeNode*> stack{root};
        while (!stack.empty()) {
            TreeNode* n = stack.back();
            stack.pop_back();
            out.push_back(n);
            for (int i = n->getNumChildren() - 1; i >= 0; --i)
                stack.push_back(n->getChild(i));
        }
    }

    // A node of some pool tree, or null when the pool is empty.
    TreeNode* pickNode(ByteReader& in) {
        if (pool_.empty()) return nullptr;
        TreeNode* root = pool_[in.below(static_cast<int>(pool_.size()))];
        listTree(root, scratch_);
        return scratch_[in.byte() % scratch_.size()];
    }

    int poolIndex(const TreeNode* root) const {
        for (size_t i = 0; i < pool_.size(); ++i) {
            if (pool_[i] == root) return static_cast<int>(i);
        }
        return -1;
    }

    int countNodes() {
        int total = 0;
        for (TreeNode* r : pool_) {
            listTree(r, scratch_);
            total += static_cast<int>(scratch_.size());
        }
        return total;
    }

    bool roomForNodes() { return countNodes() < kMaxNodes; }

    // ---- pool and reference bookkeeping -----------------------------------

    // Takes a new tree into the pool with an anchor, or deletes it when the
    // pool is full (dropping any references we held inside it).
    void adopt(TreeNode* root) {
        if (poolIndex(root) >= 0) return;
        if (static_cast<int>(pool_.size()) < kMaxTrees) {
            if (!root->incTreeRefCount()) fail(step_, "incTreeRefCount on a new root failed");
            pool_.push_back(root);
            return;
        }
        forgetHeldIn(TreeArenaCheck::infoOf(root));
        root->deleteTree();
    }

    void forgetHeldIn(const TreeInfo* info) {
        size_t keep = 0;
        for (TreeNode* h : held_) {
            if (TreeArenaCheck::infoOf(h) != info) held_[keep++] = h;
        }
        held_.resize(keep);
    }

    void dropFromPool(const TreeNode* root) {
        int i = poolIndex(root);
        if (i >= 0) pool_.erase(pool_.begin() + i);
    }

    // A pool root that was attached under another tree: its anchor becomes
    // an ordinary reference held on a member node.
    void absorbed(TreeNode* oldRoot) {
        if (poolIndex(oldRoot) < 0) return;
        dropFromPool(oldRoot);
        held_.push_back(oldRoot);
    }

    // Detached subtrees on which we still hold references become trees of
    // their own; take each such tree into the pool.
    // Adopting into a full pool deletes a tree and edits held_, so the scan
    // starts over after each adoption.
    void adoptOrphans() {
        for (bool again = true; again;) {
            again = false;
            for (TreeNode* h : held_) {
                TreeNode* root = h->getRoot();
                if (poolIndex(root) >= 0) continue;
                adopt(root);
                again = true;
                break;
            }
        }
    }

    // Gives back every reference and deletes every pool tree. Checked at the
    // end of a run; unchecked from the destructor, which may run while an
    // exception from a failed check unwinds.
    void releaseAll(bool checked) {
        while (!held_.empty()) {
            TreeNode* h = held_.back();
            held_.pop_back();
            if (!h->decTreeRefCount() && checked)
                fail(step_, "decTreeRefCount of a held reference failed");
        }
        while (!pool_.empty()) {
            TreeNode* r = pool_.back();
            pool_.pop_back();
            bool ok = r->decTreeRefCount() && r->getTreeRefCount() == 0 && r->verifyRefCounts();
            r->deleteTree();
            if (!ok && checked) fail(step_, "references left after releasing all");
        }
    }

    // ---- operations ---------------------------------------------------------

    void doOp(ByteReader& in) {
        switch (in.below(27)) {
            case 0:
                opCreateRoot(in);
                break;
            case 1:
                opCreateNode(in);
                break;
            case 2:
                opAttachDetached(in);
                break;
            case 3:
                opAppendExisting(in);
                break;
            case 4:
                opInsertExisting(in);
                break;
            case 5:
                opRemoveChildByIndex(in);
                break;
            case 6:
                opRemoveChildByTag(in);
                break;
            case 7:
                opRemoveChildWithContent(in);
                break;
            case 8:
                opMoveChild(in);
                break;
            case 9:
                opDetach(in);
                break;
            case 10:
                opSwapNode(in);
                break;
            case 11:
                opSwapTree(in);
                break;
            case 12:
                opSort(in);
                break;
            case 13:
                opInsertAscending(in);
                break;
            case 14:
                opCheckInsertAscending(in);
                break;
            case 15:
                opIncRef(in);
                break;
            case 16:
                opDecRef(in);
                break;
            case 17:
                opAttributes(in);
                break;
            case 18:
                opContent(in);
                break;
            case 19:
                opRenameChildTag(in);
                break;
            case 20:
                opSetTag(in);
                break;
            case 21:
                opDeleteTree(in);
                break;
            case 22:
                opWriteAndReparse(in);
                break;
            case 23:
                opReadOnly(in);
                break;
            case 24:
                opDetachUnanchored(in);
                break;
            case 25:
                opRemoveByIndexUnanchored(in);
                break;
            default:
                opParseIntoPool(in);
                break;
        }
    }

    void opCreateRoot(ByteReader& in) {
        if (!roomForNodes()) return;
        const char* tag = pick(in, kTags, true);
        const char* text = pick(in, kTexts, true);
        TreeNode* root = nullptr;
        switch (in.below(3)) {
            case 0:
                root = TreeNode::createRoot(tag);
                break;
            case 1:
                root = TreeNode::createRoot2(tag, text);
                break;
            default: {
                DataBuffer bytes;
                if (text) bytes.append(text, static_cast<unsigned>(std::strlen(text)));
                root = TreeNode::createRoot3(tag, bytes);
            }
        }
        if (!root) fail(step_, "createRoot gave null");
        if (root->getRoot() != root || root->getTreeRefCount() != 0)
            fail(step_, "new root is not a fresh tree");
        adopt(root);
    }

    void opCreateNode(ByteReader& in) {
        if (!roomForNodes()) return;
        TreeNode* parent = in.below(8) == 0 ? nullptr : pickNode(in);
        const char* tag = pick(in, kTags, true);
        const char* text = pick(in, kTexts, true);
        TreeNode* node = nullptr;
        switch (in.below(3)) {
            case 0:
                node = TreeNode::createNode(parent, tag);
                break;
            case 1:
                node = TreeNode::createNode2(parent, tag, text);
                break;
            default: {
                DataBuffer bytes;
                if (text) bytes.append(text, static_cast<unsigned>(std::strlen(text)));
                node = TreeNode::createNode3(parent, tag, bytes, nullptr);
            }
        }
        if (!node) fail(step_, "createNode gave null");
        if (!parent) {
            adopt(node);
            return;
        }
        if (node->getParent() != parent || parent->getLastChild() != node)
            fail(step_, "createNode did not attach the node last");
    }

    // A directly constructed node, appended or inserted (also at indexes
    // out of range, which must be refused without change).
    void opAttachDetached(ByteReader& in) {
        if (!roomForNodes()) return;
        TreeNode* target = pickNode(in);
        if (!target) return;
        TreeNode* node = new TreeNode(pick(in, kTags, true), pick(in, kTexts, true), 0);
        if (in.below(2) == 0) {
            if (!target->appendChild2(node, 1004)) fail(step_, "appendChild2 refused a new node");
            return;
        }
        int n = target->getNumChildren();
        int index = in.below(n + 5) - 2;
        bool expect = index >= 0 && index <= n;
        bool got = target->insertChild(index, node);
        if (got != expect) fail(step_, "insertChild result wrong for a new node");
        if (!got) {
            if (target->getNumChildren() != n) fail(step_, "refused insertChild changed children");
            delete node;
        } else if (target->getChild(index) != node) {
            fail(step_, "insertChild put the node at the wrong index");
        }
    }

    void opAppendExisting(ByteReader& in) {
        TreeNode* target = pickNode(in);
        TreeNode* child = pickNode(in);
        if (!target) return;
        bool expect = child->getParent() == nullptr &&
                      TreeArenaCheck::infoOf(child) != TreeArenaCheck::infoOf(target);
        int refs = child->getTreeRefCount() + target->getTreeRefCount();
        bool got = target->appendChild2(child, 1005);
        if (got != expect) fail(step_, "appendChild2 result wrong");
        if (!got) return;
        absorbed(child);
        if (target->getLastChild() != child) fail(step_, "appended child is not last");
        if (target->getTreeRefCount() != refs) fail(step_, "merged refCount is not the sum");
    }

    void opInsertExisting(ByteReader& in) {
        TreeNode* target = pickNode(in);
        TreeNode* child = pickNode(in);
        if (!target) return;
        int n = target->getNumChildren();
        int index = in.below(n + 4) - 1;
        bool expect = child->getParent() == nullptr &&
                      TreeArenaCheck::infoOf(child) != TreeArenaCheck::infoOf(target) &&
                      index >= 0 && index <= n;
        bool got = target->insertChild(index, child);
        if (got != expect) fail(step_, "insertChild result wrong");
        if (!got) return;
        absorbed(child);
        if (target->getChild(index) != child) fail(step_, "inserted child at the wrong index");
    }

    void opRemoveChildByIndex(ByteReader& in) {
        TreeNode* parent = pickNode(in);
        if (!parent) return;
        int n = parent->getNumChildren();
        int index = in.below(n + 2) - 1;
        parent->removeChildByIndex(index);
        int expect = (index >= 0 && index < n) ? n - 1 : n;
        if (parent->getNumChildren() != expect) fail(step_, "removeChildByIndex count wrong");
        adoptOrphans();
    }

    void opRemoveChildByTag(ByteReader& in) {
        TreeNode* parent = pickNode(in);
        if (!parent) return;
        const char* tag = pick(in, kTags, true);
        parent->removeChild(tag);
        for (int i = 0; tag && i < parent->getNumChildren(); ++i) {
            if (std::strcmp(tagText(parent->getChild(i)), tag) == 0)
                fail(step_, "removeChild left a match");
        }
        adoptOrphans();
    }

    void opRemoveChildWithContent(ByteReader& in) {
        TreeNode* parent = pickNode(in);
        if (!parent) return;
        const char* text = pick(in, kTexts, true);
        parent->removeChildWithContent(text);
        for (int i = 0; text && i < parent->getNumChildren(); ++i) {
            if (std::strcmp(contentText(parent->getChild(i)), text) == 0)
                fail(step_, "removeChildWithContent left a match");
        }
        adoptOrphans();
    }

    void opMoveChild(ByteReader& in) {
        TreeNode* parent = pickNode(in);
        if (!parent) return;
        const char* text = pick(in, kTexts, true);
        int n = parent->getNumChildren();
        if (in.below(2) == 0) {
            parent->moveUpChildWithContent(text);
        } else {
            parent->moveDownChildWithContent(text);
        }
        if (parent->getNumChildren() != n) fail(step_, "a move changed the number of children");
    }

    void opDetach(ByteReader& in) {
        TreeNode* node = pickNode(in);
        if (!node) return;
        bool wasMember = node->getParent() != nullptr;
        node->removeFromTree();
        if (!wasMember) return;
        if (node->getParent() || node->getRoot() != node) fail(step_, "detached node is no root");
        adopt(node);
        adoptOrphans();
    }

    // Detaching with our anchor released: when no reference is left in the
    // rest of the tree, the library destroys it. Predict that from our own
    // bookkeeping, and afterwards touch only what must still be alive.
    void opDetachUnanchored(ByteReader& in) {
        TreeNode* node = pickNode(in);
        if (!node || !node->getParent()) return;
        TreeNode* root = node->getRoot();
        bool dies = releaseAnchorPredict(root, node);
        node->removeFromTree();
        afterUnanchored(root, dies);
        adopt(node);
        adoptOrphans();
    }

    void opRemoveByIndexUnanchored(ByteReader& in) {
        TreeNode* parent = pickNode(in);
        if (!parent) return;
        int n = parent->getNumChildren();
        if (n == 0) return;
        int index = in.below(n);
        TreeNode* root = parent->getRoot();
        bool dies = releaseAnchorPredict(root, parent->getChild(index));
        parent->removeChildByIndex(index);
        afterUnanchored(root, dies);
        adoptOrphans();
    }

    // Releases the anchor on root and tells whether detaching `part` will
    // leave the rest of the tree without references.
    bool releaseAnchorPredict(TreeNode* root, TreeNode* part) {
        if (!root->decTreeRefCount()) fail(step_, "decTreeRefCount of an anchor failed");
        int rest = root->getTreeRefCount() - part->localRefcountSum();
        if (rest < 0) fail(step_, "subtree holds more references than its tree");
        if (rest > 0) return false;
        // Our own books must agree that nothing is held outside `part`.
        for (TreeNode* h : held_) {
            if (TreeArenaCheck::infoOf(h) == TreeArenaCheck::infoOf(root) &&
                !isAncestorOrSelf(part, h))
                fail(step_, "reference held outside the part but tree count says none");
        }
        return true;
    }

    void afterUnanchored(TreeNode* root, bool died) {
        if (died) {
            dropFromPool(root);
            return;
        }
        if (!root->incTreeRefCount()) fail(step_, "re-anchoring failed");
    }

    void opSwapNode(ByteReader& in) {
        TreeNode* a = pickNode(in);
        TreeNode* b = pickNode(in);
        if (!a) return;
        int childrenA = a->getNumChildren();
        TreeNode* parentA = a->getParent();
        a->swapNode(*b);
        if (a->getNumChildren() != childrenA || a->getParent() != parentA)
            fail(step_, "swapNode moved children or parent");
    }

    void opSwapTree(ByteReader& in) {
        TreeNode* a = pickNode(in);
        TreeNode* b = pickNode(in);
        if (!a || isAncestorOrSelf(a, b) || isAncestorOrSelf(b, a)) return;
        int na = a->getNumChildren();
        int nb = b->getNumChildren();
        a->swapTree(*b);
        if (a->getNumChildren() != nb || b->getNumChildren() != na)
            fail(step_, "swapTree did not exchange the children");
    }

    void opSort(ByteReader& in) {
        TreeNode* node = pickNode(in);
        if (!node) return;
        int kind = in.below(7);
        long asc = in.below(2);
        bool ci = in.below(2) != 0;
        const char* tag = pick(in, kTags, false);
        const char* name = pick(in, kAttrNames, false);
        switch (kind) {
            case 0:
                node->sortByTag(asc, ci);
                break;
            case 1:
                node->sortByContent(asc, ci);
                break;
            case 2:
                node->sortByAttribute(name, asc, ci);
                break;
            case 3:
                node->sortByAttributeInt(name, asc);
                break;
            case 4:
                node->sortRecordsByAttribute(tag, name, asc, ci);
                break;
            case 5:
                node->sortRecordsByContent(tag, asc, ci);
                break;
            default:
                node->sortRecordsByContentInt(tag, asc);
                break;
        }
        if (kind <= 1) checkSorted(node, kind == 0, asc != 0, ci);
    }

    void checkSorted(TreeNode* node, bool byTag, bool asc, bool ci) {
        for (int i = 1; i < node->getNumChildren(); ++i) {
            TreeNode* a = node->getChild(i - 1);
            TreeNode* b = node->getChild(i);
            const char* ka = byTag ? tagText(a) : contentText(a);
            const char* kb = byTag ? tagText(b) : contentText(b);
            int c = ci ? mxStrICmp(ka, kb) : std::strcmp(ka, kb);
            if (asc ? c > 0 : c < 0) fail(step_, "children out of order after a sort");
        }
    }

    void opInsertAscending(ByteReader& in) {
        if (!roomForNodes()) return;
        TreeNode* node = pickNode(in);
        if (!node) return;
        const char* tag = pick(in, kTags, false);
        const char* text = pick(in, kTexts, true);
        int expect = ascendingSlot(node, tag, text);
        TreeNode* added = node->insertAscending(tag, text);
        if (!added || node->getChild(expect) != added)
            fail(step_, "insertAscending put the node at the wrong place");
    }

    // Where insertAscending must put (tag, text): before the first child
    // whose tag is greater, or whose tag is equal and content greater.
    static int ascendingSlot(TreeNode* node, const char* tag, const char* text) {
        int n = node->getNumChildren();
        for (int i = 0; i < n; ++i) {
            TreeNode* c = node->getChild(i);
            int t = std::strcmp(tagText(c), tag);
            if (t > 0) return i;
            if (t == 0 && text && std::strcmp(contentText(c), text) > 0) return i;
        }
        return n;
    }

    void opCheckInsertAscending(ByteReader& in) {
        if (!roomForNodes()) return;
        TreeNode* node = pickNode(in);
        if (!node) return;
        const char* tag = pick(in, kTags, false);
        bool withPair = in.below(2) != 0;
        StringPair pair(pick(in, kAttrNames, false), pick(in, kAttrValues, false));
        int n = node->getNumChildren();
        TreeNode* got = node->checkInsertAscending(tag, withPair ? &pair : nullptr);
        if (!got || got->getParent() != node) fail(step_, "checkInsertAscending gave no child");
        bool created = node->getNumChildren() == n + 1;
        if (!created && node->getNumChildren() != n) fail(step_, "checkInsertAscending count");
        StringBuffer stored(tag);  // names are stored cleaned
        stored.removeInvalidXmlTagChars();
        bool tagOk = std::strcmp(got->getTag(), stored.getString()) == 0;
        if (!tagOk) fail(step_, "checkInsertAscending gave a child with another tag");
    }

    void opIncRef(ByteReader& in) {
        TreeNode* node = pickNode(in);
        if (!node) return;
        if (!node->incTreeRefCount()) fail(step_, "incTreeRefCount on a member failed");
        held_.push_back(node);
    }

    void opDecRef(ByteReader& in) {
        if (held_.empty()) return;
        size_t i = in.byte() % held_.size();
        TreeNode* node = held_[i];
        held_.erase(held_.begin() + static_cast<long>(i));
        if (!node->decTreeRefCount()) fail(step_, "decTreeRefCount of a held reference failed");
    }

    void opAttributes(ByteReader& in) {
        TreeNode* node = pickNode(in);
        if (!node) return;
        const char* name = pick(in, kAttrNames, true);
        const char* value = pick(in, kAttrValues, true);
        switch (in.below(6)) {
            case 0:
                node->addAttribute(name, value);
                break;
            case 1:
                if (name) node->updateAttribute(name, value);
                break;
            case 2:
                if (name) node->removeAttribute(name);
                break;
            case 3:
                node->removeAllAttributes();
                break;
            case 4:  // the set handed out; names go in as they are
                if (AttributeSet* set = node->getAttributeSet()) {
                    if (name && *name) set->addAttribute(name, value);
                }
                break;
            default: {
                TreeNode* from = pickNode(in);
                node->copyAttributes(*from);
                if (from != node && node->getNumAttributes() > from->getNumAttributes())
                    fail(step_, "copyAttributes added more than the source holds");
            }
        }
    }

    void opContent(ByteReader& in) {
        TreeNode* node = pickNode(in);
        if (!node) return;
        const char* text = pick(in, kTexts, true);
        int len = text ? static_cast<int>(std::strlen(text)) : 0;
        switch (in.below(9)) {
            case 0:
                node->setContentUtf8(text);
                break;
            case 1:
                node->appendContent(text);
                break;
            case 2:
                node->setContentN(text, len);
                break;
            case 3:
                node->setContentN(nullptr, 0);
                break;
            case 4:
                node->appendContentChar(static_cast<char>('a' + in.below(26)));
                break;
            case 5:
                node->appendContentInt(static_cast<int8_t>(in.byte()));
                break;
            case 6:  // through the buffer handed out, which a parsed tree must allow
                if (StringBuffer* sb = node->getContentSb()) sb->append(text);
                break;
            case 7:
                if (StringBuffer* sb = node->getOrCreateContentSb()) sb->appendN(text, len);
                break;
            default:
                node->setCdata(in.below(2) != 0);
                break;
        }
    }

    void opRenameChildTag(ByteReader& in) {
        TreeNode* node = pickNode(in);
        if (!node) return;
        node->renameChildTag(pick(in, kTags, true), pick(in, kTags, true));
    }

    void opSetTag(ByteReader& in) {
        TreeNode* node = pickNode(in);
        if (!node) return;
        node->setTag(pick(in, kTags, true));
        if (in.below(2) == 0) node->ensureLegalTagStartChar();
    }

    void opDeleteTree(ByteReader& in) {
        TreeNode* node = pickNode(in);
        if (!node) return;
        TreeNode* root = node->getRoot();
        forgetHeldIn(TreeArenaCheck::infoOf(root));
        dropFromPool(root);
        node->deleteTree();
    }

    // Parsed trees bring a prolog (declaration, style sheets, DOCTYPE,
    // processing text) that attaching them elsewhere must free with their
    // old tree record.
    void opParseIntoPool(ByteReader& in) {
        static const char* const kDocs[] = {
            "<?xml version=\"1.0\" encoding=\"utf-8\"?><a><b>1</b><c x=\"2\">3</c></a>",
            "<?xml-stylesheet href=\"s.css\"?><!DOCTYPE a [<!ENTITY e \"v\">]><?p q?><a><a/></a>",
            "<r><b>x</b><b>y</b><c><d/></c></r>trailing<r2/>",
            "<a><![CDATA[<1>]]><b a=\"1\" 1b=\"2\"/>text</a>",
        };
        if (!roomForNodes()) return;
        const char* doc = kDocs[in.below(4)];
        TreeNode* root = nullptr;
        bool ok = TreeNode::customParseStringN(doc, static_cast<int>(std::strlen(doc)), nullptr,
                                               &root, in.below(2) != 0);
        if (!ok || !root) fail(step_, "a small document did not parse");
        adopt(root);
    }

    // The rules for one element, written the obvious recursive way (the
    // program's trees stay small): what the writer's own walk must produce.
    static void referenceWrite(TreeNode* node, StringBuffer& out, int index, int depth) {
        if (index == 0) out.append("\r\n");
        if (node->openTag(out, depth)) return;
        node->outputContent(out);
        const ExtPtrArray* kids = TreeArenaCheck::childrenOf(node);
        if (!kids) {
            node->closeTag(out, out.lastChar() == '\n' ? depth : 0);
            return;
        }
        for (int i = 0; i < kids->getSize(); ++i)
            referenceWrite(static_cast<TreeNode*>(kids->elementAt(i)), out, i, depth + 1);
        node->closeTag(out, depth);
    }

    // The writer and the parser on whatever shape the edits left behind; below
    // the root (no prolog) the text is the reference's, at depths on both
    // sides of the indentation cap.
    void opWriteAndReparse(ByteReader& in) {
        TreeNode* node = pickNode(in);
        if (!node) return;
        StringBuffer xml, expected;
        const int index = in.below(2), depth = step_ % 60;
        node->createXML(xml, index, node->getParent() ? depth : 0, in.below(2) != 0);
        if (node->getParent()) {
            referenceWrite(node, expected, index, depth);
            if (xml.getSize() != expected.getSize() ||
                std::memcmp(xml.getString(), expected.getString(),
                            static_cast<size_t>(xml.getSize())))
                fail(step_, "writer differs from the reference");
        }
        TreeNode* copy = nullptr;
        TreeNode::customParseStringN(xml.getString(), xml.getSize(), nullptr, &copy,
                                     in.below(2) != 0);
        if (copy) copy->deleteTree();
    }

    void opReadOnly(ByteReader& in) {
        TreeNode* node = pickNode(in);
        if (!node) return;
        const char* tag = pick(in, kTags, false);
        int found = 0;
        for (TreeNode* n = node->searchForTag(nullptr, tag); n && found < kMaxNodes;
             n = node->searchForTag(n, tag)) {
            if (std::strcmp(n->getTag(), tag) != 0) fail(step_, "searchForTag found another tag");
            ++found;
        }
        StringBuffer text;
        node->getAllContent(text, ' ');
    }

    // ---- invariants -------------------------------------------------------

    void check() {
        std::unordered_map<const TreeNode*, int> expected;
        for (TreeNode* h : held_)
            ++expected[h];
        for (TreeNode* r : pool_)
            ++expected[r];
        std::unordered_set<const TreeNode*> seen;
        std::unordered_set<const TreeInfo*> infos;
        size_t heldSeen = 0;
        // Every local count is ours: one per hold, one per pool root.
        const auto ours = [&](TreeNode* n) -> std::string {
            auto it = expected.find(n);
            if (it != expected.end()) ++heldSeen;
            const int want = it == expected.end() ? 0 : it->second;
            return n->getLocalRefCount() == want ? "" : "localRefCount differs from ours";
        };
        for (TreeNode* root : pool_) {
            const TreeInfo* info = TreeArenaCheck::infoOf(root);
            if (!info || info->root != root) fail(step_, "a pool tree's record has another root");
            if (!infos.insert(info).second) fail(step_, "two pool trees share a record");
            const std::string problem = treecheck::problemIn(root, ours, &seen);
            if (!problem.empty()) fail(step_, problem.c_str());
        }
        if (heldSeen != expected.size()) fail(step_, "a node we hold is in no pool tree");
    }

    std::vector<TreeNode*> pool_;
    std::vector<TreeNode*> held_;
    std::vector<TreeNode*> scratch_;
    int step_ = 0;
};

inline void runProgram(const uint8_t* data, size_t size) {
    // Parsed trees keep their arenas however small, so that the checks
    // after each step see trees freed whole and arenas handed over.
    xmltree::TreeArena::keepFromSlabsForTesting(1);
    OpsProgram program;
    program.run(data, size);
}

}  // namespace opsfuzz

#endif
