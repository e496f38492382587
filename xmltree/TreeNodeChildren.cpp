// Children and sibling links: creating nodes under a parent, attaching,
// detaching (which may split off a new tree or end the old one), and the
// getters along one level.

#include <cstring>
#include <new>

#include "xmltree/TreeInternal.h"
#include "xmltree/TreeNode.h"

namespace {

// Detaching `child` takes its subtree's references out of the tree; when none
// are left elsewhere the rest of the tree, this parent included, is destroyed.
// The loops that go on using the parent after a detach ask this first.
bool detachEndsTree(TreeNode* child) {
    TreeInfo* info = child->getTreeInfo();
    if (!info || info->magic != kTreeMagicAlive) return false;
    return info->refCount - child->localRefcountSum() == 0;
}

}  // namespace

// ---- creating nodes under a parent ----------------------------------------

namespace {

template <class MakeNode>
TreeNode* attachNew(TreeNode* parent, int callerId, MakeNode make) {
    TreeNode* node = nullptr;
    try {
        node = make();
    } catch (...) {
        return nullptr;
    }
    if (!node) return nullptr;
    // A parent outside any tree cannot take the node, and nobody would own it.
    if (!parent->getTreeInfo() || !parent->appendChild2(node, callerId)) {
        delete node;
        return nullptr;
    }
    return node;
}

}  // namespace

TreeNode* TreeNode::createNode(TreeNode* parent, const char* tag) {
    if (!parent) return createRoot(tag);
    return attachNew(parent, 1004, [tag] { return new TreeNode(tag, nullptr, 0); });
}

TreeNode* TreeNode::createNode2(TreeNode* parent, const char* tag, const char* content) {
    if (!parent) return createRoot2(tag, content);
    return attachNew(parent, 1005, [tag, content] { return new TreeNode(tag, content, 0); });
}

TreeNode* TreeNode::createNode3(TreeNode* parent, const char* tag, DataBuffer& content, LogBase*) {
    if (!parent) return createRoot3(tag, content);
    return attachNew(parent, 1006, [tag, &content] { return new TreeNode(tag, content, 0); });
}

// ---- attaching --------------------------------------------------------------

bool TreeNode::appendChild2(TreeNode* child, int) {
    if (!child) return false;
    if (child->parent && child->parent != this) return false;
    int savedCount = child->treeInfo ? child->treeInfo->refCount : 0;
    if (child->treeInfo == treeInfo) return false;
    editing();
    child->editing();

    if (!TreeNodeLinks::linkLast(this, child)) return false;

    if (child->treeInfo) {
        if (child->treeInfo->magic == kTreeMagicAlive) delete child->treeInfo;
        child->treeInfo = nullptr;
    }
    child->treeInfo = treeInfo;
    child->setInfoRecursive(treeInfo);
    if (treeInfo) treeInfo->refCount += savedCount;
    return true;
}

bool TreeNode::insertChild(int index, TreeNode* child) {
    if (!child || index < 0 || index > getNumChildren()) return false;
    if (child->parent) return false;
    int savedCount = child->treeInfo ? child->treeInfo->refCount : 0;
    if (child->treeInfo == treeInfo) return false;
    editing();
    child->editing();

    if (!TreeNodeLinks::link(this, index, child)) return false;

    if (child->treeInfo) {
        if (child->treeInfo->magic == kTreeMagicAlive) delete child->treeInfo;
        child->treeInfo = nullptr;
    }
    child->treeInfo = treeInfo;
    if (treeInfo) treeInfo->refCount += savedCount;
    child->setInfoRecursive(treeInfo);
    return true;
}

// ---- detaching ----------------------------------------------------------------

// ---- the link primitives ------------------------------------------------------

bool TreeNodeLinks::link(TreeNode* parent, int index, TreeNode* child) {
    ExtPtrArray* kids = childArray(parent);
    if (!kids || !kids->insertAt(index, child)) return false;
    TreeNode* left = static_cast<TreeNode*>(kids->elementAt(index - 1));
    TreeNode* right = static_cast<TreeNode*>(kids->elementAt(index + 1));
    child->prevSibling = left;
    child->nextSibling = right;
    if (left) left->nextSibling = child;
    if (right) right->prevSibling = child;
    child->parent = parent;
    return true;
}

bool TreeNodeLinks::unlink(TreeNode* child) {
    ExtPtrArray* siblings = child->parent ? child->parent->children : nullptr;
    if (!siblings) return false;
    void** items = siblings->getItems();
    const int n = siblings->getSize();
    int index = 0;
    while (index < n && items[index] != child)
        ++index;
    if (index == n) return false;
    if (child->prevSibling) child->prevSibling->nextSibling = child->nextSibling;
    if (child->nextSibling) child->nextSibling->prevSibling = child->prevSibling;
    siblings->removeAt(index);
    child->parent = nullptr;
    child->prevSibling = nullptr;
    child->nextSibling = nullptr;
    return true;
}

void TreeNode::removeFromTree() {
    editing();
    // The new record comes first: without it the subtree would belong to
    // nobody, so running out of memory leaves everything as it was.
    if (!parent || !parent->children) return;
    TreeInfo* info = new (std::nothrow) TreeInfo();
    if (!info) return;
    if (!TreeNodeLinks::unlink(this)) {
        delete info;
        return;
    }

    int sum = localRefcountSum();
    TreeInfo* old = treeInfo;
    if (old && old->magic == kTreeMagicAlive) {
        old->refCount -= sum;
        if (old->refCount == 0) {
            TreeNode* oldRoot = old->root;
            // Ends the old tree, the former parent and the old record with it.
            if (oldRoot && oldRoot->magic == kTreeMagicAlive) delete oldRoot;
        }
    }

    treeInfo = info;
    info->root = this;
    info->refCount = sum;
    setInfoRecursive(info);
}

void TreeNode::removeChildByIndex(int index) {
    editing();
    TreeNode* child = getChild(index);
    if (!child) return;
    child->removeFromTree();
    // From here on this node may be gone; only the child is used.
    TreeInfo* info = child->treeInfo;
    if (info && info->root == child && info->refCount == 0 && child->magic == kTreeMagicAlive) {
        delete child;
    }
}

namespace {

// Removes every child whose text (tag or content, by `text`) equals `wanted`.
// Removal shifts the later children down, so the scan resumes at the index
// of the last match instead of restarting from 0.
template <class TextOf>
void removeMatching(TreeNode* self, const char* wanted, TextOf text) {
    if (!wanted) return;
    int i = 0;
    for (;;) {
        int n = self->getNumChildren();
        while (i < n && std::strcmp(text(self->getChild(i)), wanted) != 0)
            ++i;
        if (i >= n) return;
        bool ends = detachEndsTree(self->getChild(i));
        self->removeChildByIndex(i);
        if (ends) return;
    }
}

}  // namespace

void TreeNode::removeChild(const char* tagName) {
    editing();
    removeMatching(this, tagName, [](const TreeNode* n) { return n->getTag(); });
}

void TreeNode::removeChildWithContent(const char* contentValue) {
    editing();
    removeMatching(this, contentValue, [](const TreeNode* n) { return n->getContent(); });
}

void TreeNode::moveUpChildWithContent(const char* wanted) {
    editing();
    if (!wanted || getNumChildren() < 2) return;
    int n = getNumChildren();
    for (int i = 1; i < n; ++i) {
        TreeNode* child = getChild(i);
        if (std::strcmp(child->getContent(), wanted) != 0) continue;
        bool ends = detachEndsTree(child);
        child->removeFromTree();
        if (!ends) insertChild(i - 1, child);
        return;
    }
}

void TreeNode::moveDownChildWithContent(const char* wanted) {
    editing();
    if (!wanted || getNumChildren() < 2) return;
    int n = getNumChildren();
    for (int i = 0; i < n - 1; ++i) {
        TreeNode* child = getChild(i);
        if (std::strcmp(child->getContent(), wanted) != 0) continue;
        bool ends = detachEndsTree(child);
        child->removeFromTree();
        if (!ends) insertChild(i + 1, child);
        return;
    }
}

void TreeNode::rebuildChildrenSiblingList() {
    int n = getNumChildren();
    if (n < 2) return;
    void** items = children->getItems();
    for (int i = 0; i < n; ++i) {
        TreeNode* child = static_cast<TreeNode*>(items[i]);
        child->prevSibling = i > 0 ? static_cast<TreeNode*>(items[i - 1]) : nullptr;
        child->nextSibling = i + 1 < n ? static_cast<TreeNode*>(items[i + 1]) : nullptr;
    }
}

void TreeNode::renameChildTag(const char* oldTag, const char* newTag) {
    editing();
    if (!oldTag || !newTag) return;
    int n = getNumChildren();
    for (int i = 0; i < n; ++i) {
        TreeNode* child = getChild(i);
        if (std::strcmp(child->getTag(), oldTag) == 0) child->_setMyTag(newTag);
    }
}

// ---- getters ----------------------------------------------------------------

TreeNode* TreeNode::getChild(int index) {
    return children ? static_cast<TreeNode*>(children->elementAt(index)) : nullptr;
}

TreeNode* TreeNode::getFirstChild() {
    return getChild(0);
}

TreeNode* TreeNode::getLastChild() {
    return children ? static_cast<TreeNode*>(children->lastElement()) : nullptr;
}

int TreeNode::getNumChildren() const {
    return children ? children->getSize() : 0;
}

TreeNode* TreeNode::getPrevSibling() {
    return prevSibling;
}

TreeNode* TreeNode::getNextSibling() {
    return nextSibling;
}
