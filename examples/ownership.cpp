// Trees, references and ownership: who frees what, and what a reference
// protects.

#include <cstdio>

#include "xmltree/Tree.h"

int main() {
    // The handle owns the tree and holds one reference on its root.
    xmltree::Tree doc;
    if (!doc.parseString("<doc><draft><old/><old/><keep/></draft><final/></doc>")) return 1;
    std::printf("references held: %d\n", doc->getTreeRefCount());

    // A remove frees each removed child. Without the root's reference the
    // first removal would also have freed the whole document, draft included.
    TreeNode* draft = doc->getChild("draft", nullptr);
    draft->removeChild("old");
    std::printf("draft children: %d\n", draft->getNumChildren());

    // A guard keeps a node through a removal: it is detached, not freed, and
    // becomes the root of its own tree. Give it an owner before the guard
    // ends; the owner is declared first so that the guard ends first.
    xmltree::Tree kept;
    TreeNode* keep = draft->getChild(0);
    {
        xmltree::NodeRef guard(keep);
        draft->removeChildByIndex(0);
        kept.reset(keep);
    }
    std::printf("kept <%s>, a root: %s\n", kept->getTag(), kept->getParent() ? "no" : "yes");

    // Detaching gives a tree of its own to a new handle...
    xmltree::Tree moved = xmltree::Tree::detach(draft);
    std::printf("doc children: %d, moved tree: <%s>\n", doc->getNumChildren(), moved->getTag());

    // ...and attaching hands the nodes to the receiving tree: release first.
    TreeNode* target = doc->getChild("final", nullptr);
    if (!target->appendChild2(moved.release(), 0)) return 1;
    std::printf("final children: %d, references held: %d\n", target->getNumChildren(),
                doc->getTreeRefCount());

    // A root that no handle owns is freed by deleteTree().
    TreeNode* loose = TreeNode::createRoot("scratch");
    loose->deleteTree();
    return 0;
}
