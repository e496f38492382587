// Exchanging what two nodes hold: their own data, or that plus their
// children, keeping both trees' reference counts right.

#include <new>

#include "xmltree/TreeInternal.h"
#include "xmltree/TreeNode.h"

class TreeSwap {
  public:
    // Gives `slot` the text, or drops the buffer: empty content always ends
    // as no buffer at all.
    static void storeContent(StringBuffer*& slot, const StringBuffer& text) {
        if (text.getSize() == 0) {
            delete slot;
            slot = nullptr;
            return;
        }
        if (!slot) slot = StringBuffer::createNewSB();
        if (slot) slot->setString(text);
    }

    // Room for n children under `to`, so that adopting them cannot fail.
    static bool roomFor(TreeNode& to, int n) {
        if (n <= 0) return true;
        ExtPtrArray* kids = TreeNodeLinks::childArray(&to, n);
        return kids && kids->reserve(n);
    }

    // Appends the n listed nodes under `to`, in order, and returns the
    // references they carry. `to` has room for them (roomFor).
    static int adoptAll(TreeNode& to, void** kids, int n) {
        int moved = 0;
        for (int i = 0; i < n; ++i) {
            TreeNode* child = static_cast<TreeNode*>(kids[i]);
            if (!child) continue;
            TreeNodeLinks::linkLast(&to, child);
            moved += child->localRefcountSum();
        }
        return moved;
    }
};

void TreeNode::swapNode(TreeNode& other) {
    editing();
    other.editing();
    StringBuffer savedTag(getTag());
    _setMyTag(other.getTag());
    other._setMyTag(savedTag.getString());

    StringBuffer mine(getContent());
    StringBuffer theirs(other.getContent());
    TreeSwap::storeContent(content, theirs);
    TreeSwap::storeContent(other.content, mine);

    AttributeSet* attrs = attributes;
    attributes = other.attributes;
    other.attributes = attrs;
}

void TreeNode::swapTree(TreeNode& other) {
    editing();
    other.editing();
    // Room first: once children are on the move, running out of memory would
    // leave some of them with no parent. Without it nothing changes.
    const int m = getNumChildren();
    ExtPtrArray mine;
    if (!mine.reserve(m) || !TreeSwap::roomFor(*this, other.getNumChildren()) ||
        !TreeSwap::roomFor(other, m))
        return;
    swapNode(other);

    if (children) {
        void** items = children->getItems();
        for (int i = 0; i < m; ++i)
            mine.append(items[i]);
        children->removeAll();
    }

    int movedIn = 0;
    if (other.children && other.children->getSize() > 0) {
        movedIn = TreeSwap::adoptAll(*this, other.children->getItems(), other.children->getSize());
        other.children->removeAll();
    }
    setInfoRecursive(treeInfo);

    int movedOut = TreeSwap::adoptAll(other, mine.getItems(), mine.getSize());
    other.setInfoRecursive(other.treeInfo);

    if (other.treeInfo) other.treeInfo->refCount += movedOut - movedIn;
    if (treeInfo) treeInfo->refCount += movedIn - movedOut;
}
