// Checks of a parsed tree's arena for the tests and fuzzers
// (xmltree/TreeArenaCheck.h).

#include "xmltree/TreeArenaCheck.h"

#include <vector>

#include "foundation/PoolArena.h"
#include "foundation/SmallObjectPool.h"

namespace {

// Counts the blocks of one tree and notes the first that its arena lacks.
class BlockCount {
  public:
    explicit BlockCount(const xmltree::PoolArena* arena) : m_arena(arena) {}

    void block(const void* p, std::size_t bytes, const char* what) {
        if (!p) return;
        ++m_blocks;
        if (m_problem.empty() && !xmltree::TreeArena::holds(m_arena, p, bytes))
            m_problem = std::string(what) + " outside the tree's arena";
    }
    std::size_t blocks() const { return m_blocks; }
    const std::string& problem() const { return m_problem; }

  private:
    const xmltree::PoolArena* m_arena;
    std::size_t m_blocks = 0;
    std::string m_problem;
};

}  // namespace

bool TreeArenaCheck::keepsArena(const TreeNode* anyNode) {
    return anyNode && anyNode->treeInfo && anyNode->treeInfo->arena;
}

const TreeInfo* TreeArenaCheck::infoOf(const TreeNode* node) {
    return node->treeInfo;
}

const ExtPtrArray* TreeArenaCheck::childrenOf(const TreeNode* node) {
    return node->children;
}

const AttributeSet* TreeArenaCheck::attributesOf(const TreeNode* node) {
    return node->attributes;
}

const StringBuffer* TreeArenaCheck::contentOf(const TreeNode* node) {
    return node->content;
}

std::string TreeArenaCheck::problemIn(const TreeNode* anyNode) {
    if (!keepsArena(anyNode)) return "";
    const xmltree::PoolArena* arena = anyNode->treeInfo->arena;
    BlockCount count(arena);
    // A pooled object: its size only tells the pool from malloc, and every
    // object here is a pooled one.
    constexpr std::size_t kObject = 1;
    auto text = [&count](const StringBuffer* sb, bool ownBlock) {
        if (!sb) return;
        if (ownBlock) count.block(sb, kObject, "a text buffer");
        if (sb->onHeap()) count.block(sb->m_data, std::size_t{sb->m_cap} + 1, "a text block");
    };
    auto slots = [&count](const ExtPtrArray& array) {
        if (array.slotsInside()) return;
        count.block(array.m_items, static_cast<std::size_t>(array.m_cap) * sizeof(void*),
                    "children slots");
    };
    // The main tree, then the trees of its prolog (declaration, style sheets).
    std::vector<const TreeNode*> roots{anyNode->treeInfo->root};
    std::vector<const TreeNode*> stack;
    while (!roots.empty()) {
        const TreeNode* root = roots.back();
        roots.pop_back();
        if (const TreeInfo* info = root->treeInfo) {
            count.block(info, kObject, "a tree record");
            slots(info->styleSheets);
            text(info->processing, true);
            text(info->docType, true);
            if (info->xmlDecl) roots.push_back(info->xmlDecl);
            for (int i = 0; i < info->styleSheets.getSize(); ++i)
                roots.push_back(static_cast<const TreeNode*>(info->styleSheets.elementAt(i)));
        }
        stack.push_back(root);
        while (!stack.empty()) {
            const TreeNode* n = stack.back();
            stack.pop_back();
            count.block(n, sizeof(TreeNode), "a node");
            text(n->tag, false);
            text(n->content, true);
            if (const AttributeSet* set = n->attributes) {
                count.block(set, kObject, "an attribute set");
                if (set->m_block != set->m_inline)
                    count.block(set->m_block, set->m_blockCap, "attribute storage");
            }
            if (const ExtPtrArray* kids = n->children) {
                count.block(kids, kObject, "a children array");
                slots(*kids);
                for (int i = 0; i < kids->getSize(); ++i)
                    stack.push_back(static_cast<const TreeNode*>(kids->elementAt(i)));
            }
        }
    }
    if (!count.problem().empty()) return count.problem();
    const std::size_t inUse = xmltree::TreeArena::blocksInUse(arena);
    if (inUse != count.blocks()) {
        return std::to_string(inUse) + " blocks of the arena in use, " +
               std::to_string(count.blocks()) + " in the tree";
    }
    return "";
}
