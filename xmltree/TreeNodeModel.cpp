// Node and tree record lifetime: construction, destruction, roots, tags and
// tree references.

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

#include "xmltree/TreeNode.h"

static_assert(sizeof(void*) != 8 || sizeof(TreeNode) == 88,
              "TreeNode grew: every element of every document pays for each byte");

namespace {

// Trees may be created on different threads; the atomic keeps ids unique.
std::atomic<int> NextTreeID{100};

// Children arrays still being emptied by the outermost ~TreeNode on this
// thread. A nested destructor hands its whole array over instead of deleting
// its children itself, so destroying a deep tree never recurses. Each array
// is reversed once so that popping from its end yields index order, the same
// pre-order as plain recursion; large arrays out of address order go in
// address order instead (see orderForFreeing).
thread_local ExtPtrArray* tnDestroyList = nullptr;

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

void deleteIfAlive(void* p) {
    TreeNode* node = static_cast<TreeNode*>(p);
    if (node && node->getMagic() == kTreeMagicAlive) delete node;
}

void drainDestroyList(ExtPtrArray& arrays) {
    while (arrays.getSize() > 0) {
        ExtPtrArray* kids = static_cast<ExtPtrArray*>(arrays.lastElement());
        void* child = kids->pop();
        // An exhausted array goes before its last child is destroyed, so a
        // chain keeps the list at one entry however deep it is.
        if (kids->getSize() == 0) {
            arrays.pop();
            delete kids;
        }
        deleteIfAlive(child);
    }
}

// Takes ownership of `kids` and destroys the children (see tnDestroyList).
void destroyChildren(ExtPtrArray* kids) {
    if (!orderForFreeing(*kids)) reverseInPlace(*kids);
    if (tnDestroyList && tnDestroyList->append(kids)) return;
    if (!tnDestroyList) {
        ExtPtrArray arrays;
        if (arrays.append(kids)) {
            tnDestroyList = &arrays;
            drainDestroyList(arrays);
            tnDestroyList = nullptr;
            return;
        }
    }
    // The list could not grow: fall back to deleting directly.
    while (kids->getSize() > 0)
        deleteIfAlive(kids->pop());
    delete kids;
}

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

// ---- TreeInfo -------------------------------------------------------------

TreeInfo::TreeInfo()
    : magic(kTreeMagicAlive),
      root(nullptr),
      xmlDecl(nullptr),
      styleSheets(),
      processing(nullptr),
      docType(nullptr),
      treeId(NextTreeID.fetch_add(1)),
      refCount(0) {}

TreeInfo::~TreeInfo() {
    magic = kTreeMagicDead;
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

TreeNode::TreeNode()
    : treeInfo(nullptr),
      tag(nullptr),
      attributes(nullptr),
      content(nullptr),
      localRefCount(0),
      cdata(false),
      children(nullptr),
      parent(nullptr),
      nextSibling(nullptr),
      prevSibling(nullptr),
      magic(kTreeMagicAlive) {}

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
    _releaseMyTagSB();
    delete content;
    content = nullptr;
    delete attributes;
    attributes = nullptr;
    if (children) {
        ExtPtrArray* kids = children;
        children = nullptr;
        destroyChildren(kids);
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

const char* TreeNode::getTag() const {
    return tag ? tag->getString() : "";
}

StringBuffer* TreeNode::_getMyTagSB2() {
    return tag;
}

void TreeNode::_setMyTag(const char* tagText) {
    if (!tag) {
        if (!tagText) return;
        tag = StringBuffer::createNewSB(tagText);
        if (!tag) return;
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
    if (tag && tag->isValidObject()) {
        delete tag;
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
