// Editing: build a document node by node, set content and attributes, add a
// prolog, and move children around.

#include <cstdio>

#include "xmltree/Tree.h"

int main() {
    xmltree::Tree doc(TreeNode::createRoot("order"));
    if (!doc) return 1;

    // Attributes: addAttribute appends, so a second "id" is a second
    // attribute; updateAttribute replaces the first of that name and puts
    // the new one last. This leaves id="A-2" id="A-3".
    doc->addAttribute("id", "A-1");
    doc->addAttribute("id", "A-2");
    doc->updateAttribute("id", "A-3");
    doc->addAttribute("2nd", "x");  // names are cleaned: stored as "A2nd"
    doc->removeAttribute("A2nd");

    // Children are made in place; the tree owns them.
    TreeNode* items = TreeNode::createNode(doc.root(), "items");
    TreeNode::createNode2(items, "item", "bread");
    TreeNode::createNode2(items, "item", "milk");
    TreeNode* note = TreeNode::createNode2(doc.root(), "note", "Ring twice");

    // Content: set, append, numbers; markup characters are escaped on output
    // unless the content is written as CDATA.
    note->appendContent(" & wait");
    TreeNode* total = TreeNode::createNode(doc.root(), "total");
    total->appendContentInt(42);
    TreeNode* raw = TreeNode::createNode2(doc.root(), "raw", "<b>bold</b>");
    raw->setCdata(true);

    // Moving: a node outside the tree can be inserted at any index.
    TreeNode* first = new TreeNode("item", "eggs", 0);
    if (!items->insertChild(0, first)) delete first;
    items->renameChildTag("item", "line");

    // The prolog belongs to the tree: any node reaches it.
    total->setDocEncoding("utf-8");
    total->setDocType("<!DOCTYPE order>");

    StringBuffer out;
    doc->createXML(out, 0, 0, false);
    std::fwrite(out.getString(), 1, static_cast<size_t>(out.getSize()), stdout);
    return 0;
}
