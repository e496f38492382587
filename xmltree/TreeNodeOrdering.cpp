// Ordering: sorting a node's children by a key, and inserting a child at its
// sorted place.

#include <cstdlib>
#include <cstring>
#include <new>

#include "foundation/AttributeSet.h"
#include "foundation/ExtPtrArray.h"
#include "foundation/StringBuffer.h"
#include "foundation/StringFunctions.h"
#include "foundation/StringPair.h"
#include "xmltree/TreeInternal.h"
#include "xmltree/TreeNode.h"

namespace {

// Sort keys for the comparators, which receive nothing but two slots. Each
// thread has its own pair, so keyed sorts on different threads do not read
// each other's keys. They hold the caller's strings, written just before a
// sort and never reset.
thread_local const char* tnSearchTag = nullptr;
thread_local const char* tnSearchAttribute = nullptr;

using Comparator = int (*)(const void*, const void*);

}  // namespace

class TreeOrdering {
  public:
    static void attributeValue(const TreeNode* n, StringBuffer& out) {
        if (n->attributes) n->attributes->getAttributeValue(tnSearchAttribute, out);
    }
    // The record field: the first child carrying tnSearchTag.
    static const TreeNode* field(const TreeNode* n) {
        return const_cast<TreeNode*>(n)->getChild(tnSearchTag, nullptr);
    }

    static void sortChildren(TreeNode* n, Comparator compare) {
        n->children->sort(compare);
        n->rebuildChildrenSiblingList();
    }
    static TreeNode* insertSorted(TreeNode* parent, TreeNode* node, const char* tag,
                                  const char* content);
};

namespace {

// ---- keys ---------------------------------------------------------------------
// A key knows whether the shared key variables it needs are set (ready) and
// loads a node's key into a holder; load is false when a record lacks its field.

struct TagKey {
    using Value = const char*;
    static bool ready() { return true; }
    static bool load(const TreeNode* n, Value& v) {
        v = n->getTag();
        return true;
    }
};

struct ContentKey {
    using Value = const char*;
    static bool ready() { return true; }
    static bool load(const TreeNode* n, Value& v) {
        v = n->getContent();
        return true;
    }
};

struct AttrKey {
    using Value = StringBuffer;
    static bool ready() { return tnSearchAttribute != nullptr; }
    static bool load(const TreeNode* n, Value& v) {
        TreeOrdering::attributeValue(n, v);
        return true;
    }
};

struct AttrIntKey {
    using Value = int;
    static bool ready() { return tnSearchAttribute != nullptr; }
    static bool load(const TreeNode* n, Value& v) {
        StringBuffer text;
        TreeOrdering::attributeValue(n, text);
        v = text.intValue();
        return true;
    }
};

struct ContentIntKey {
    using Value = int;
    static bool ready() { return true; }
    static bool load(const TreeNode* n, Value& v) {
        v = std::atoi(n->getContent());
        return true;
    }
};

// The same key, read from the record's field instead of the node itself.
template <class Inner>
struct FieldKey {
    using Value = typename Inner::Value;
    static bool ready() { return tnSearchTag != nullptr && Inner::ready(); }
    static bool load(const TreeNode* n, Value& v) {
        const TreeNode* f = TreeOrdering::field(n);
        return f && Inner::load(f, v);
    }
};

// ---- three-way comparisons ------------------------------------------------------

inline const char* text(const char* s) {
    return s;
}
inline const char* text(const StringBuffer& b) {
    return b.getString();
}

struct ByteOrder {
    template <class V>
    static int run(const V& a, const V& b) {
        return std::strcmp(text(a), text(b));
    }
};

struct NoCase {
    template <class V>
    static int run(const V& a, const V& b) {
        return mxStrICmp(text(a), text(b));
    }
};

struct BufferOrder {
    static int run(const StringBuffer& a, const StringBuffer& b) {
        return a.compare(b.getString());
    }
};

struct IntOrder {
    static int run(int a, int b) { return (a < b) ? -1 : (a > b) ? 1 : 0; }
};

// How the result of the three-way comparison becomes the comparator's.
enum class Dir {
    kAsc,     // compare(kA, kB)
    kNegate,  // minus compare(kA, kB)
    kSwap     // compare(kB, kA)
};

inline int negate(int r) {
    return (r > 0) ? -1 : (r < 0) ? 1 : 0;
}

const TreeNode* slotNode(const void* slot) {
    return slot ? *static_cast<TreeNode* const*>(slot) : nullptr;
}

template <class Key, class Order, Dir D>
int compareBy(const void* a, const void* b) {
    const TreeNode* na = slotNode(a);
    const TreeNode* nb = slotNode(b);
    if (!na || !nb || !Key::ready()) return 0;
    typename Key::Value ka{};
    typename Key::Value kb{};
    bool hasA = Key::load(na, ka);
    bool hasB = Key::load(nb, kb);
    if (!hasA || !hasB) return 0;
    if (D == Dir::kSwap) return Order::run(kb, ka);
    int r = Order::run(ka, kb);
    return D == Dir::kNegate ? negate(r) : r;
}

using RAttrKey = FieldKey<AttrKey>;
using RContentKey = FieldKey<ContentKey>;
using RContentIntKey = FieldKey<ContentIntKey>;

constexpr Comparator compareTagsAsc = compareBy<TagKey, ByteOrder, Dir::kAsc>;
constexpr Comparator compareTagsDsc = compareBy<TagKey, ByteOrder, Dir::kNegate>;
constexpr Comparator compareTagsAscI = compareBy<TagKey, NoCase, Dir::kAsc>;
constexpr Comparator compareTagsDscI = compareBy<TagKey, NoCase, Dir::kNegate>;

constexpr Comparator compareContentAsc = compareBy<ContentKey, ByteOrder, Dir::kAsc>;
constexpr Comparator compareContentDsc = compareBy<ContentKey, ByteOrder, Dir::kNegate>;
constexpr Comparator compareContentAscI = compareBy<ContentKey, NoCase, Dir::kAsc>;
constexpr Comparator compareContentDscI = compareBy<ContentKey, NoCase, Dir::kNegate>;

constexpr Comparator compareAttrAsc = compareBy<AttrKey, BufferOrder, Dir::kAsc>;
constexpr Comparator compareAttrDsc = compareBy<AttrKey, BufferOrder, Dir::kSwap>;
constexpr Comparator compareAttrAscI = compareBy<AttrKey, NoCase, Dir::kAsc>;
constexpr Comparator compareAttrDscI = compareBy<AttrKey, NoCase, Dir::kSwap>;

// "Asc" puts the larger number first: callers rely on this long-standing
// reversal, so sortByAttributeInt's nonzero direction orders by decreasing value.
constexpr Comparator compareAttrIntAsc = compareBy<AttrIntKey, IntOrder, Dir::kSwap>;
constexpr Comparator compareAttrIntDsc = compareBy<AttrIntKey, IntOrder, Dir::kAsc>;

constexpr Comparator compareRAttrAsc = compareBy<RAttrKey, BufferOrder, Dir::kAsc>;
constexpr Comparator compareRAttrDsc = compareBy<RAttrKey, BufferOrder, Dir::kSwap>;
constexpr Comparator compareRAttrAscI = compareBy<RAttrKey, NoCase, Dir::kAsc>;
constexpr Comparator compareRAttrDscI = compareBy<RAttrKey, NoCase, Dir::kSwap>;

constexpr Comparator compareRContentAsc = compareBy<RContentKey, ByteOrder, Dir::kAsc>;
constexpr Comparator compareRContentDsc = compareBy<RContentKey, ByteOrder, Dir::kNegate>;
constexpr Comparator compareRContentAscI = compareBy<RContentKey, NoCase, Dir::kAsc>;
constexpr Comparator compareRContentDscI = compareBy<RContentKey, NoCase, Dir::kNegate>;

constexpr Comparator compareRContentAscInt = compareBy<RContentIntKey, IntOrder, Dir::kAsc>;
constexpr Comparator compareRContentDscInt = compareBy<RContentIntKey, IntOrder, Dir::kSwap>;

// Picks among the four comparators of a family: case first, then direction.
Comparator pick(bool caseInsensitive, long ascending, Comparator ascI, Comparator dscI,
                Comparator asc, Comparator dsc) {
    if (caseInsensitive) return ascending ? ascI : dscI;
    return ascending ? asc : dsc;
}

}  // namespace

// ---- sorts ----------------------------------------------------------------------

void TreeNode::sortByTag(long ascending, bool caseInsensitive) {
    if (!children) return;
    TreeOrdering::sortChildren(this, pick(caseInsensitive, ascending, compareTagsAscI,
                                          compareTagsDscI, compareTagsAsc, compareTagsDsc));
}

void TreeNode::sortByContent(long ascending, bool caseInsensitive) {
    if (!children) return;
    TreeOrdering::sortChildren(
        this, pick(caseInsensitive, ascending, compareContentAscI, compareContentDscI,
                   compareContentAsc, compareContentDsc));
}

void TreeNode::sortByAttribute(const char* name, long ascending, bool caseInsensitive) {
    if (!children) return;
    tnSearchAttribute = name;
    TreeOrdering::sortChildren(this, pick(caseInsensitive, ascending, compareAttrAscI,
                                          compareAttrDscI, compareAttrAsc, compareAttrDsc));
}

void TreeNode::sortByAttributeInt(const char* name, long ascending) {
    if (!children) return;
    tnSearchAttribute = name;
    TreeOrdering::sortChildren(this, ascending ? compareAttrIntAsc : compareAttrIntDsc);
}

void TreeNode::sortRecordsByAttribute(const char* fieldTag, const char* name, long ascending,
                                      bool caseInsensitive) {
    if (!children) return;
    tnSearchTag = fieldTag;
    tnSearchAttribute = name;
    TreeOrdering::sortChildren(this, pick(caseInsensitive, ascending, compareRAttrAscI,
                                          compareRAttrDscI, compareRAttrAsc, compareRAttrDsc));
}

void TreeNode::sortRecordsByContent(const char* fieldTag, long ascending, bool caseInsensitive) {
    if (!children) return;
    tnSearchTag = fieldTag;
    TreeOrdering::sortChildren(
        this, pick(caseInsensitive, ascending, compareRContentAscI, compareRContentDscI,
                   compareRContentAsc, compareRContentDsc));
}

void TreeNode::sortRecordsByContentInt(const char* fieldTag, long ascending) {
    if (!children) return;
    tnSearchTag = fieldTag;
    TreeOrdering::sortChildren(this, ascending ? compareRContentAscInt : compareRContentDscInt);
}

// ---- ordered insertion ----------------------------------------------------------

// Inserts before the first child that sorts after (tag, content); a null
// content compares tags only, so the node lands after every equal tag.
TreeNode* TreeOrdering::insertSorted(TreeNode* parent, TreeNode* node, const char* tag,
                                     const char* content) {
    ExtPtrArray* kids = parent->children;
    int count = kids->getSize();
    for (int i = 0; i < count; ++i) {
        const TreeNode* kid = static_cast<const TreeNode*>(kids->elementAt(i));
        if (!kid) continue;
        int byTag = std::strcmp(kid->getTag(), tag);
        bool after = byTag > 0;
        if (byTag == 0 && content) {
            const char* kidContent = kid->getContent();
            after = kidContent && std::strcmp(kidContent, content) > 0;
        }
        if (after) return parent->insertChild(i, node) ? node : nullptr;
    }
    return parent->appendChild2(node, 1007) ? node : nullptr;
}

TreeNode* TreeNode::insertAscending(const char* tagName, const char* contentValue) {
    editing();
    if (!tagName) return nullptr;
    TreeNode* node = new (std::nothrow) TreeNode(tagName, contentValue, 0);
    if (!node) return nullptr;
    TreeNodeLinks::childArray(this);
    // Only a node of a tree can take a child; one refused here would belong
    // to nobody, so it goes at once.
    TreeNode* placed =
        children ? TreeOrdering::insertSorted(this, node, tagName, contentValue) : nullptr;
    if (!placed) delete node;
    return placed;
}

TreeNode* TreeNode::checkInsertAscending(const char* tagName, StringPair* pair) {
    editing();
    TreeNode* existing = getChild(tagName, pair);
    if (existing) return existing;
    TreeNode* node = insertAscending(tagName, nullptr);
    if (node && pair) node->addAttribute(pair->getKey(), pair->getValue());
    return node;
}
