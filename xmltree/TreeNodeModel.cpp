// Node and tree record lifetime: construction, destruction, roots, tags and
// tree references.

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

#include "foundation/PoolArena.h"
#include "foundation/SmallObjectPool.h"
#include "xmltree/TreeInternal.h"
#include "xmltree/TreeNode.h"

static_assert(sizeof(void*) != 8 || sizeof(TreeNode) == 128,
              "TreeNode grew: every element of every document pays for each byte");

namespace {

// Trees may be created on different threads; the atomic keeps ids unique.
std::atomic<int> NextTreeID{100};

// The children arrays that the outermost ~TreeNode on this thread still has
// to empty, as a stack, and whether that destructor is draining it.
thread_local ExtPtrArray* tnDestroyTop = nullptr;
thread_local bool tnDraining = false;

// Keeps the live children of `kids`, in index order; returns how many there are.
int keepLive(ExtPtrArray& kids) {
    void** items = kids.getItems();
    const int n = kids.getSize();
    int live = 0;
    for (int i = 0; i < n; ++i) {
        TreeNode* c = static_cast<TreeNode*>(items[i]);
        if (c && c->getMagic() == kTreeMagicAlive) items[live++] = c;
    }
    while (kids.getSize() > live)
        kids.pop();
    return live;
}

void reverseInPlace(ExtPtrArray& kids) {
    void** items = kids.getItems();
    for (int i = 0, j = kids.getSize() - 1; i < j; ++i, --j) {
        void* t = items[i];
        items[i] = items[j];
        items[j] = t;
    }
}

// Children that a sort or shuffle left in random address order cost a cache
// miss each when destroyed in index order; a million of them took ten times
// as long as in the order they were made. From this many children on, an
// array out of address order is destroyed in address order, which the
// hardware streams like the order of making.
constexpr int kOrderFreesFrom = 4096;
constexpr unsigned kLineShift = 6;  // order within a cache line does not matter
constexpr unsigned kDigitBits = 11;

// Sorts the children by address, the highest first so that popping yields
// ascending addresses: a radix sort with a pass per 11 bits of the span of
// cache lines (two passes for trees up to 256 MB). False (nothing done) when
// the array is in address order already or no scratch memory is to be had.
bool orderForFreeing(ExtPtrArray& kids) {
    const int n = kids.getSize();
    void** items = kids.getItems();
    if (n < kOrderFreesFrom) return false;
    std::uintptr_t lo = UINTPTR_MAX, hi = 0;
    bool ascending = true;
    for (int i = 0; i < n; ++i) {
        const std::uintptr_t line = reinterpret_cast<std::uintptr_t>(items[i]) >> kLineShift;
        ascending = ascending && line >= hi;
        lo = std::min(lo, line);
        hi = std::max(hi, line);
    }
    if (ascending) return false;
    const auto count = static_cast<std::size_t>(n);
    void** scratch = static_cast<void**>(std::malloc(count * sizeof(void*)));
    if (!scratch) return false;
    void** from = items;
    void** to = scratch;
    std::size_t bucket[std::size_t{1} << kDigitBits];
    const std::uintptr_t mask = (std::uintptr_t{1} << kDigitBits) - 1;
    for (unsigned shift = 0; shift == 0 || ((hi - lo) >> shift) != 0; shift += kDigitBits) {
        std::fill(std::begin(bucket), std::end(bucket), std::size_t{0});
        auto digit = [&](void* p) {
            return static_cast<std::size_t>(
                ((hi - (reinterpret_cast<std::uintptr_t>(p) >> kLineShift)) >> shift) & mask);
        };
        for (std::size_t i = 0; i < count; ++i)
            ++bucket[digit(from[i])];
        std::size_t start = 0;
        for (std::size_t& b : bucket) {
            const std::size_t here = b;
            b = start;
            start += here;
        }
        for (std::size_t i = 0; i < count; ++i)
            to[bucket[digit(from[i])]++] = from[i];
        std::swap(from, to);
    }
    if (from != items) std::memcpy(items, from, count * sizeof(void*));
    std::free(scratch);
    return true;
}

}  // namespace

// Destroys the children in `kids` (which their dying parent no longer holds)
// and their subtrees, in the order of plain recursion: each child's whole
// destructor runs before its own children go (large arrays out of address
// order go in address order instead, see orderForFreeing). Without
// recursion, so that depth costs no stack, and without needing memory, so
// that a tree can be destroyed when memory has run out.
//
// A nested ~TreeNode pushes its array on a stack and returns; the outermost
// one drains the stack. The stack needs no memory of its own: the link from
// an array to the one below it is kept in the parent field of the array's
// element that is popped last (a dying node's children have no use for their
// parent link any more), and read back just before that element goes.
void TreeNodeLinks::destroyChildren(ExtPtrArray* kids) {
    if (keepLive(*kids) == 0) {
        delete kids;
        return;
    }
    // Popping from the end must yield the order of destruction.
    if (!orderForFreeing(*kids)) reverseInPlace(*kids);
    TreeNode* last = static_cast<TreeNode*>(kids->getItems()[0]);
    last->parent = reinterpret_cast<TreeNode*>(tnDestroyTop);
    tnDestroyTop = kids;
    if (tnDraining) return;  // an outer destructor drains the stack
    tnDraining = true;
    while (ExtPtrArray* top = tnDestroyTop) {
        TreeNode* c = static_cast<TreeNode*>(top->pop());
        if (top->getSize() == 0) {
            // c carries the link; an exhausted array goes before c does, so
            // a chain keeps the stack at one array however deep it is.
            tnDestroyTop = reinterpret_cast<ExtPtrArray*>(c->parent);
            c->parent = nullptr;
            delete top;
        }
        if (c->magic == kTreeMagicAlive) delete c;
    }
    tnDraining = false;
}

namespace {

template <class MakeNode>
TreeNode* makeRoot(MakeNode make) {
    TreeNode* node = nullptr;
    try {
        node = make();
    } catch (...) {
        return nullptr;
    }
    if (!node) return nullptr;
    TreeInfo* info = nullptr;
    try {
        info = new TreeInfo();
    } catch (...) {
        info = nullptr;
    }
    if (!info) {
        delete node;
        return nullptr;
    }
    node->setInfoRecursive(info);
    info->root = node;
    return node;
}

}  // namespace

XMLTREE_SMALL_OBJECT_POOLED_DEFINE(TreeNode)
XMLTREE_SMALL_OBJECT_POOLED_DEFINE(TreeInfo)

// ---- TreeInfo -------------------------------------------------------------

TreeInfo::TreeInfo()
    : magic(kTreeMagicAlive),
      root(nullptr),
      xmlDecl(nullptr),
      styleSheets(),
      processing(nullptr),
      docType(nullptr),
      treeId(NextTreeID.fetch_add(1)),
      refCount(0),
      arena(nullptr) {}

TreeInfo::~TreeInfo() {
    magic = kTreeMagicDead;
    // A record that goes before its root (an attached tree's) still holds
    // its arena only if an edit forgot to hand it over; its slabs must live
    // on with the nodes.
    xmltree::TreeArena::release(arena);
    arena = nullptr;
    delete docType;
    docType = nullptr;
    delete processing;
    processing = nullptr;
    if (xmlDecl && xmlDecl->magic == kTreeMagicAlive) delete xmlDecl;
    xmlDecl = nullptr;
    int n = styleSheets.getSize();
    for (int i = 0; i < n; ++i) {
        TreeNode* sheet = static_cast<TreeNode*>(styleSheets.elementAt(i));
        if (sheet && sheet->magic == kTreeMagicAlive) delete sheet;
    }
}

// ---- TreeNode construction ----------------------------------------------

TreeNode::TreeNode(const char* tagText, const char* contentText, int) : TreeNode() {
    if (tagText && *tagText) _setMyTag(tagText);
    if (contentText && *contentText) content = StringBuffer::createNewSB(contentText);
}

TreeNode::TreeNode(const char* tagText, DataBuffer& bytes, int) : TreeNode() {
    if (tagText && *tagText) _setMyTag(tagText);
    if (bytes.getSize() == 0) return;
    content = StringBuffer::createNewSB();
    if (content) {
        content->appendN(reinterpret_cast<const char*>(bytes.getData2()),
                         static_cast<int>(bytes.getSize()));
    }
}

TreeNode::TreeNode(const TreeNode&) : TreeNode() {}

TreeNode::~TreeNode() {
    magic = kTreeMagicDead;
    // A parsed tree that kept its arena: every object of it lies in the
    // arena and nothing else does, so the arena goes whole instead of each
    // object being visited and freed. This node's own block stays for the
    // delete that called this destructor.
    if (treeInfo && treeInfo->root == this && treeInfo->arena &&
        treeInfo->magic == kTreeMagicAlive) {
        xmltree::PoolArena* arena = treeInfo->arena;
        treeInfo->arena = nullptr;
        if (xmltree::TreeArena::drop(arena, this, sizeof(TreeNode))) return;
    }
    _releaseMyTagSB();
    delete content;
    content = nullptr;
    delete attributes;
    attributes = nullptr;
    if (children) {
        ExtPtrArray* kids = children;
        children = nullptr;
        TreeNodeLinks::destroyChildren(kids);
    }
    parent = nullptr;
    nextSibling = nullptr;
    prevSibling = nullptr;
    localRefCount = 0;
    if (treeInfo && treeInfo->root == this) {
        if (treeInfo->magic == kTreeMagicAlive) delete treeInfo;
        treeInfo = nullptr;
    }
}

TreeNode* TreeNode::createRoot(const char* tagText) {
    return makeRoot([tagText] { return new TreeNode(tagText, nullptr, 0); });
}

TreeNode* TreeNode::createRoot2(const char* tagText, const char* contentText) {
    return makeRoot([tagText, contentText] { return new TreeNode(tagText, contentText, 0); });
}

TreeNode* TreeNode::createRoot3(const char* tagText, DataBuffer& bytes) {
    return makeRoot([tagText, &bytes] { return new TreeNode(tagText, bytes, 0); });
}

// ---- tags -----------------------------------------------------------------

StringBuffer* TreeNode::_getMyTagSB2() {
    editing();
    return tag;
}

void TreeNode::_setMyTag(const char* tagText) {
    editing();
    if (!tag) {
        if (!tagText) return;
        const std::size_t len = std::strlen(tagText);
        if (len > INT_MAX - 1 || !makeTag(tagText, static_cast<int>(len))) return;
    } else {
        tag->setString(tagText ? tagText : "");
        tag->minimizeMemoryUsage();
    }
    tag->removeInvalidXmlTagChars();
}

void TreeNode::setTag(const char* tagText) {
    _setMyTag(tagText);
}

void TreeNode::_releaseMyTagSB() {
    editing();
    if (tag && tag->isValidObject()) {
        tag->StringBuffer::~StringBuffer();  // always exactly a StringBuffer: no virtual call
        tag = nullptr;
    }
}

// ---- tree references --------------------------------------------------------

bool TreeNode::incTreeRefCount() {
    ++localRefCount;
    if (treeInfo && treeInfo->magic == kTreeMagicAlive) {
        ++treeInfo->refCount;
        return true;
    }
    return false;
}

bool TreeNode::decTreeRefCount() {
    bool treeDone = true;
    if (treeInfo) {
        if (treeInfo->magic != kTreeMagicAlive || treeInfo->refCount <= 0) {
            treeDone = false;
        } else {
            --treeInfo->refCount;
        }
    }
    bool result = localRefCount != 0 && treeDone;
    if (localRefCount > 0) --localRefCount;
    return result;
}

void TreeNode::releaseArena() const {
    xmltree::TreeArena::release(treeInfo->arena);
    treeInfo->arena = nullptr;
}

int TreeNode::getTreeRefCount() const {
    if (treeInfo && treeInfo->magic == kTreeMagicAlive) return treeInfo->refCount;
    return 0;
}

void TreeNode::deleteTree() {
    if (!treeInfo) return;
    TreeNode* root = treeInfo->root;
    if (root && root->magic == kTreeMagicAlive) delete root;
}

TreeNode* TreeNode::getRoot() const {
    return treeInfo ? treeInfo->root : nullptr;
}

int TreeNode::getTreeId() const {
    return treeInfo ? treeInfo->treeId : 0;
}

TreeNode* TreeNode::getParent() const {
    return parent;
}
